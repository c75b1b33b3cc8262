#pragma once
// Omnira's own cost for its metrics, and the machine's running totals for `omnira metrics`.
// Plain functions under a /proc root; call them on the thread that builds the exposition.
// A file that cannot be read or parsed leaves that figure absent, silently.

#include <cstdint>
#include <string_view>

#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/metrics/MetricsReadings.h"
#include "OmniraCore/platform/linux/ParseFailure.h"
#include "OmniraCore/platform/linux/Roots.h"
#include "OmniraCore/sampling/SystemSource.h"

namespace omnira::platform {

// https://docs.kernel.org/filesystems/proc.html (Table 1-3, /proc/PID/statm)
// The second field, resident pages.
Result<uint64_t, ParseFailure> parseResidentPages(std::string_view statm);

// CPU from getrusage; resident bytes from <proc>/self/statm.
SelfCost readSelfCost(const Roots& roots = {});

// The source's cumulative counters in seconds and bytes; `ticksPerSecond` is the kernel's
// USER_HZ. Cores without a reading leave the list empty.
MachineCounters machineCounters(SystemSource& source, double ticksPerSecond);

}  // namespace omnira::platform
