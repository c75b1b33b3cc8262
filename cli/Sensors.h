#pragma once
// `omnira sensors [--json]` and `omnira fans [--json]`: every hardware reading with where
// it came from, read twice a second apart so that power and busy shares have an interval.

#include <string>
#include <vector>

#include "OmniraCore/sensors/PeripheralBattery.h"
#include "OmniraCore/sensors/SensorSample.h"

namespace omnira::cli {

// The text for a person; says plainly when the computer has no sensors at all.
std::string sensorsText(const SensorSample& sample, const std::vector<PeripheralBattery>& peripherals, bool fahrenheit);
std::string fansText(const SensorSample& sample);

std::string sensorsJSON(const SensorSample& sample, const std::vector<PeripheralBattery>& peripherals);
std::string fansJSON(const SensorSample& sample);

// Two readings a second apart from this machine's sensors, with the peripherals.
struct SensorsReading {
  SensorSample sample;
  std::vector<PeripheralBattery> peripherals;
};
SensorsReading readSensors(bool withPeripherals);

}  // namespace omnira::cli
