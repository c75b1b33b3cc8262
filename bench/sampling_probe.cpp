// Runs process ticks (sample and group) and reports the CPU time they cost, for
// bench/compare_top.py, which runs it beside `top -b` over the same processes.
// Usage: omnira_sampling_probe ITERATIONS

#include <fmt/format.h>
#include <sys/resource.h>

#include <charconv>
#include <cstring>
#include <string_view>
#include <thread>

#include "bench/ProcessCPU.h"
#include "OmniraCore/platform/linux/ThisMachine.h"

int main(int argc, char** argv) {
  int iterations = 0;
  if (argc != 2 || std::from_chars(argv[1], argv[1] + std::strlen(argv[1]), iterations).ec != std::errc() ||
      iterations < 1) {
    fmt::print(stderr, "usage: omnira_sampling_probe ITERATIONS\n");
    return 2;
  }
  auto sampler = omnira::platform::makeProcessSampler();
  auto grouper = omnira::platform::makeAppGrouper();
  const double startCPU = omnira::bench::cpuSeconds();
  (void)grouper->group(sampler->sample());
  const double firstCPU = omnira::bench::cpuSeconds() - startCPU;
  size_t processes = 0;
  const double before = omnira::bench::cpuSeconds();
  for (int i = 0; i < iterations; ++i) {
    // Ticks a little apart, like top's refreshes, so the kernel's counters move.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    auto samples = sampler->sample();
    processes = samples.size();
    auto groups = grouper->group(std::move(samples));
  }
  const double perTick = (omnira::bench::cpuSeconds() - before) / iterations;
  fmt::print("{{\"processes\": {}, \"first_tick_cpu_seconds\": {:.6f}, \"tick_cpu_seconds\": {:.6f}}}\n", processes,
             firstCPU, perTick);
  return 0;
}
