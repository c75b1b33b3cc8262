#pragma once
// One GPU's figures. A driver that gives none of them leaves the GPU out.

#include <cstdint>
#include <optional>
#include <string>

namespace omnira {

struct GPUReading {
  std::string name;    // "card0", or the product's name where the driver tells it (NVML)
  std::string driver;  // "amdgpu", "i915", "xe", "nvidia"
  std::optional<double> busy;  // share of time busy, 0...1
  std::optional<uint64_t> memoryUsedBytes;
  std::optional<uint64_t> memoryTotalBytes;
  std::optional<double> frequencyMHz;
  std::string source;

  friend bool operator==(const GPUReading&, const GPUReading&) = default;
};

}  // namespace omnira
