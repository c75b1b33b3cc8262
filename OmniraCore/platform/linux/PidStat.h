#pragma once
// /proc/PID/stat: a process's identity and CPU time, as one line of fields.

#include <cstdint>
#include <string_view>

#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/platform/linux/ParseFailure.h"

namespace omnira::platform {

struct PidStat {
  int32_t pid = 0;
  // The command name (comm). Points into the parsed text: copy it before the text goes.
  std::string_view name;
  char state = '?';
  int32_t parentPID = 0;
  int64_t ttyNumber = 0;   // 0: no controlling terminal
  uint32_t flags = 0;      // PF_* bits
  uint64_t userTicks = 0;  // clock ticks (sysconf(_SC_CLK_TCK))
  uint64_t systemTicks = 0;
  uint32_t threads = 0;     // num_threads: 1 for a single-threaded process
  uint64_t startTicks = 0;  // clock ticks after boot; with the pid, what makes a process unique

  static constexpr uint32_t kernelThreadFlag = 0x00200000;  // PF_KTHREAD
  bool isKernelThread() const { return (flags & kernelThreadFlag) != 0; }
};

// https://man7.org/linux/man-pages/man5/proc_pid_stat.5.html
// https://docs.kernel.org/filesystems/proc.html (table 1-4)
// The name sits between the first "(" and the last ")": it may hold spaces and
// parentheses itself ("(Web Content)", "a) b"), and no field after it holds a ")".
// Fails when the text stops before the start time (field 22) or a field used does not parse.
Result<PidStat, ParseFailure> parsePidStat(std::string_view text);

}  // namespace omnira::platform
