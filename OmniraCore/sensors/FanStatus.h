#pragma once
// One fan as the sensor readers see it. Figures the chip does not give stay absent.
//
// Fans are numbered across the machine from 0: hwmon devices in the order of the number
// after "hwmon" (numerically), and within a device by the N of fanN_input. `omnira fans`
// lists them in that order and `omnira fans set INDEX` and the privileged helper use the
// same numbering.

#include <optional>
#include <string>
#include <string_view>

namespace omnira {

struct FanStatus {
  enum class Mode { automatic, manual, fullSpeed, unknown };

  int index = 0;
  std::string chip;   // the hwmon device's name ("thinkpad", "nct6775", "applesmc")
  std::string label;  // fanN_label, else "Fan N"
  std::optional<double> rpm;
  std::optional<double> minimumRPM;
  std::optional<double> maximumRPM;
  std::optional<double> targetRPM;  // fanN_target (or applesmc's fanN_output)
  Mode mode = Mode::unknown;        // from pwmN_enable (applesmc: fanN_manual)
  std::string source;               // the device folder, relative to the sysfs root

  friend bool operator==(const FanStatus&, const FanStatus&) = default;
};

std::string_view rawValue(FanStatus::Mode mode);

}  // namespace omnira
