// Thermal zones on fixture machines and on trees changed between reads.

#include <gtest/gtest.h>

#include <filesystem>

#include "OmniraCore/platform/linux/ThermalZones.h"
#include "tests/platform/linux/TempTree.h"

namespace omnira::platform {
namespace {

TEST(ThermalZones, ParsesTripTypes) {
  EXPECT_EQ(parseTripType("critical\n"), TripType::critical);
  EXPECT_EQ(parseTripType("active\n"), TripType::active);
  for (const char* bad : {"", "crit", "Critical\n"}) EXPECT_EQ(parseTripType(bad), std::nullopt) << bad;
}

TEST(ThermalZones, ReadsTheThinkPadsZonesWithTheirTrips) {
  ThermalZoneReader reader(fixtureRoots("sys-thinkpad"));
  const auto zones = reader.read();
  const std::string z = "class/thermal/thermal_zone";
  // INT3400 Thermal measures nothing; acpitz's 128 °C, x86_pkg_temp's 0 and iwlwifi's
  // -274 °C trips are unset placeholders; TCPU's lowest of hot and passive is its hot.
  EXPECT_EQ(zones, (std::vector<TemperatureReading>{
                       {"acpitz", "acpitz", SensorKind::board, 53, std::nullopt, std::nullopt, z + "0/temp"},
                       {"TCPU", "TCPU", SensorKind::cpu, 54, 98, 110, z + "2/temp"},
                       {"x86_pkg_temp", "x86_pkg_temp", SensorKind::cpu, 55, std::nullopt, std::nullopt, z + "3/temp"},
                       {"iwlwifi_1", "iwlwifi_1", SensorKind::other, 41, std::nullopt, std::nullopt, z + "4/temp"},
                   }));
  for (const char* tree : {"sys-ryzen", "sys-empty", "sys-intel-mac"})
    EXPECT_TRUE(ThermalZoneReader(fixtureRoots(tree)).read().empty()) << tree;
}

TEST(ThermalZoneTree, FollowsTemperaturesZonesAndBrokenFiles) {
  TempTree tree("sys-thinkpad");
  const auto write = [&](const std::string& file, std::string_view text) { tree.write(file, text); };
  ThermalZoneReader reader(tree.sys());
  ASSERT_EQ(reader.read().size(), 4u);

  const std::string pkg = "devices/virtual/thermal/thermal_zone3/";
  write(pkg + "temp", "88000\n");
  write("devices/virtual/thermal/thermal_zone4/temp", "");  // a wireless card that is down
  write("devices/virtual/thermal/thermal_zone0/temp", "fifty\n");
  auto zones = reader.read();
  ASSERT_EQ(zones.size(), 2u);
  EXPECT_EQ(zones[1].celsius, 88);

  // A zone added with a number that sorts after thermal_zone4 only numerically.
  write("class/thermal/thermal_zone10/type", "pch_cannonlake\n");
  write("class/thermal/thermal_zone10/temp", "47000\n");
  write("class/thermal/thermal_zone10/trip_point_0_type", "critical\n");
  write("class/thermal/thermal_zone10/trip_point_0_temp", "garbage\n");
  write("class/thermal/thermal_zone10/trip_point_1_type", "bogus\n");
  write("class/thermal/thermal_zone10/trip_point_1_temp", "90000\n");
  write("class/thermal/thermal_zone10/trip_point_2_type", "hot\n");
  write("class/thermal/thermal_zone10/trip_point_2_temp", "95000\n");
  zones = reader.read();
  ASSERT_EQ(zones.size(), 3u);
  EXPECT_EQ(zones[2], (TemperatureReading{"pch_cannonlake", "pch_cannonlake", SensorKind::board, 47, 95,
                                          std::nullopt, "class/thermal/thermal_zone10/temp"}));

  std::filesystem::remove(tree.root() / "class/thermal/thermal_zone2");
  zones = reader.read();
  ASSERT_EQ(zones.size(), 2u);
  EXPECT_EQ(zones[0].name, "x86_pkg_temp");
}

}  // namespace
}  // namespace omnira::platform
