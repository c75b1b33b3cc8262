// The cost of one container sample with stats, for bench/compare_docker_stats.py.
// Usage: omnira_container_probe SOCKET [ROUNDS]   (default 7)
//
// Asks the engine at SOCKET for its containers and each one's stats, ROUNDS times, one
// second apart (the engine's own collection cycle), and prints the median wall time and
// CPU time of one sample as JSON. The first sample, which has no previous reading to make
// rates from, is not counted.

#include <fmt/format.h>
#include <sys/resource.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "bench/ProcessCPU.h"
#include "OmniraCore/containers/ContainerSampler.h"

namespace {

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values.empty() ? 0 : values[values.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    fmt::print(stderr, "usage: omnira_container_probe SOCKET [ROUNDS]\n");
    return 2;
  }
  int rounds = 7;
  if (argc > 2) {
    const std::string_view text = argv[2];
    if (std::from_chars(text.data(), text.data() + text.size(), rounds).ec != std::errc() || rounds < 1) {
      fmt::print(stderr, "ROUNDS must be a positive number, not \"{}\".\n", text);
      return 2;
    }
  }
  omnira::ContainerSampler::Options options;
  options.engines = {{"Docker", argv[1], std::nullopt}};
  omnira::ContainerSampler sampler(options);
  (void)sampler.sample(true);
  std::vector<double> wall, cpu;
  size_t containers = 0, withCPU = 0;
  for (int i = 0; i < rounds; ++i) {
    std::this_thread::sleep_for(std::chrono::seconds(1));
    const double cpuBefore = omnira::bench::cpuSeconds();
    const auto started = std::chrono::steady_clock::now();
    const auto snapshot = sampler.sample(true);
    wall.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - started).count());
    cpu.push_back((omnira::bench::cpuSeconds() - cpuBefore) * 1000);
    containers = snapshot.containers.size();
    withCPU = static_cast<size_t>(std::count_if(snapshot.containers.begin(), snapshot.containers.end(),
                                                [](const auto& c) { return c.cpuPercent.has_value(); }));
  }
  fmt::print("{{\"containers\": {}, \"with_cpu\": {}, \"sample_wall_ms\": {:.2f}, \"sample_cpu_ms\": {:.2f}}}\n",
             containers, withCPU, median(wall), median(cpu));
  return 0;
}
