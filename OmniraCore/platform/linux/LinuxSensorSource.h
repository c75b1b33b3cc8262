#pragma once
// Every sensor of a Linux machine: hwmon temperatures, fans and power; thermal zones where
// hwmon has none; CPU throttle counters; RAPL energy (through the privileged helper when
// only root may read it); the SMC's whole-system power on Intel Macs; DRM GPUs, NVIDIA
// through its management library, and NPUs; peripheral batteries from the power_supply
// class and UPower.
//
// Owned by one Sensors object on one thread; not locked. Each reader keeps its own
// previous reading for its delta step, timed on this source's steady clock.
// Failures: none; what cannot be read is absent. RAPL that only root may read leaves a
// sentence in SensorSample::powerNote saying how to get it.

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "OmniraCore/platform/linux/Roots.h"
#include "OmniraCore/platform/linux/ThrottleCounters.h"
#include "OmniraCore/sensors/RaplCounter.h"
#include "OmniraCore/sensors/SensorSource.h"

namespace omnira {
class HelperClient;
}

namespace omnira::platform {

class HwmonReader;
class ThermalZoneReader;
class ThrottleCounterReader;
class DrmGPUReader;
class AccelNPUReader;
class NvidiaML;
class AppleSMCSysfsKeyPort;
class AppleSMCSysfs;

class LinuxSensorSource final : public SensorSource {
 public:
  struct Options {
    Roots roots;
    // The privileged helper's socket; empty: never ask it (tests, other roots).
    std::string helperSocket = "/run/omnira-helper.sock";
    std::string helperConfig = "/etc/omnira/helper.conf";
    // NVIDIA's management library, loaded only where the nvidia module is loaded.
    std::string nvidiaLibrary = "libnvidia-ml.so.1";
    // The bus UPower is asked on; empty: the system bus. "none": never ask.
    std::string upowerBus;
    // Read the SMC's keys on Intel Macs. Selecting a key writes to the driver's files and
    // needs root; a fixture tree must never be written, so this is off unless asked.
    bool readsSMC = false;
  };

  explicit LinuxSensorSource(Options options);
  ~LinuxSensorSource() override;

  SensorSample read() override;
  std::vector<PeripheralBattery> peripherals() override;

 private:
  double now() const;
  std::vector<RaplCounter> raplCounters(std::string& note);

  Options options_;
  std::chrono::steady_clock::time_point started_;
  std::unique_ptr<HwmonReader> hwmon_;
  std::unique_ptr<ThermalZoneReader> zones_;
  std::unique_ptr<ThrottleCounterReader> throttle_;
  std::unique_ptr<DrmGPUReader> gpus_;
  std::unique_ptr<AccelNPUReader> npus_;
  std::unique_ptr<NvidiaML> nvidia_;  // null where no NVIDIA driver is loaded
  std::unique_ptr<HelperClient> helper_;
  // Intel Macs, as root only: selecting a key needs it.
  std::unique_ptr<AppleSMCSysfsKeyPort> smcPort_;
  std::unique_ptr<AppleSMCSysfs> smcTransport_;

  std::optional<std::vector<CPUThrottleCounters>> lastThrottle_;
  std::vector<RaplCounter> lastRapl_;
  double lastThrottleAt_ = 0, lastRaplAt_ = 0;
  // The helper is asked again at most this often after it could not be reached.
  std::optional<double> helperFailedAt_;
  bool raplDenied_ = false;
};

}  // namespace omnira::platform
