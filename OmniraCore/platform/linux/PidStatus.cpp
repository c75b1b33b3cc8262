#include "OmniraCore/platform/linux/PidStatus.h"

#include <fmt/format.h>

#include "OmniraCore/foundation/Parse.h"

namespace omnira::platform {

namespace {

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
  forEachKeyValue(text, [&](std::string_view key, std::string_view value, std::string_view line) {
    if (!bad.empty()) return;
    bool parsed = true;
    auto setKB = [&](uint64_t& out) {
      auto kb = parseKilobytes(value);
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
    } else if (key == "VmRSS") {
      setKB(status.residentKB);
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
