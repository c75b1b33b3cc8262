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

TEST(PowerSupplyPower, RateFromPowerOrCurrentTimesVoltageWhateverItsSign) {
  auto power = supply("BAT0", "POWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_STATUS=Discharging\nPOWER_SUPPLY_POWER_NOW=-8500000\n");
  auto current = supply("BAT1",
                        "POWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_STATUS=Discharging\n"
                        "POWER_SUPPLY_CURRENT_NOW=-500000\nPOWER_SUPPLY_VOLTAGE_NOW=12000000\n");
  auto one = batteryPower({power});
  ASSERT_TRUE(one);
  EXPECT_EQ(*one, (PowerReading{PowerReading::Kind::battery, "Battery BAT0", 8.5, "class/power_supply/BAT0"}));
  auto both = batteryPower({power, current});
  ASSERT_TRUE(both);
  EXPECT_DOUBLE_EQ(both->watts, 8.5 + 6.0);
  EXPECT_EQ(both->name, "Batteries");

  // A current without a voltage, a peripheral, a battery marked absent: no rate from any.
  auto noVolts = supply("BAT0", "POWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_STATUS=Discharging\nPOWER_SUPPLY_CURRENT_NOW=500000\n");
  auto mouse = supply("hidpp_battery_0", "POWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_SCOPE=Device\nPOWER_SUPPLY_POWER_NOW=100000\n");
  auto removed = supply("BAT1", "POWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_PRESENT=0\nPOWER_SUPPLY_POWER_NOW=100000\n");
  EXPECT_FALSE(batteryPower({noVolts, mouse, removed}));
  EXPECT_FALSE(batteryPower({supply("BAT0", "POWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_POWER_NOW=lots\n")}));
}

TEST(PowerSupplyPower, ZeroCountsOnlyWhenTheStatusSaysNothingFlows) {
  for (const char* status : {"Full", "Not charging"}) {
    auto idle = supply("BAT0", std::string("POWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_POWER_NOW=0\nPOWER_SUPPLY_STATUS=") + status);
    auto reading = batteryPower({idle});
    ASSERT_TRUE(reading) << status;
    EXPECT_EQ(reading->watts, 0) << status;
  }
  for (const char* status : {"Discharging", "Charging", "Unknown"}) {
    auto unmeasured = supply("BAT0", std::string("POWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_POWER_NOW=0\nPOWER_SUPPLY_STATUS=") + status);
    EXPECT_FALSE(batteryPower({unmeasured})) << status;
  }
  // An unmeasured battery beside a measured one leaves the other's figure alone.
  auto measured = supply("BAT1", "POWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_STATUS=Discharging\nPOWER_SUPPLY_POWER_NOW=3000000\n");
  auto silent = supply("BAT0", "POWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_STATUS=Discharging\nPOWER_SUPPLY_POWER_NOW=0\n");
  EXPECT_EQ(batteryPower({silent, measured})->name, "Battery BAT1");
}

TEST(PowerSupplyPower, SystemDrawOnlyWhileTheBatteryCarriesTheMachine) {
  const std::string_view discharging = "POWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_STATUS=Discharging\nPOWER_SUPPLY_POWER_NOW=9000000\n";
  auto offline = supply("AC", "POWER_SUPPLY_TYPE=Mains\nPOWER_SUPPLY_ONLINE=0\n");
  auto online = supply("AC", "POWER_SUPPLY_TYPE=Mains\nPOWER_SUPPLY_ONLINE=1\n");
  auto draw = systemDrawFromBattery({supply("BAT0", discharging), offline});
  ASSERT_TRUE(draw);
  EXPECT_EQ(draw->kind, PowerReading::Kind::system);
  EXPECT_DOUBLE_EQ(draw->watts, 9.0);
  // A charger too weak for the load: the battery still discharges, but covers only the rest.
  EXPECT_FALSE(systemDrawFromBattery({supply("BAT0", discharging), online}));
  auto charging = supply("BAT0", "POWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_STATUS=Charging\nPOWER_SUPPLY_POWER_NOW=20000000\n");
  EXPECT_FALSE(systemDrawFromBattery({charging, offline}));
  EXPECT_TRUE(batteryPower({charging, offline}));
  auto mouse = supply("hidpp_battery_0", "POWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_SCOPE=Device\nPOWER_SUPPLY_STATUS=Discharging\n");
  EXPECT_FALSE(systemDrawFromBattery({mouse}));

  // The fixture laptop runs on its battery with the charger out.
  auto supplies = readPowerSupplies(Roots{"", fixtures / "sys-thinkpad"});
  ASSERT_EQ(supplies.size(), 3u);
  auto fromTree = systemDrawFromBattery(supplies);
  ASSERT_TRUE(fromTree);
  EXPECT_DOUBLE_EQ(fromTree->watts, 7.412);
  EXPECT_EQ(fromTree->source, "class/power_supply/BAT0");
  EXPECT_FALSE(batteryPower(readPowerSupplies(Roots{"", fixtures / "sys-ryzen"})));
  EXPECT_TRUE(readPowerSupplies(Roots{"", fixtures / "sys-empty"}).empty());
  EXPECT_TRUE(readPowerSupplies(Roots{"", fixtures / "no-such-tree"}).empty());
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
  EXPECT_FALSE(list[0].charging);
  EXPECT_EQ(list[1].level, 0.05);
  EXPECT_FALSE(list[2].level);
  EXPECT_EQ(list[3], (PeripheralBattery{"ps-controller-battery-a0:5a:5c:11:22:33", "gaming-input", 0.35, true,
                                        "power_supply/ps-controller-battery-a0:5a:5c:11:22:33"}));
}

}  // namespace
}  // namespace omnira::platform
