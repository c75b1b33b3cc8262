// The cost of one process tick: a full process sample, and grouping into apps, on this
// machine as it is and with 1,000 extra idle processes.

#include <benchmark/benchmark.h>

#include <memory>

#include "OmniraCore/platform/linux/ThisMachine.h"
#include "bench/IdleProcesses.h"

namespace omnira {
namespace {

void processSample(benchmark::State& state) {
  bench::IdleProcesses extra(static_cast<int>(state.range(0)));
  auto sampler = platform::makeProcessSampler();
  size_t processes = sampler->sample().size();  // the baseline; later ticks read deltas
  for (auto _ : state) {
    auto samples = sampler->sample();
    processes = samples.size();
    benchmark::DoNotOptimize(samples.data());
  }
  state.counters["processes"] = static_cast<double>(processes);
  state.counters["per_process"] = benchmark::Counter(static_cast<double>(processes),
                                                     benchmark::Counter::kIsIterationInvariantRate |
                                                         benchmark::Counter::kInvert);
}

void grouping(benchmark::State& state) {
  bench::IdleProcesses extra(static_cast<int>(state.range(0)));
  auto sampler = platform::makeProcessSampler();
  (void)sampler->sample();
  auto samples = sampler->sample();
  auto grouper = platform::makeAppGrouper();
  (void)grouper->group(samples);  // descriptors are cached per path for the program's life
  for (auto _ : state) {
    auto groups = grouper->group(samples);
    benchmark::DoNotOptimize(groups.data());
  }
  state.counters["processes"] = static_cast<double>(samples.size());
  state.counters["per_process"] = benchmark::Counter(static_cast<double>(samples.size()),
                                                     benchmark::Counter::kIsIterationInvariantRate |
                                                         benchmark::Counter::kInvert);
}

// What a tick costs: sample and group together.
void tick(benchmark::State& state) {
  bench::IdleProcesses extra(static_cast<int>(state.range(0)));
  auto sampler = platform::makeProcessSampler();
  auto grouper = platform::makeAppGrouper();
  (void)grouper->group(sampler->sample());
  size_t processes = 0;
  for (auto _ : state) {
    auto samples = sampler->sample();
    processes = samples.size();
    auto groups = grouper->group(std::move(samples));
    benchmark::DoNotOptimize(groups.data());
  }
  state.counters["processes"] = static_cast<double>(processes);
  state.counters["per_process"] = benchmark::Counter(static_cast<double>(processes),
                                                     benchmark::Counter::kIsIterationInvariantRate |
                                                         benchmark::Counter::kInvert);
}

BENCHMARK(processSample)->Arg(0)->Arg(1000)->Unit(benchmark::kMicrosecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(grouping)->Arg(0)->Arg(1000)->Unit(benchmark::kMicrosecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(tick)->Arg(0)->Arg(1000)->Unit(benchmark::kMicrosecond)->MeasureProcessCPUTime()->UseRealTime();

}  // namespace
}  // namespace omnira
