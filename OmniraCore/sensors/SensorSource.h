#pragma once
// The platform seam of the sensors: where temperatures, fans, power, GPU and NPU figures
// come from. The Linux source reads /sys (platform::LinuxSensorSource); tests and other
// platforms supply their own.
//
// Threads: a source is owned by one Sensors object and used on that object's thread only.
// It keeps what its delta steps need (energy counters, busy times) between reads.
// Failures: none. What cannot be read is absent in the result.

#include <vector>

#include "OmniraCore/sensors/PeripheralBattery.h"
#include "OmniraCore/sensors/SensorSample.h"

namespace omnira {

class SensorSource {
 public:
  virtual ~SensorSource() = default;

  // One reading: every list and the temperature summary (cpuCelsius, hottestCelsius) filled;
  // rates are over the time since the previous read (absent on the first).
  virtual SensorSample read() = 0;

  // Batteries of mice, keyboards and headsets. Slower than read() (it may ask a service),
  // so callers limit how often they ask.
  virtual std::vector<PeripheralBattery> peripherals() = 0;
};

}  // namespace omnira
