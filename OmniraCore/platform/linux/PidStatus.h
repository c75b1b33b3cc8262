#pragma once
// /proc/PID/status: owner, memory by kind and context switches.

#include <cstdint>
#include <string_view>

#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/platform/linux/ParseFailure.h"

namespace omnira::platform {

struct PidStatus {
  uint32_t realUID = 0;
  // Kernel threads and zombies have no memory lines; theirs read 0.
  uint64_t residentKB = 0;  // VmRSS: every page in memory, shared ones whole
  uint64_t rssAnonKB = 0;
  uint64_t rssShmemKB = 0;
  uint64_t swapKB = 0;
  uint64_t voluntarySwitches = 0;
  uint64_t involuntarySwitches = 0;

  // What the process alone keeps in memory: its anonymous and shared-memory pages,
  // resident or swapped. File-backed pages are left out: the kernel can drop them.
  uint64_t footprintBytes() const { return (rssAnonKB + rssShmemKB + swapKB) * 1024; }
  uint64_t contextSwitches() const { return voluntarySwitches + involuntarySwitches; }
};

// https://docs.kernel.org/filesystems/proc.html (table 1-2)
// https://man7.org/linux/man-pages/man5/proc_pid_status.5.html
// The context-switch lines close the file, so a file without them was cut short and
// fails, as does a line used whose value does not parse.
Result<PidStatus, ParseFailure> parsePidStatus(std::string_view text);

}  // namespace omnira::platform
