#pragma once
// /proc/stat: per-core CPU time and the boot time.

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/platform/linux/ParseFailure.h"
#include "OmniraCore/sampling/SystemSource.h"

namespace omnira::platform {

struct KernelStat {
  // One entry per "cpuN" line, in the file's order (offline cores have no line).
  std::vector<CoreTicks> cores;
  std::optional<int64_t> bootTime;  // "btime", seconds since the epoch
};

// https://docs.kernel.org/filesystems/proc.html#miscellaneous-kernel-statistics-in-proc-stat
// Folds the kernel's eight times into four: user; nice; system = system + irq +
// softirq + steal; idle = idle + iowait. Guest time is already inside user and nice.
// A cpuN line with fewer than four numbers, or a number that does not parse, fails the whole file.
Result<KernelStat, ParseFailure> parseKernelStat(std::string_view text);

}  // namespace omnira::platform
