#include "OmniraCore/platform/linux/PressureStall.h"

#include <optional>

#include "OmniraCore/foundation/Parse.h"

namespace omnira::platform {

namespace {

std::optional<double> avg10(std::string_view line) {
  for (auto field : splitFields(line)) {
    if (field.starts_with("avg10=")) return parseNumber<double>(field.substr(6));
  }
  return std::nullopt;
}

}  // namespace

Result<MemoryStall, ParseFailure> parseMemoryStall(std::string_view text) {
  std::optional<double> some, full;
  forEachLine(text, [&](std::string_view line) {
    if (line.starts_with("some ")) some = avg10(line);
    else if (line.starts_with("full ")) full = avg10(line);
  });
  if (!some || !full) return fail(ParseFailure{"memory pressure lacks a some or full avg10 figure"});
  return MemoryStall{*some, *full};
}

}  // namespace omnira::platform
