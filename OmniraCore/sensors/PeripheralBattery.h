#pragma once
// The battery of a mouse, keyboard, headset or other device (not the computer's own).

#include <optional>
#include <string>

namespace omnira {

struct PeripheralBattery {
  std::string name;   // model name where known ("MX Master 3"), else the supply's name
  std::string kind;   // "mouse", "keyboard", "headset", "gaming-input", "other", ...
  std::optional<double> level;  // 0...1
  std::optional<bool> charging;
  std::string source;  // "power_supply/hidpp_battery_0" or "UPower"

  friend bool operator==(const PeripheralBattery&, const PeripheralBattery&) = default;
};

}  // namespace omnira
