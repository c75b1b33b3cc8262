#pragma once
// /sys/class/hwmon: temperatures, fans and power from the kernel's hardware monitoring
// drivers (coretemp, k10temp, nvme, amdgpu, nct67xx, thinkpad, applesmc, ...).

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "OmniraCore/platform/linux/Roots.h"
#include "OmniraCore/sensors/FanStatus.h"
#include "OmniraCore/sensors/PowerReading.h"
#include "OmniraCore/sensors/SensorKind.h"
#include "OmniraCore/sensors/TemperatureReading.h"

namespace omnira::platform {

// https://docs.kernel.org/hwmon/sysfs-interface.html
// One attribute file's integer as a driver writes it ("45000\n", "-273150\n"). Absent for
// empty, garbled or partial text ("", "-", "12a", "4.5").
std::optional<int64_t> parseHwmonInteger(std::string_view text);

// https://docs.kernel.org/hwmon/sysfs-interface.html
// tempN_* files: millidegrees Celsius, as °C.
std::optional<double> parseMillidegrees(std::string_view text);

// https://docs.kernel.org/hwmon/sysfs-interface.html
// inN_* files: millivolts, as volts.
std::optional<double> parseMillivolts(std::string_view text);

// https://docs.kernel.org/hwmon/sysfs-interface.html
// powerN_* files: microwatts, as watts.
std::optional<double> parseMicrowatts(std::string_view text);

// Whether a temperature input reads something a part can really be at. Drivers report
// unconnected or failed inputs as -273.15 or far below freezing (anything under -55 °C
// is dropped), as the 8-bit register placeholders 127, 128 and 255 °C, as readings above
// 150 °C, or as exactly 0 °C; a 0 is kept only for an ambient sensor, which can really
// sit at freezing.
bool plausibleCelsius(double celsius, SensorKind kind);

// Whether a max/crit limit is a real one: drivers write 0, -273.15, 127/128, 255 or
// 65261.85 (NVMe's "not supported") for limits they do not have. Kept: above 0 up to 125 °C.
bool plausibleLimitCelsius(double celsius);

// One tick's readings, in the order of the fan numbering: devices by the number after
// "hwmon", then within a device by the N of the attribute.
struct HwmonReadings {
  std::vector<TemperatureReading> temperatures;
  std::vector<FanStatus> fans;
  std::vector<PowerReading> power;
};

// Reads every hwmon device under a sysfs root, once per sampling tick.
//
// Owned and used by one thread (the sensor sampler's); not safe to share. It keeps each
// device's folder open and remembers what does not change between ticks: which
// temp/fan/pwm/power attributes exist, labels, temperature limits and fan min/max. A tick
// lists class/hwmon once and reads only the live files: the *_input (or power *_average)
// values, fan targets and fan modes. It looks again by itself when the set of hwmon
// entries changes or a device's files vanish; call rediscover() after writing fan limits.
//
// Fans: every fanN_input of the machine counts in the numbering (see FanStatus), even
// one reading 0 rpm: an empty header on a board chip and a fan stopped at idle read the
// same, so both are listed with rpm 0. Temperatures that fail plausibleCelsius and files
// that cannot be read or parsed are left out (temperatures, power) or absent (fan
// figures); nothing here throws or logs.
class HwmonReader {
 public:
  explicit HwmonReader(Roots roots);
  ~HwmonReader();
  HwmonReader(HwmonReader&&) noexcept;
  HwmonReader& operator=(HwmonReader&&) noexcept;

  HwmonReadings read();

  // Forgets what was cached; the next read() discovers the devices afresh.
  void rediscover();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace omnira::platform
