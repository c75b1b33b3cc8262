#include "OmniraCore/platform/linux/PidSchedStat.h"

#include "OmniraCore/foundation/Parse.h"

namespace omnira::platform {

Result<PidSchedStat, ParseFailure> parsePidSchedStat(std::string_view text) {
  const auto fields = splitFields(trim(text));
  if (fields.size() != 3) return fail(ParseFailure{"schedstat does not hold three numbers"});
  auto run = parseNumber<uint64_t>(fields[0]);
  auto wait = parseNumber<uint64_t>(fields[1]);
  auto slices = parseNumber<uint64_t>(fields[2]);
  if (!run || !wait || !slices) return fail(ParseFailure{"schedstat holds something other than numbers"});
  return PidSchedStat{*run, *wait, *slices};
}

}  // namespace omnira::platform
