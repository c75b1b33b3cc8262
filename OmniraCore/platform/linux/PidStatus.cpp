#include "OmniraCore/platform/linux/PidStatus.h"

#include <fmt/format.h>

#include "OmniraCore/foundation/Parse.h"

namespace omnira::platform {

namespace {

// Bounds memory lines so that the footprint sum in bytes cannot overflow.
constexpr uint64_t kMaxKilobytes = UINT64_MAX / 1024 / 4;

std::optional<uint64_t> kilobytes(std::string_view value) {
  value = trim(value);
  if (!value.ends_with(" kB")) return std::nullopt;
  auto number = parseNumber<uint64_t>(trim(value.substr(0, value.size() - 3)));
  if (!number || *number > kMaxKilobytes) return std::nullopt;
  return number;
}

// The first of the four uids (real, effective, saved, file system).
std::optional<uint32_t> realUID(std::string_view value) {
  value = trim(value);
  const auto end = value.find_first_of(" \t");
  return parseNumber<uint32_t>(value.substr(0, end));
}

}  // namespace

Result<PidStatus, ParseFailure> parsePidStatus(std::string_view text) {
  PidStatus status;
  bool hasUID = false, hasVoluntary = false, hasInvoluntary = false;
  std::string_view bad;
  forEachLine(text, [&](std::string_view line) {
    if (!bad.empty()) return;
    const auto colon = line.find(':');
    if (colon == std::string_view::npos) return;
    const auto key = line.substr(0, colon);
    const auto value = line.substr(colon + 1);
    bool parsed = true;
    auto setKB = [&](uint64_t& out) {
      auto kb = kilobytes(value);
      parsed = kb.has_value();
      out = kb.value_or(0);
    };
    auto setCount = [&](uint64_t& out, bool& seen) {
      auto count = parseNumber<uint64_t>(trim(value));
      parsed = count.has_value();
      out = count.value_or(0);
      seen = parsed;
    };
    if (key == "Uid") {
      auto uid = realUID(value);
      parsed = uid.has_value();
      status.realUID = uid.value_or(0);
      hasUID = parsed;
    } else if (key == "RssAnon") {
      setKB(status.rssAnonKB);
    } else if (key == "RssShmem") {
      setKB(status.rssShmemKB);
    } else if (key == "VmSwap") {
      setKB(status.swapKB);
    } else if (key == "voluntary_ctxt_switches") {
      setCount(status.voluntarySwitches, hasVoluntary);
    } else if (key == "nonvoluntary_ctxt_switches") {
      setCount(status.involuntarySwitches, hasInvoluntary);
    }
    if (!parsed) bad = line;
  });
  if (!bad.empty()) return fail(ParseFailure{fmt::format("status: cannot read \"{}\"", bad)});
  if (!hasUID) return fail(ParseFailure{"status: no Uid line"});
  if (!hasVoluntary || !hasInvoluntary) return fail(ParseFailure{"status: no context-switch lines (cut short?)"});
  return status;
}

}  // namespace omnira::platform
