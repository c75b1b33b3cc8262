// The battery's rate, the machine's draw on battery and peripherals' batteries, from uevent
// text as firmwares write it and from the fixture power_supply trees.

#include <gtest/gtest.h>

#include <algorithm>

#include "OmniraCore/platform/linux/PowerSupply.h"

namespace omnira::platform {
namespace {

const std::filesystem::path fixtures = OMNIRA_FIXTURES;

PowerSupply supply(std::string name, std::string_view uevent, std::string driver = {}) {
  return PowerSupply{std::move(name), parsePowerSupplyEvent(uevent), std::move(driver)};
}

TEST(PowerSupplyPower, PeripheralsWithLevelChargingAndKind) {
  auto fromTree = peripheralBatteries(readPowerSupplies(Roots{"", fixtures / "sys-thinkpad"}));
  ASSERT_EQ(fromTree.size(), 1u);
  EXPECT_EQ(fromTree[0], (PeripheralBattery{"MX Master 3", "other", 0.5, false, "power_supply/hidpp_battery_0"}));

  auto controller = supply("ps-controller-battery-a0:5a:5c:11:22:33",
                           "POWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_SCOPE=Device\nPOWER_SUPPLY_CAPACITY=35\n"
                           "POWER_SUPPLY_STATUS=Charging\n",
                           "playstation");
  auto magic = supply("hid-a4:83:e7:01:02:03-battery",
                      "POWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_SCOPE=Device\nPOWER_SUPPLY_CAPACITY=250\n"
                      "POWER_SUPPLY_MODEL_NAME=  \nPOWER_SUPPLY_STATUS=Unknown\n",
                      "magicmouse");
  auto levelOnly = supply("hidpp_battery_1",
                          "POWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_SCOPE=Device\nPOWER_SUPPLY_CAPACITY_LEVEL=Critical\n");
  auto unknownLevel = supply("hidpp_battery_2",
                             "POWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_SCOPE=Device\nPOWER_SUPPLY_CAPACITY_LEVEL=Unknown\n"
                             "POWER_SUPPLY_CAPACITY=x\n");
  auto laptop = supply("BAT0", "POWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_CAPACITY=50\n");
  auto gone = supply("hidpp_battery_3", "POWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_SCOPE=Device\nPOWER_SUPPLY_PRESENT=0\n");
  auto list = peripheralBatteries({laptop, unknownLevel, magic, controller, levelOnly, gone});
  ASSERT_EQ(list.size(), 4u);
  EXPECT_EQ(list[0].kind, "mouse");
  EXPECT_EQ(list[0].name, "hid-a4:83:e7:01:02:03-battery");  // blank model name: the supply's own
  EXPECT_EQ(list[0].level, 1.0);
  EXPECT_EQ(list[1].level, 0.05);
  EXPECT_FALSE(list[2].level);
  EXPECT_EQ(list[3], (PeripheralBattery{"ps-controller-battery-a0:5a:5c:11:22:33", "gaming-input", 0.35, true,
                                        "power_supply/ps-controller-battery-a0:5a:5c:11:22:33"}));
}

}  // namespace
}  // namespace omnira::platform
