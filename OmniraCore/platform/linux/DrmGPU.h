#pragma once
// GPUs under <sys>/class/drm: how busy each is, its memory and clock.
// amdgpu tells its own busy share; Intel's i915 and xe give only the time the GT spent
// idle (RC6), so their busy share comes from two readings: 1 - Δidle / Δtime.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OmniraCore/platform/linux/Roots.h"
#include "OmniraCore/sensors/GPUReading.h"

namespace omnira::platform {

// https://docs.kernel.org/gpu/amdgpu/driver-misc.html (gpu_busy_percent, mem_info_vram_*)
// One file holding a single decimal count ("27\n"): absent when it is not one.
std::optional<uint64_t> parseDrmCount(std::string_view text);

// https://docs.kernel.org/gpu/amdgpu/thermal.html (pp_dpm_*)
// The clock the level marked '*' runs at ("1: 1900Mhz *"), in MHz.
std::optional<double> parseCurrentClock(std::string_view text);

// One card's raw figures as read; what the driver does not give stays absent.
struct DrmCard {
  std::string name;    // "card0"
  std::string driver;  // basename of device/driver: "amdgpu", "i915", "xe", ...
  std::optional<double> busy;  // amdgpu's gpu_busy_percent as 0...1
  std::optional<uint64_t> idleMilliseconds;  // i915 rc6_residency_ms, xe idle_residency_ms
  std::optional<uint64_t> memoryUsedBytes;
  std::optional<uint64_t> memoryTotalBytes;
  std::optional<double> frequencyMHz;
  std::string source;  // "class/drm/card0"

  friend bool operator==(const DrmCard&, const DrmCard&) = default;
};

// Every card<N> under <sys>/class/drm (connectors such as card0-DP-1 and render nodes are
// left out), in number order. No drm class is an empty list.
// https://docs.kernel.org/gpu/i915.html (RC6 residency), https://docs.kernel.org/gpu/xe/index.html (gtidle, freq0)
std::vector<DrmCard> readDrmCards(const Roots& roots);

// The readings of `after`, with Intel's busy share made from the idle time that passed
// since `before` over `seconds` (clamped to 0...1; absent without an earlier reading, on a
// counter that went back, or when `seconds` is not positive). A card that tells nothing,
// neither busy share, memory, clock nor idle time, is left out.
std::vector<GPUReading> drmGPUReadings(const std::vector<DrmCard>& before, const std::vector<DrmCard>& after,
                                       double seconds);

// Keeps the previous reading for the delta. Owned by one sampling thread; not thread-safe.
class DrmGPUReader {
 public:
  explicit DrmGPUReader(Roots roots = {}) : roots_(std::move(roots)) {}

  // `monotonicSeconds`: the time of this reading on a steady clock, as the caller's tick has it.
  // The first reading has no Intel busy share yet.
  std::vector<GPUReading> read(double monotonicSeconds);

 private:
  Roots roots_;
  std::vector<DrmCard> previous_;
  std::optional<double> previousAt_;
};

}  // namespace omnira::platform
