#pragma once
// One reading of every hardware sensor the machine offers: temperatures, fans, power, GPUs
// and NPUs, with the figures the rest of the program keys on (the CPU's temperature, the
// hottest sensor, the whole machine's draw). Made by Sensors on the sampling thread, read
// by the store on the main thread. Whatever the machine does not report is absent or
// empty, never zero.

#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "OmniraCore/sensors/FanStatus.h"
#include "OmniraCore/sensors/GPUReading.h"
#include "OmniraCore/sensors/NPUReading.h"
#include "OmniraCore/sensors/PowerReading.h"
#include "OmniraCore/sensors/TemperatureReading.h"
#include "OmniraCore/sensors/ThermalSample.h"

namespace omnira {

struct SensorSample {
  std::vector<TemperatureReading> temperatures;
  std::vector<FanStatus> fans;
  std::vector<PowerReading> powers;
  std::vector<GPUReading> gpus;
  std::vector<NPUReading> npus;

  std::optional<double> cpuCelsius;       // the CPU package or die
  std::optional<double> hottestCelsius;   // the hottest of all sensors
  std::string hottestName;                // which one that is ("Composite (nvme)")
  std::optional<double> systemWatts;      // the whole machine's draw, where a source gives it
  std::optional<double> cpuWatts;         // the CPU packages' draw (RAPL), for the energy estimate

  // The CPU's thermal throttling since the previous reading: how many CPUs were slowed down
  // to cool, and the largest share of the interval one of them spent so. Absent where the
  // kernel keeps no throttle counters (AMD, ARM, virtual machines).
  std::optional<int> throttledCPUs;
  std::optional<double> throttledShare;

  // Where power figures could not be read for want of rights, a plain sentence saying how
  // to get them ("install the helper"); empty otherwise.
  std::string powerNote;

  // An NPU busy at least this share of the time counts as in use.
  static constexpr double npuActiveShare = 0.05;

  bool hasTemperature() const { return cpuCelsius.has_value() || hottestCelsius.has_value(); }
  // Nothing at all was found: no temperature, fan, power, GPU or NPU reading.
  bool empty() const;
  // Temperatures and fans as the insight engine and the readings recorder take them;
  // absent when the machine has neither.
  std::optional<ThermalSample> thermal() const;
  // The busiest GPU's share and the memory all GPUs use, for the system sample.
  std::optional<double> gpuBusy() const;
  std::optional<uint64_t> gpuMemoryBytes() const;
  std::optional<double> npuBusy() const;

  nlohmann::ordered_json toJSON() const;

  friend bool operator==(const SensorSample&, const SensorSample&) = default;
};

}  // namespace omnira
