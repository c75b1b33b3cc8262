#pragma once
// One RAPL energy counter as the kernel's powercap class shows it. Raw counts cross from
// the privileged helper to the application; watts are made from two readings by
// platform::raplPower.

#include <cstdint>
#include <optional>
#include <string>

namespace omnira {

struct RaplCounter {
  std::string zone;  // "intel-rapl:0", "intel-rapl:0:2"
  std::string name;  // the zone's own name: "package-0", "core", "uncore", "dram", "psys"
  uint64_t energyMicrojoules = 0;
  std::optional<uint64_t> maxEnergyRangeMicrojoules;  // where the counter wraps

  friend bool operator==(const RaplCounter&, const RaplCounter&) = default;
};

}  // namespace omnira
