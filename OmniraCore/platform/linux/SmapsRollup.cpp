#include "OmniraCore/platform/linux/SmapsRollup.h"

#include <fmt/format.h>

#include "OmniraCore/foundation/Parse.h"

namespace omnira::platform {

Result<SmapsRollup, ParseFailure> parseSmapsRollup(std::string_view text) {
  SmapsRollup rollup;
  bool hasRss = false, hasPss = false;
  std::string_view bad;
  forEachKeyValue(text, [&](std::string_view key, std::string_view value, std::string_view line) {
    if (!bad.empty()) return;
    const bool wanted =
        key == "Rss" || key == "Pss" || key == "Pss_Anon" || key == "Pss_Shmem" || key == "SwapPss";
    if (!wanted) return;
    const auto kb = parseKilobytes(value);
    if (!kb) {
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
