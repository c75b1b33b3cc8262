#pragma once
// /sys/class/thermal/thermal_zone*: the kernel's thermal zones with their trip points.

#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "OmniraCore/platform/linux/Roots.h"
#include "OmniraCore/sensors/TemperatureReading.h"

namespace omnira::platform {

enum class TripType { critical, hot, passive, active };

// https://docs.kernel.org/driver-api/thermal/sysfs-api.html
// A trip_point_N_type file ("critical\n"); absent for anything else.
std::optional<TripType> parseTripType(std::string_view text);

// Reads the thermal zones under a sysfs root, once per sampling tick.
//
// Owned and used by one thread (the sensor sampler's). Each zone's folder stays open and
// its type and trip points are remembered; a tick lists class/thermal once and reads
// each zone's temp. A zone's reading: name and chip are its type, kind from
// thermalZoneKind, hotCelsius the lowest "hot" or "passive" trip (where the kernel starts
// cooling), criticalCelsius the lowest "critical" trip; trips that are placeholders (see
// plausibleLimitCelsius) are left out. A zone whose temp cannot be read this tick (a
// wireless card that is down gives ENODATA) or reads implausibly is left out, as are
// policy zones ("INT3400 Thermal") that measure nothing.
class ThermalZoneReader {
 public:
  explicit ThermalZoneReader(Roots roots);
  ~ThermalZoneReader();
  ThermalZoneReader(ThermalZoneReader&&) noexcept;
  ThermalZoneReader& operator=(ThermalZoneReader&&) noexcept;

  // In the order of the zone numbers.
  std::vector<TemperatureReading> read();

  void rediscover();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace omnira::platform
