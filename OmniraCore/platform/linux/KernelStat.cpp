#include "OmniraCore/platform/linux/KernelStat.h"

#include <fmt/format.h>

#include "OmniraCore/foundation/Parse.h"

namespace omnira::platform {

Result<KernelStat, ParseFailure> parseKernelStat(std::string_view text) {
  KernelStat stat;
  std::optional<ParseFailure> failure;
  forEachLine(text, [&](std::string_view line) {
    if (failure) return;
    if (line.starts_with("cpu") && line.size() > 3 && line[3] >= '0' && line[3] <= '9') {
      auto fields = splitFields(line);
      if (fields.size() < 5) {
        failure = ParseFailure{fmt::format("a cpu line has too few fields: \"{}\"", line)};
        return;
      }
      uint64_t times[8] = {};
      for (size_t i = 1; i < fields.size() && i <= 8; ++i) {
        auto value = parseNumber<uint64_t>(fields[i]);
        if (!value) {
          failure = ParseFailure{fmt::format("a cpu time is not a number: \"{}\"", fields[i])};
          return;
        }
        times[i - 1] = *value;
      }
      // user nice system idle iowait irq softirq steal
      stat.cores.push_back(CoreTicks{times[0], times[1], times[2] + times[5] + times[6] + times[7],
                                     times[3] + times[4]});
    } else if (line.starts_with("btime ")) {
      auto fields = splitFields(line);
      if (fields.size() == 2) stat.bootTime = parseNumber<int64_t>(fields[1]);
    }
  });
  if (failure) return fail(std::move(*failure));
  return stat;
}

}  // namespace omnira::platform
