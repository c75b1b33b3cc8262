#pragma once
// Reads the hardware sensors once per sampling tick and works out the figures the rest of
// the program keys on.
//
// Ownership and threads: owns its source; owned by one thread at a time (the sampling
// worker, or the command line) and not locked. Only SensorSample values cross threads.
// Failures: none. A machine without sensors gives an empty sample.

#include <memory>
#include <optional>
#include <vector>

#include "OmniraCore/sampling/BatterySample.h"
#include "OmniraCore/sensors/PeripheralBattery.h"
#include "OmniraCore/sensors/SensorSample.h"
#include "OmniraCore/sensors/SensorSource.h"

namespace omnira {

class Sensors {
 public:
  explicit Sensors(std::unique_ptr<SensorSource> source);

  // The battery is the system sample's: on battery power its discharge is the whole
  // machine's draw when no sensor measures that directly.
  SensorSample sample(const std::optional<BatterySample>& battery);

  std::vector<PeripheralBattery> peripherals() { return source_->peripherals(); }

  // The whole machine's draw: a sensor of the whole system (SMC "PSTR", RAPL psys, a hwmon
  // total) first, else the battery's discharge while it powers the machine.
  static std::optional<double> systemDraw(const std::vector<PowerReading>& powers,
                                          const std::optional<BatterySample>& battery);
  // The CPU packages' draw: the sum of the package zones, absent without any.
  static std::optional<double> cpuDraw(const std::vector<PowerReading>& powers);

 private:
  std::unique_ptr<SensorSource> source_;
};

}  // namespace omnira
