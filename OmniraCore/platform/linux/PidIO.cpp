#include "OmniraCore/platform/linux/PidIO.h"

#include <fmt/format.h>

#include "OmniraCore/foundation/Parse.h"

namespace omnira::platform {

Result<PidIO, ParseFailure> parsePidIO(std::string_view text) {
  PidIO io;
  bool hasRead = false, hasWrite = false;
  std::string_view bad;
  forEachKeyValue(text, [&](std::string_view key, std::string_view field, std::string_view line) {
    if (!bad.empty() || (key != "read_bytes" && key != "write_bytes")) return;
    auto value = parseNumber<uint64_t>(trim(field));
    if (!value) {
      bad = line;
      return;
    }
    if (key == "read_bytes") {
      io.readBytes = *value;
      hasRead = true;
    } else {
      io.writeBytes = *value;
      hasWrite = true;
    }
  });
  if (!bad.empty()) return fail(ParseFailure{fmt::format("io: cannot read \"{}\"", bad)});
  if (!hasRead || !hasWrite) return fail(ParseFailure{"io: no read_bytes or write_bytes line"});
  return io;
}

}  // namespace omnira::platform
