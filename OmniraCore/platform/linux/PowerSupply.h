#pragma once
// /sys/class/power_supply/*: batteries and whether the machine is on mains power.

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OmniraCore/platform/linux/Roots.h"
#include "OmniraCore/sampling/BatterySample.h"
#include "OmniraCore/sensors/PeripheralBattery.h"
#include "OmniraCore/sensors/PowerReading.h"

namespace omnira::platform {

// One supply's "uevent" file: its POWER_SUPPLY_* keys without the prefix
// ("TYPE", "CAPACITY", "ONLINE", ...).
// https://docs.kernel.org/admin-guide/abi-testing.html#abi-file-testing-sysfs-class-power
std::map<std::string, std::string, std::less<>> parsePowerSupplyEvent(std::string_view text);

struct PowerSupply {
  std::string name;
  std::map<std::string, std::string, std::less<>> properties;
  std::string driver;  // basename of device/driver where the reader found one ("logitech-hidpp-device")
};

// Every supply under <sys>/class/power_supply, in no particular order. Supplies whose
// uevent cannot be read are left out; no folder is an empty list.
std::vector<PowerSupply> readPowerSupplies(const Roots& roots);

// True when a supply powers the machine itself: peripherals' batteries (a mouse,
// a headset) report the scope "Device" and are left out.
bool powersSystem(const PowerSupply& supply);

// The machine's battery from all supplies: absent without a system battery.
// Several batteries are summed where they report energy, else the first is used.
std::optional<BatterySample> batteryFrom(const std::vector<PowerSupply>& supplies);

// An online mains, USB or similar supply: the machine is plugged in.
bool onExternalPower(const std::vector<PowerSupply>& supplies);

// Batteries of the scope "Device": mice, keyboards, controllers. Level from CAPACITY (%),
// else CAPACITY_LEVEL (Full 1.0, High 0.75, Normal 0.5, Low 0.2, Critical 0.05); charging
// from STATUS, absent when Unknown. Kind from the supply's name or driver where they tell;
// Logitech's hidpp batteries do not say mouse or keyboard and are "other".
std::vector<PeripheralBattery> peripheralBatteries(const std::vector<PowerSupply>& supplies);

}  // namespace omnira::platform
