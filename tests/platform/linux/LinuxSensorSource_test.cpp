#include "OmniraCore/platform/linux/LinuxSensorSource.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <thread>

#include "OmniraCore/platform/linux/FanControl.h"
#include "OmniraCore/sensors/Sensors.h"
#include "cli/Sensors.h"
#include "tests/platform/linux/TempTree.h"

namespace omnira::platform {
namespace {

namespace fs = std::filesystem;

LinuxSensorSource::Options fixture(const fs::path& sys) {
  LinuxSensorSource::Options options;
  options.roots.sys = sys;
  options.helperSocket.clear();
  options.upowerBus = "none";
  return options;
}

fs::path tree(const char* name) { return fixturePath(name); }

const PowerReading* power(const SensorSample& s, PowerReading::Kind kind) {
  for (const auto& p : s.powers)
    if (p.kind == kind) return &p;
  return nullptr;
}

TEST(LinuxSensorSource, ThinkPadGivesEveryFigureOverTwoReadings) {
  TempTree machine("sys-thinkpad");  // its counters move between the two readings
  Sensors sensors(std::make_unique<LinuxSensorSource>(fixture(machine.root())));
  const BatterySample onBattery{.level = 0.6, .charging = false, .pluggedIn = false, .watts = 7.412};

  const SensorSample first = sensors.sample(onBattery);
  EXPECT_DOUBLE_EQ(*first.cpuCelsius, 55.0);  // coretemp's package, not thinkpad's "CPU" at 56
  ASSERT_TRUE(first.hottestCelsius);
  EXPECT_GE(*first.hottestCelsius, 56.0);
  ASSERT_EQ(first.fans.size(), 1u);
  EXPECT_DOUBLE_EQ(*first.fans[0].rpm, 2370);
  // The first reading has no interval: no RAPL watts, no busy shares, no throttling yet.
  EXPECT_FALSE(Sensors::cpuDraw(first.powers));
  EXPECT_FALSE(first.throttledCPUs);
  ASSERT_EQ(first.gpus.size(), 1u);
  EXPECT_FALSE(first.gpus[0].busy);
  ASSERT_EQ(first.npus.size(), 1u);
  ASSERT_TRUE(power(first, PowerReading::Kind::battery));
  EXPECT_NEAR(power(first, PowerReading::Kind::battery)->watts, 7.412, 1e-9);
  EXPECT_NEAR(*first.systemWatts, 7.412, 1e-9);  // on battery, its discharge is the draw
  EXPECT_TRUE(first.powerNote.empty());           // root reads RAPL itself

  // Half a second's work: 6 J in the package, 10 J on the platform, the GPU idle 100 ms of
  // it, the NPU busy 200 ms, and CPU 1 throttled once.
  auto add = [&](const char* file, uint64_t amount) {
    machine.write(file, std::to_string(std::stoull(fileText(machine.root() / file)) + amount) + "\n");
  };
  add("class/powercap/intel-rapl:0/energy_uj", 6'000'000);
  add("class/powercap/intel-rapl:1/energy_uj", 10'000'000);
  add("class/drm/card0/gt/gt0/rc6_residency_ms", 100);
  add("class/accel/accel0/device/npu_busy_time_us", 200'000);
  add("devices/system/cpu/cpu1/thermal_throttle/core_throttle_count", 1);
  std::this_thread::sleep_for(std::chrono::milliseconds(500));

  const SensorSample second = sensors.sample(onBattery);
  const auto* package = power(second, PowerReading::Kind::cpuPackage);
  const auto* platform = power(second, PowerReading::Kind::system);
  ASSERT_TRUE(package && platform);
  // Watts over however long the pause really was: at most 12 W, and more than a busy
  // machine's sleep overrun could bring it down to.
  EXPECT_GT(package->watts, 1.0);
  EXPECT_LE(package->watts, 12.0);
  EXPECT_NEAR(platform->watts / package->watts, 10.0 / 6.0, 1e-6);
  EXPECT_DOUBLE_EQ(*second.cpuWatts, package->watts);
  EXPECT_DOUBLE_EQ(*second.systemWatts, platform->watts);  // a platform sensor beats the battery
  EXPECT_EQ(second.throttledCPUs, 1);
  ASSERT_TRUE(second.gpus[0].busy && second.npus[0].busy);
  EXPECT_GE(*second.gpus[0].busy, 0.79);  // idle 100 of at least 500 ms
  EXPECT_GT(*second.npus[0].busy, 0.0);
  EXPECT_LE(*second.npus[0].busy, 0.4);
}

TEST(LinuxSensorSource, AnEmptyMachineSaysSo) {
  Sensors none(std::make_unique<LinuxSensorSource>(fixture(tree("sys-empty"))));
  const SensorSample empty = none.sample(std::nullopt);
  EXPECT_TRUE(empty.empty());
  EXPECT_NE(cli::sensorsText(empty, {}, false).find("has no sensors"), std::string::npos);
  EXPECT_NE(cli::fansText(empty).find("no fans"), std::string::npos);
}

TEST(LinuxSensorSource, FansAreNumberedAsTheHelperSetsThem) {
  for (const char* name : {"sys-thinkpad", "sys-ryzen", "sys-intel-mac", "helper-sys/sys"}) {
    Sensors sensors(std::make_unique<LinuxSensorSource>(fixture(tree(name))));
    const auto listed = sensors.sample(std::nullopt).fans;
    const auto located = locateFans(Roots{.sys = tree(name)});
    ASSERT_EQ(listed.size(), located.size()) << name;
    for (size_t i = 0; i < listed.size(); ++i) {
      EXPECT_EQ(listed[i].index, located[i].index) << name;
      EXPECT_EQ(listed[i].chip, located[i].chip) << name << " fan " << i;
    }
  }
}

}  // namespace
}  // namespace omnira::platform
