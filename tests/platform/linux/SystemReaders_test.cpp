// Pure parsers of the machine-wide kernel files, fed text as the kernel writes it,
// cut short, or garbled.

#include <gtest/gtest.h>

#include "OmniraCore/platform/linux/DiskStats.h"
#include "OmniraCore/platform/linux/KernelStat.h"
#include "OmniraCore/platform/linux/MemInfo.h"
#include "OmniraCore/platform/linux/PowerSupply.h"
#include "OmniraCore/platform/linux/PressureStall.h"

namespace omnira::platform {
namespace {

TEST(KernelStat, FoldsTheEightTimesIntoFourPerCoreAndRejectsCutLines) {
  auto stat = parseKernelStat(
      "cpu  9 9 9 9 9 9 9 9 9 9\n"
      "cpu0 10 1 20 300 4 5 6 7 0 0\n"
      "cpu3 1 2 3 4\n"       // an older kernel's four columns; cpu1, cpu2 offline
      "btime 1700000000");   // no trailing newline
  ASSERT_TRUE(stat.ok());
  ASSERT_EQ(stat->cores.size(), 2u);
  EXPECT_EQ(stat->cores[0], (CoreTicks{10, 1, 20 + 5 + 6 + 7, 300 + 4}));
  EXPECT_EQ(stat->cores[1], (CoreTicks{1, 2, 3, 4}));

  EXPECT_FALSE(parseKernelStat("cpu0 10 1 20\n").ok());
  EXPECT_FALSE(parseKernelStat("cpu0 99999999999999999999999 1 2 3\n").ok());
  auto empty = parseKernelStat("");
  ASSERT_TRUE(empty.ok());
  EXPECT_TRUE(empty->cores.empty());
}

TEST(MemInfo, MapsLinesOntoTheMemoryFigures) {
  auto info = parseMemInfo(
      "MemTotal: 1000 kB\nMemFree: 100 kB\nMemAvailable: 400 kB\nAnonPages: 200 kB\nShmem: 50 kB\n"
      "SUnreclaim: 10 kB\nKernelStack: 5 kB\nPageTables: 3 kB\nActive(file): 120 kB\n"
      "Inactive(file): 80 kB\nSwapTotal: 500 kB\nSwapFree: 200 kB\nZswap: 7 kB\nHugePages_Total: 4\n"
      "Garbage line\nBroken: twelve kB\nOdd: 5 MB\nCmaTotal: 0 kB");
  ASSERT_TRUE(info.ok());
  auto m = memoryReading(*info, 1024);
  EXPECT_EQ(m.app, 250u * 1024);
  EXPECT_EQ(m.wired, 18u * 1024);
  EXPECT_EQ(m.compressed, 1024u + 7 * 1024);
  EXPECT_EQ(m.swapUsed, 300u * 1024);

  // An older kernel without MemAvailable still gets an estimate.
  info = parseMemInfo("MemTotal: 1000 kB\nMemFree: 100 kB\nActive(file): 50 kB\nInactive(file): 25 kB\n"
                           "SReclaimable: 25 kB\nSwapTotal: 0 kB\nSwapFree: 10 kB\n");
  ASSERT_TRUE(info.ok());
  m = memoryReading(*info, 0);
  EXPECT_EQ(m.available, 200u * 1024);
  EXPECT_EQ(m.swapUsed, 0u);  // free above total must not wrap
  EXPECT_FALSE(parseMemInfo("MemFree: 100 kB\n").ok());
  EXPECT_TRUE(parseMemInfo("MemTotal: 10").ok());  // a cut-off last line still parses
}

TEST(ZramAndPressure, ParseTheirOneLineFormats) {
  EXPECT_EQ(parseZramMemoryUsed("  4096  1024  2048  0  4096  0  0  0\n"), 2048u);
  EXPECT_FALSE(parseZramMemoryUsed("4096 1024"));

  auto stall = parseMemoryStall("some avg10=12.50 avg60=1.00 avg300=0.10 total=5\nfull avg10=0.40 avg60=0 avg300=0 total=1");
  ASSERT_TRUE(stall.ok());
  EXPECT_DOUBLE_EQ(stall->someAvg10, 12.5);
  EXPECT_DOUBLE_EQ(stall->fullAvg10, 0.4);
  EXPECT_FALSE(parseMemoryStall("some avg10=1.00 avg60=0 avg300=0 total=5\n").ok());
  EXPECT_FALSE(parseMemoryStall("some avg10=abc\nfull avg10=1\n").ok());
}

TEST(DiskStats, ReadsSectorsAsBytesAndSkipsMalformedLines) {
  auto disks = parseDiskStats(
      "   8 0 sda 100 0 2000 30 50 0 1000 20 0 40 50\n"
      "   8 1 sda1 1 0 2x00 30 50 0 1000 20 0 40 50\n"
      "   8 2 short 1 2 3\n"
      " 259 0 nvme0n1 1 0 8 0 1 0 16 0 0 0 0 0 0 0 0 0 0");
  ASSERT_EQ(disks.size(), 2u);
  EXPECT_EQ(disks.at("sda"), (ByteCounters{2000u * 512, 1000u * 512}));
  EXPECT_EQ(disks.at("nvme0n1"), (ByteCounters{8u * 512, 16u * 512}));
}

PowerSupply supply(std::string name, std::string_view uevent) {
  return PowerSupply{std::move(name), parsePowerSupplyEvent(uevent)};
}

TEST(PowerSupply, BatteryFiguresFromEnergyOrCharge) {
  auto battery = supply("BAT0",
                        "POWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_STATUS=Charging\nPOWER_SUPPLY_ENERGY_NOW=20000000\n"
                        "POWER_SUPPLY_ENERGY_FULL=40000000\nPOWER_SUPPLY_ENERGY_FULL_DESIGN=50000000\n"
                        "POWER_SUPPLY_POWER_NOW=20000000\nPOWER_SUPPLY_CYCLE_COUNT=0\nPOWER_SUPPLY_TEMP=301");
  auto ac = supply("AC", "POWER_SUPPLY_TYPE=Mains\nPOWER_SUPPLY_ONLINE=1\n");
  auto b = batteryFrom({battery, ac});
  ASSERT_TRUE(b);
  EXPECT_DOUBLE_EQ(b->level, 0.5);
  EXPECT_TRUE(b->charging);
  EXPECT_DOUBLE_EQ(*b->watts, 20);
  EXPECT_DOUBLE_EQ(*b->healthFraction, 0.8);
  EXPECT_DOUBLE_EQ(*b->minutesRemaining, 60);  // 20 Wh to go at 20 W
  EXPECT_FALSE(b->cycleCount);                  // 0 means the firmware does not count
  EXPECT_DOUBLE_EQ(*b->temperatureCelsius, 30.1);

  // Charge in µAh with a current instead of energy and power.
  auto chargeOnly = supply("BAT1",
                           "POWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_STATUS=Discharging\n"
                           "POWER_SUPPLY_CHARGE_NOW=1000000\nPOWER_SUPPLY_CHARGE_FULL=4000000\n"
                           "POWER_SUPPLY_VOLTAGE_NOW=10000000\nPOWER_SUPPLY_CURRENT_NOW=-1000000");
  auto c = batteryFrom({chargeOnly});
  ASSERT_TRUE(c);
  EXPECT_DOUBLE_EQ(c->level, 0.25);
  EXPECT_DOUBLE_EQ(*c->watts, 10);
  EXPECT_DOUBLE_EQ(*c->minutesRemaining, 60);
}

TEST(PowerSupply, PeripheralsAndDesktopsHaveNoSystemBattery) {
  auto mouse = supply("hidpp_battery_0", "POWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_SCOPE=Device\nPOWER_SUPPLY_CAPACITY=80\n");
  auto ups = supply("ucsi-source-psy", "POWER_SUPPLY_TYPE=USB\nPOWER_SUPPLY_ONLINE=1\n");
  EXPECT_FALSE(batteryFrom({mouse, ups}));
  EXPECT_TRUE(onExternalPower({mouse, ups}));
  auto silent = supply("BAT0", "POWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_STATUS=Unknown\n");
  EXPECT_FALSE(batteryFrom({silent}));  // no charge figure at all
  auto garbled = supply("BAT0", "POWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_CAPACITY=fifty\nPOWER_SUPPLY_=x\nNOISE");
  EXPECT_FALSE(batteryFrom({garbled}));
  auto capacity = supply("BAT0", "POWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_CAPACITY=150\n");
  EXPECT_DOUBLE_EQ(batteryFrom({capacity})->level, 1.0);
}

}  // namespace
}  // namespace omnira::platform
