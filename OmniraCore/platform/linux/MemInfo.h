#pragma once
// /proc/meminfo, and how its lines map onto the sampler's memory figures.

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/platform/linux/ParseFailure.h"
#include "OmniraCore/sampling/SystemSource.h"

namespace omnira::platform {

// Every "Key: number [kB]" line, in bytes. Lines that are not of that form are skipped;
// a file without "MemTotal" fails.
struct MemInfo {
  std::map<std::string, uint64_t, std::less<>> bytes;
  std::optional<uint64_t> operator[](std::string_view key) const {
    auto it = bytes.find(key);
    return it == bytes.end() ? std::nullopt : std::optional<uint64_t>(it->second);
  }
};

// https://docs.kernel.org/filesystems/proc.html#meminfo
Result<MemInfo, ParseFailure> parseMemInfo(std::string_view text);

// The memory figures, from meminfo and the bytes that zram devices use:
//   app        = AnonPages + Shmem                 (what processes hold privately or share)
//   wired      = SUnreclaim + KernelStack + PageTables (kernel memory that cannot be given back)
//   compressed = zram devices' memory used + Zswap (compressed copies of swapped pages)
//   cached     = Active(file) + Inactive(file)     (file pages the kernel can drop)
//   swapUsed   = SwapTotal - SwapFree
//   available  = MemAvailable; kernels before 3.14 lack it, so MemFree plus the
//                reclaimable file pages and slab stand in for it.
MemoryReading memoryReading(const MemInfo& info, uint64_t zramBytes);

// /sys/block/zramN/mm_stat: the third number is the memory the device uses now.
// https://docs.kernel.org/admin-guide/blockdev/zram.html#stats
std::optional<uint64_t> parseZramMemoryUsed(std::string_view text);

}  // namespace omnira::platform
