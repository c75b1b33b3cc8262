#pragma once
// Peripherals' batteries as the power daemon on the system bus sees them: also Bluetooth
// headsets and other devices that have no power_supply entry of their own.
// https://upower.freedesktop.org/docs/Device.html
//
// Any thread; each call opens its own bus connection and gives up when `timeout` (for the
// whole call, all devices included) runs out, so an absent or hung daemon never holds up
// a tick. Failures are silent: no bus, no daemon or no answer is an empty list. The daemon
// is never started on demand for this.

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "OmniraCore/sensors/PeripheralBattery.h"

namespace omnira::platform {

struct UPowerPeripheral {
  PeripheralBattery battery;  // source "UPower"
  std::string nativePath;     // the daemon's NativePath: "hidpp_battery_0", "/org/bluez/hci0/dev_AA_BB_..."

  friend bool operator==(const UPowerPeripheral&, const UPowerPeripheral&) = default;
};

// The daemon's Type number as a kind: 5 "mouse", 6 "keyboard", 12 "gaming-input", 17
// "headset", 19 "headphones", ...; unknown numbers and 28 (generic Bluetooth) are "other".
std::string_view upowerKind(uint32_t type);

// Present devices that are not the machine's own supply (PowerSupply false) or whose Type is
// a peripheral's; line power, UPS and the system battery are left out. Level from Percentage,
// charging from State (absent when Unknown). `bus`: a D-Bus address; empty for the system bus.
std::vector<UPowerPeripheral> readUPowerPeripherals(const std::string& bus = {},
                                                    std::chrono::milliseconds timeout = std::chrono::milliseconds(800));

// The peripherals from power_supply, with those from the daemon added unless the daemon
// only relays one of them (its NativePath names the same supply). Ordered by source, then name.
std::vector<PeripheralBattery> mergePeripherals(std::vector<PeripheralBattery> fromPowerSupply,
                                                const std::vector<UPowerPeripheral>& fromUPower);

}  // namespace omnira::platform
