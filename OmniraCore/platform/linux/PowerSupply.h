#pragma once
// /sys/class/power_supply/*: batteries and whether the machine is on mains power.

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OmniraCore/sampling/BatterySample.h"

namespace omnira::platform {

// One supply's "uevent" file: its POWER_SUPPLY_* keys without the prefix
// ("TYPE", "CAPACITY", "ONLINE", ...).
// https://docs.kernel.org/admin-guide/abi-testing.html#abi-file-testing-sysfs-class-power
std::map<std::string, std::string, std::less<>> parsePowerSupplyEvent(std::string_view text);

struct PowerSupply {
  std::string name;
  std::map<std::string, std::string, std::less<>> properties;
};

// True when a supply powers the machine itself: peripherals' batteries (a mouse,
// a headset) report the scope "Device" and are left out.
bool powersSystem(const PowerSupply& supply);

// The machine's battery from all supplies: absent without a system battery.
// Several batteries are summed where they report energy, else the first is used.
std::optional<BatterySample> batteryFrom(const std::vector<PowerSupply>& supplies);

// An online mains, USB or similar supply: the machine is plugged in.
bool onExternalPower(const std::vector<PowerSupply>& supplies);

}  // namespace omnira::platform
