#pragma once
// One temperature sensor's reading. A plain value, made by the sensor readers on the
// sampling thread and handed to the store as part of a SensorSample.

#include <optional>
#include <string>

#include "OmniraCore/sensors/SensorKind.h"

namespace omnira {

struct TemperatureReading {
  std::string name;   // the chip's label ("Package id 0", "Tctl", "Composite"), else a made-up one ("temp3")
  std::string chip;   // the driver's name: "coretemp", "k10temp", "nvme", "amdgpu", "acpitz", "applesmc"
  SensorKind kind = SensorKind::other;
  double celsius = 0;
  std::optional<double> hotCelsius;       // the chip's max or the zone's "hot"/"passive" trip
  std::optional<double> criticalCelsius;  // the chip's crit or the zone's "critical" trip
  std::string source;                     // the file it came from, relative to the sysfs root

  friend bool operator==(const TemperatureReading&, const TemperatureReading&) = default;
};

}  // namespace omnira
