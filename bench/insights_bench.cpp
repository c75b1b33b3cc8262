// The insight engine's tick: 300 app groups whose series already hold a full hour at the
// 5 s cadence, with a CPU and a memory limit in force.

#include <benchmark/benchmark.h>

#include "OmniraCore/history/InsightEngine.h"

namespace omnira {
namespace {

std::vector<AppGroup> makeGroups(size_t count) {
  std::vector<AppGroup> groups;
  for (size_t i = 0; i < count; ++i) {
    std::vector<ProcessSample> processes(3);
    for (size_t p = 0; p < processes.size(); ++p) {
      processes[p].pid = static_cast<int32_t>(i * 10 + p + 1);
      processes[p].cpuPercent = static_cast<double>((i * 7 + p) % 40);
      processes[p].memoryBytes = 50'000'000 + i * 3'000'000;
      processes[p].diskWriteBytesPerSec = 10'000;
      processes[p].networkInBytesPerSec = 5'000;
    }
    const std::string id = "/usr/share/applications/app" + std::to_string(i) + ".desktop";
    groups.emplace_back(id, "App " + std::to_string(i), i == 0 ? GroupKind::system : GroupKind::app, id,
                        std::move(processes));
  }
  // A few big apps so that the memory rule scans whole series.
  for (size_t i = 0; i < 10; ++i) groups[i].processes[0].memoryBytes = 2'000'000'000;
  return groups;
}

void ingest(benchmark::State& state) {
  const auto groups = makeGroups(300);
  InsightEngine engine;
  engine.limits = {AppLimit{UUID::random(), groups[5].id, "App 5", std::nullopt, AppLimit::Figure::cpu, 80, 30, true},
                   AppLimit{UUID::random(), groups[6].id, "App 6", std::nullopt, AppLimit::Figure::memory, 1e8, 60,
                            true}};
  SystemSample system;
  system.interval = 5;
  const Date start = dateFromSecondsSinceEpoch(1'800'000'000);
  double second = 0;
  auto tick = [&] {
    return engine.ingest(groups, system, groups[1].id, {}, ThermalSample{70.0, 75.0, {2000}},
                         NeuralEngineHolder{0.1, std::nullopt},
                         start + std::chrono::duration_cast<Date::duration>(std::chrono::duration<double>(second)));
  };
  for (; second < 3600; second += 5) tick();  // a full hour of series
  for (auto _ : state) {
    second += 5;
    auto insights = tick();
    benchmark::DoNotOptimize(insights.data());
  }
}
BENCHMARK(ingest)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace omnira
