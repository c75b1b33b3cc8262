#pragma once
// /proc/PID/task/TID/schedstat: how long and how often the scheduler ran one thread
// (/proc/PID/schedstat is the main thread's alone). Summed over a process's threads it
// tells whether the process ran since the last look; one that did not has not changed
// its CPU time, memory or I/O counters either.

#include <cstdint>
#include <string_view>

#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/platform/linux/ParseFailure.h"

namespace omnira::platform {

struct PidSchedStat {
  uint64_t runNanoseconds = 0;  // time spent on a CPU
  uint64_t waitNanoseconds = 0;  // time spent waiting on a run queue
  uint64_t timeslices = 0;       // times run on a CPU
  friend bool operator==(const PidSchedStat&, const PidSchedStat&) = default;
};

// https://docs.kernel.org/scheduler/sched-stats.html (/proc/<pid>/schedstat)
Result<PidSchedStat, ParseFailure> parsePidSchedStat(std::string_view text);

}  // namespace omnira::platform
