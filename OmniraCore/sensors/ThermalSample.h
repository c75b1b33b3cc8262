#pragma once
// One reading of the temperature sensors and fans. Figures the machine does not report
// stay absent (fans: empty).

#include <optional>
#include <vector>

namespace omnira {

struct ThermalSample {
  std::optional<double> cpuCelsius;      // the CPU package or die
  std::optional<double> hottestCelsius;  // the hottest of all sensors
  std::vector<double> fanRPM;

  friend bool operator==(const ThermalSample&, const ThermalSample&) = default;
};

}  // namespace omnira
