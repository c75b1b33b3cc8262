// The cost of one sensor tick on the fixture machines: every hwmon device, the thermal
// zones and the throttle counters, read by warm readers as the sampler does every few
// seconds; and the same with discovery forced each time, for what the caching saves.

#include <benchmark/benchmark.h>

#include <array>
#include <string>

#include "OmniraCore/platform/linux/Hwmon.h"
#include "OmniraCore/platform/linux/LinuxSensorSource.h"
#include "OmniraCore/sensors/Sensors.h"
#include "OmniraCore/platform/linux/ThermalZones.h"
#include "OmniraCore/platform/linux/ThrottleCounters.h"

namespace omnira {
namespace {

constexpr std::array<const char*, 2> trees{"sys-thinkpad", "sys-ryzen"};

platform::Roots treeRoots(benchmark::State& state) {
  const char* tree = trees.at(static_cast<size_t>(state.range(0)));
  state.SetLabel(tree);
  return platform::Roots{"/proc", std::string(OMNIRA_FIXTURES) + "/" + tree};
}

void sensorTick(benchmark::State& state) {
  const auto roots = treeRoots(state);
  platform::HwmonReader hwmon(roots);
  platform::ThermalZoneReader zones(roots);
  platform::ThrottleCounterReader throttle(roots);
  const bool rediscover = state.range(1) != 0;
  size_t figures = hwmon.read().temperatures.size() + zones.read().size() + throttle.read().size();  // warm-up
  for (auto _ : state) {
    if (rediscover) {
      hwmon.rediscover();
      zones.rediscover();
      throttle.rediscover();
    }
    auto readings = hwmon.read();
    auto zoneReadings = zones.read();
    auto counters = throttle.read();
    figures = readings.temperatures.size() + readings.fans.size() + readings.power.size() + zoneReadings.size() +
              counters.size();
    benchmark::DoNotOptimize(readings.temperatures.data());
    benchmark::DoNotOptimize(zoneReadings.data());
    benchmark::DoNotOptimize(counters.data());
  }
  state.counters["figures"] = static_cast<double>(figures);
}

BENCHMARK(sensorTick)
    ->ArgNames({"tree", "rediscover"})
    ->Args({0, 0})
    ->Args({1, 0})
    ->Args({0, 1})
    ->Args({1, 1})
    ->Unit(benchmark::kMicrosecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();

// The whole tick as the running application takes it: the above plus RAPL, the battery,
// DRM GPUs and NPUs, and the summary figures.
void sensorSample(benchmark::State& state) {
  const auto roots = treeRoots(state);
  platform::LinuxSensorSource::Options options;
  options.roots = roots;
  options.helperSocket.clear();
  options.upowerBus = "none";
  Sensors sensors(std::make_unique<platform::LinuxSensorSource>(options));
  (void)sensors.sample(std::nullopt);  // warm-up and baselines
  for (auto _ : state) {
    auto sample = sensors.sample(std::nullopt);
    benchmark::DoNotOptimize(sample.temperatures.data());
  }
}

BENCHMARK(sensorSample)
    ->ArgNames({"tree"})
    ->Arg(0)
    ->Arg(1)
    ->Unit(benchmark::kMicrosecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();

}  // namespace
}  // namespace omnira
