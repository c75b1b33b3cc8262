#pragma once
// The machine's temperature figures from the sensor readings: one list without double
// counting, the CPU's own figure and the hottest sensor. Pure functions over values.

#include <optional>
#include <vector>

#include "OmniraCore/sensors/TemperatureReading.h"

namespace omnira {

// The hwmon readings, plus each thermal zone whose kind no hwmon reading has. Zones
// mostly mirror hwmon devices (acpitz is both; x86_pkg_temp is coretemp's package
// sensor again), so a zone adds something only on machines whose hwmon lacks that kind
// of sensor altogether, and then all such zones are added, hwmon first.
std::vector<TemperatureReading> temperatures(const std::vector<TemperatureReading>& hwmon,
                                             const std::vector<TemperatureReading>& zones);

// The reading that stands for the CPU's package or die, taking the first of these that
// exists (the hottest, where a tier has several, as on machines with two sockets):
// coretemp "Package id N"; k10temp or zenpower "Tdie"; their "Tctl" (which can carry an
// offset, so it comes after Tdie); applesmc "TCXC", "TC0D", "TC0P"; the x86_pkg_temp
// zone; else the hottest cpu-kind reading. Null when there is none; points into `readings`.
const TemperatureReading* cpuReading(const std::vector<TemperatureReading>& readings);
std::optional<double> cpuCelsius(const std::vector<TemperatureReading>& readings);

// The hottest reading of any kind (the first, on a tie); null or absent when there are none.
const TemperatureReading* hottestReading(const std::vector<TemperatureReading>& readings);
std::optional<double> hottestCelsius(const std::vector<TemperatureReading>& readings);

}  // namespace omnira
