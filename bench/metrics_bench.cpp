// The cost of the metrics endpoint with 1,000 processes in 200 apps: the exporter's step after
// a tick (on the main thread) and the rendering of one scrape (on the server's thread).

#include <benchmark/benchmark.h>

#include <chrono>
#include <string>
#include <vector>

#include "OmniraCore/metrics/Exposition.h"
#include "OmniraCore/metrics/MetricsExporter.h"

namespace omnira {
namespace {

std::vector<AppGroup> thousandProcesses(int tick) {
  std::vector<AppGroup> groups;
  for (int g = 0; g < 200; ++g) {
    std::vector<ProcessSample> processes(5);
    for (int p = 0; p < 5; ++p) {
      auto& s = processes[static_cast<size_t>(p)];
      s.pid = g * 5 + p + 1;
      s.name = "worker-" + std::to_string(p);
      s.memoryBytes = static_cast<uint64_t>((g * 7 + p) % 97 + 1) << 20;
      s.residentBytes = s.memoryBytes * 3 / 2;
      s.delta.cpuNanoseconds = static_cast<uint64_t>(((g * 13 + tick) % 50) * 1000000);
      s.delta.diskBytesRead = static_cast<uint64_t>(g * 4096);
      if (g % 10 == 0) s.projectPath = "/home/ada/src/project-" + std::to_string(g / 10);
    }
    groups.emplace_back("exec:app-" + std::to_string(g), "App \"" + std::to_string(g) + "\"", GroupKind::app, std::nullopt,
                        std::move(processes));
  }
  return groups;
}

SystemSample machine(Date at) {
  SystemSample s;
  s.timestamp = at;
  s.cpuUser = 0.2;
  s.cpuSystem = 0.1;
  s.cpuPerCore.assign(16, 0.3);
  s.memoryTotal = 32ull << 30;
  s.interval = 1;
  return s;
}

void exporterStep(benchmark::State& state) {
  MetricsExporter exporter;
  Date at = std::chrono::system_clock::now();
  int tick = 0;
  size_t series = 0;
  for (auto _ : state) {
    state.PauseTiming();
    const auto groups = thousandProcesses(tick++);
    const auto system = machine(at);
    state.ResumeTiming();
    const auto families = exporter.update({.at = at, .system = &system, .groups = &groups, .groupsAt = at});
    series = 0;
    for (const auto& f : families) series += f.samples.size();
    benchmark::DoNotOptimize(families);
    at += std::chrono::seconds(1);
  }
  state.counters["series"] = static_cast<double>(series);
}
BENCHMARK(exporterStep)->Unit(benchmark::kMicrosecond);

void renderScrape(benchmark::State& state) {
  MetricsExporter exporter;
  const Date at = std::chrono::system_clock::now();
  const auto groups = thousandProcesses(0);
  const auto system = machine(at);
  const auto families = exporter.update({.at = at, .system = &system, .groups = &groups, .groupsAt = at});
  const auto format = state.range(0) ? ExpositionFormat::openMetrics : ExpositionFormat::prometheusText;
  state.SetLabel(format == ExpositionFormat::openMetrics ? "openmetrics" : "text");
  size_t bytes = 0;
  for (auto _ : state) {
    const auto text = renderExposition(families, format);
    bytes = text.size();
    benchmark::DoNotOptimize(text);
  }
  state.counters["bytes"] = static_cast<double>(bytes);
}
BENCHMARK(renderScrape)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace omnira
