#include "OmniraCore/platform/linux/SmapsRollup.h"

#include <fmt/format.h>

#include "OmniraCore/foundation/Parse.h"

namespace omnira::platform {

Result<SmapsRollup, ParseFailure> parseSmapsRollup(std::string_view text) {
  SmapsRollup rollup;
  bool hasRss = false, hasPss = false;
  std::string_view bad;
  forEachLine(text, [&](std::string_view line) {
    const auto colon = line.find(':');
    if (colon == std::string_view::npos || !bad.empty()) return;
    const auto key = line.substr(0, colon);
    const bool wanted =
        key == "Rss" || key == "Pss" || key == "Pss_Anon" || key == "Pss_Shmem" || key == "SwapPss";
    if (!wanted) return;
    auto value = trim(line.substr(colon + 1));
    std::optional<uint64_t> kb;
    if (value.ends_with(" kB")) kb = parseNumber<uint64_t>(trim(value.substr(0, value.size() - 3)));
    if (!kb || *kb > UINT64_MAX / 1024 / 4) {
      bad = line;
      return;
    }
    if (key == "Rss") {
      rollup.rssKB = *kb;
      hasRss = true;
    } else if (key == "Pss") {
      rollup.pssKB = *kb;
      hasPss = true;
    } else if (key == "Pss_Anon") {
      rollup.pssAnonKB = *kb;
    } else if (key == "Pss_Shmem") {
      rollup.pssShmemKB = *kb;
    } else {
      rollup.swapPssKB = *kb;
    }
  });
  if (!bad.empty()) return fail(ParseFailure{fmt::format("smaps_rollup: cannot read \"{}\"", bad)});
  if (!hasRss || !hasPss) return fail(ParseFailure{"smaps_rollup: no Rss or Pss line"});
  return rollup;
}

}  // namespace omnira::platform
