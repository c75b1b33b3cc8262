#pragma once
// /proc/PID/smaps_rollup: a process's memory with shared pages divided among their sharers.

#include <cstdint>
#include <optional>
#include <string_view>

#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/platform/linux/ParseFailure.h"

namespace omnira::platform {

struct SmapsRollup {
  uint64_t rssKB = 0;
  uint64_t pssKB = 0;  // proportional set size: each shared page divided by its sharers
  // Split by kind since Linux 5.9; absent on older kernels.
  std::optional<uint64_t> pssAnonKB;
  std::optional<uint64_t> pssShmemKB;
  std::optional<uint64_t> swapPssKB;
};

// https://docs.kernel.org/filesystems/proc.html (section 1.1, smaps and smaps_rollup)
// Rss and Pss are required; the per-kind lines are read where present.
Result<SmapsRollup, ParseFailure> parseSmapsRollup(std::string_view text);

}  // namespace omnira::platform
