#include "OmniraCore/sensors/Sensors.h"

#include <gtest/gtest.h>

namespace omnira {
namespace {

using Kind = PowerReading::Kind;

TEST(Sensors, TheWholeComputersDrawComesFromASystemSensorElseADischargingBattery) {
  const std::vector<PowerReading> rapl = {{Kind::cpuPackage, "CPU package 0", 12, "a"},
                                          {Kind::cpuPackage, "CPU package 1", 8, "b"},
                                          {Kind::dram, "DRAM", 3, "c"}};
  BatterySample discharging{.level = 0.5, .charging = false, .pluggedIn = false, .watts = -14.2};
  BatterySample charging{.level = 0.5, .charging = true, .pluggedIn = true, .watts = 30};

  EXPECT_DOUBLE_EQ(*Sensors::cpuDraw(rapl), 20);
  EXPECT_FALSE(Sensors::systemDraw(rapl, std::nullopt));  // packages are not the whole computer
  EXPECT_DOUBLE_EQ(*Sensors::systemDraw(rapl, discharging), 14.2);
  EXPECT_FALSE(Sensors::systemDraw(rapl, charging));  // what flows in also charges the battery

  auto withPlatform = rapl;
  withPlatform.push_back({Kind::system, "Platform", 25.5, "psys"});
  EXPECT_DOUBLE_EQ(*Sensors::systemDraw(withPlatform, discharging), 25.5);
  withPlatform.back().watts = std::nan("");
  EXPECT_DOUBLE_EQ(*Sensors::systemDraw(withPlatform, discharging), 14.2);
}

TEST(Sensors, ASampleSaysWhatItHasAndTheThermalPartKeepsOnlyMeasuredFans) {
  SensorSample none;
  EXPECT_TRUE(none.empty());
  EXPECT_FALSE(none.thermal());

  SensorSample s;
  s.fans.push_back({.index = 0, .chip = "nct6775", .label = "Fan 1", .rpm = 900});
  s.fans.push_back({.index = 1, .chip = "nct6775", .label = "Fan 2"});  // no speed read
  EXPECT_FALSE(s.empty());
  ASSERT_TRUE(s.thermal());
  EXPECT_EQ(s.thermal()->fanRPM, std::vector<double>{900});

  s.gpus.push_back({.name = "card0", .driver = "amdgpu", .busy = 0.25, .memoryUsedBytes = 1000});
  s.gpus.push_back({.name = "card1", .driver = "i915", .busy = 0.75});
  s.npus.push_back({.name = "accel0", .driver = "intel_vpu"});
  EXPECT_DOUBLE_EQ(*s.gpuBusy(), 0.75);
  EXPECT_EQ(*s.gpuMemoryBytes(), 1000u);
  EXPECT_FALSE(s.npuBusy());  // present, but never read busy yet

  const auto json = s.toJSON();
  EXPECT_TRUE(json["cpu_celsius"].is_null());
}

}  // namespace
}  // namespace omnira
