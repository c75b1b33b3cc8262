#pragma once
// One power figure in watts, with where it came from.

#include <string>
#include <string_view>

namespace omnira {

struct PowerReading {
  enum class Kind {
    cpuPackage,  // RAPL package-N, or a chip's CPU power
    cpuCores,    // RAPL core
    dram,        // RAPL dram
    gpu,         // a GPU's own power sensor, RAPL uncore
    system,      // the whole machine: SMC "PSTR", RAPL psys, a hwmon total
    battery,     // the battery's discharge (or charge) rate
    other,
  };
  Kind kind = Kind::other;
  std::string name;  // shown to the person: "CPU package 0", "DRAM", "Battery BAT0"
  double watts = 0;
  std::string source;  // file or key it came from ("class/powercap/intel-rapl:0", "SMC PSTR")

  friend bool operator==(const PowerReading&, const PowerReading&) = default;
};

std::string_view rawValue(PowerReading::Kind kind);

}  // namespace omnira
