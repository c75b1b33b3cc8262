// The CPU and hottest figures and the merged list, from the fixture machines' readers
// and from hand-made readings for the cases no fixture has.

#include <gtest/gtest.h>

#include "OmniraCore/platform/linux/Hwmon.h"
#include "OmniraCore/platform/linux/ThermalZones.h"
#include "OmniraCore/sensors/TemperatureSummary.h"
#include "tests/platform/linux/TempTree.h"

namespace omnira {
namespace {

using platform::fixtureRoots;

std::vector<TemperatureReading> machine(const char* tree) {
  return temperatures(platform::HwmonReader(fixtureRoots(tree)).read().temperatures,
                      platform::ThermalZoneReader(fixtureRoots(tree)).read());
}

TemperatureReading reading(std::string chip, std::string name, SensorKind kind, double celsius) {
  return {std::move(name), std::move(chip), kind, celsius, std::nullopt, std::nullopt, ""};
}

TEST(TemperatureSummary, FixtureMachines) {
  struct Case {
    const char* tree;
    size_t count;
    std::optional<double> cpu;
    std::string cpuName;
    std::optional<double> hottest;
    std::string hottestSource;
  };
  for (const auto& c : {
           Case{"sys-thinkpad", 12, 55, "Package id 0", 56, "class/hwmon/hwmon2/temp1_input"},
           Case{"sys-ryzen", 16, 58.625, "Tctl", 61, "class/hwmon/hwmon9/temp2_input"},
           Case{"sys-intel-mac", 15, 58, "Package id 0", 58, "class/hwmon/hwmon1/temp1_input"},
           Case{"sys-empty", 0, std::nullopt, "", std::nullopt, ""},
       }) {
    const auto all = machine(c.tree);
    EXPECT_EQ(all.size(), c.count) << c.tree;  // the ThinkPad's zones all repeat hwmon kinds
    EXPECT_EQ(cpuCelsius(all), c.cpu) << c.tree;
    EXPECT_EQ(cpuReading(all) ? cpuReading(all)->name : "", c.cpuName) << c.tree;
    EXPECT_EQ(hottestCelsius(all), c.hottest) << c.tree;
    EXPECT_EQ(hottestReading(all) ? hottestReading(all)->source : "", c.hottestSource) << c.tree;
  }
}

TEST(TemperatureSummary, ZonesFillOnlyKindsHwmonLacks) {
  const auto zones = platform::ThermalZoneReader(fixtureRoots("sys-thinkpad")).read();
  // No hwmon at all: every zone, and the CPU figure is x86_pkg_temp's even though TCPU is also a cpu zone.
  auto onlyZones = temperatures({}, zones);
  EXPECT_EQ(onlyZones, zones);
  EXPECT_EQ(cpuReading(onlyZones)->chip, "x86_pkg_temp");

  const std::vector<TemperatureReading> hwmon{reading("nvme", "Composite", SensorKind::storage, 40),
                                              reading("iwlwifi_1", "temp1", SensorKind::other, 41)};
  auto merged = temperatures(hwmon, zones);
  ASSERT_EQ(merged.size(), 5u);
  EXPECT_EQ(merged[0], hwmon[0]);
  EXPECT_EQ(merged[4].chip, "x86_pkg_temp");
}

TEST(TemperatureSummary, PicksTheCPUFigureByPreference) {
  using K = SensorKind;
  struct Case {
    std::vector<TemperatureReading> readings;
    std::optional<double> cpu;
  };
  for (const auto& [readings, cpu] : std::vector<Case>{
           // Tdie before Tctl, which can carry an offset.
           {{reading("k10temp", "Tctl", K::cpu, 70), reading("k10temp", "Tdie", K::cpu, 60),
             reading("k10temp", "Tccd1", K::cpu, 75)},
            60},
           {{reading("zenpower", "Tccd1", K::cpu, 50), reading("zenpower", "Tdie", K::cpu, 44)}, 44},
           {{reading("k10temp", "Tccd1", K::cpu, 75), reading("k10temp", "Tctl", K::cpu, 70)}, 70},
           // Two sockets: the hotter package.
           {{reading("coretemp", "Package id 0", K::cpu, 60), reading("coretemp", "Package id 1", K::cpu, 66),
             reading("coretemp", "Core 0", K::cpu, 80)},
            66},
           {{reading("applesmc", "TC0P", K::cpu, 50), reading("applesmc", "TC0D", K::cpu, 55),
             reading("applesmc", "TCXC", K::cpu, 52), reading("applesmc", "TC0E", K::cpu, 70)},
            52},
           {{reading("TCPU", "TCPU", K::cpu, 70), reading("x86_pkg_temp", "x86_pkg_temp", K::cpu, 60)}, 60},
           // Nothing preferred: the hottest cpu-kind sensor.
           {{reading("coretemp", "Core 0", K::cpu, 40), reading("thinkpad", "CPU", K::cpu, 45),
             reading("amdgpu", "edge", K::gpu, 90)},
            45},
           {{reading("amdgpu", "edge", K::gpu, 90)}, std::nullopt},
       })
    EXPECT_EQ(cpuCelsius(readings), cpu) << (readings.empty() ? "" : readings.front().chip);

  const std::vector<TemperatureReading> tie{reading("a", "first", K::board, 50), reading("b", "second", K::gpu, 50)};
  EXPECT_EQ(hottestReading(tie)->name, "first");
}

}  // namespace
}  // namespace omnira
