// The cost of one process tick: a full process sample, and grouping into apps, on this
// machine as it is and with 1,000 extra idle processes.

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <algorithm>
#include <memory>

#include <unistd.h>

#include "OmniraCore/platform/linux/DesktopEntries.h"
#include "OmniraCore/platform/linux/LinuxAppIdentifier.h"
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

// A project scan: every process's working directory and the project folder above it, for
// N extra processes spread over 100 project folders (three levels below each), against the
// same sample without it. The folders' marker checks are cached for two minutes, as a running
// Omnira keeps them; the working directories are read afresh each time, as at a scan.
void projectScan(benchmark::State& state) {
  namespace fs = std::filesystem;
  const auto home = fs::temp_directory_path() / ("omnira-bench-projects-" + std::to_string(::getpid()));
  std::vector<std::string> folders;
  for (int i = 0; i < 100; ++i) {
    const auto project = home / "src" / ("project-" + std::to_string(i));
    fs::create_directories(project / "packages/app/src");
    std::ofstream(project / "package.json") << "{}\n";
    folders.push_back((project / "packages/app/src").string());
  }
  bench::IdleProcesses extra(static_cast<int>(state.range(0)), folders);
  ProcessSampler::Options options;
  options.homeDirectory = home.string();
  options.workingDirectoryMaxAgeSeconds = 0;  // a scan reads them all
  auto sampler = platform::makeProcessSampler(options);
  const ProcessSampler::Details details{.projects = state.range(1) != 0};
  (void)sampler->sample(details);
  size_t processes = 0, inProjects = 0;
  for (auto _ : state) {
    auto samples = sampler->sample(details);
    processes = samples.size();
    inProjects = static_cast<size_t>(std::count_if(samples.begin(), samples.end(), [](const auto& s) { return s.projectPath.has_value(); }));
    benchmark::DoNotOptimize(samples.data());
  }
  state.counters["processes"] = static_cast<double>(processes);
  state.counters["in_projects"] = static_cast<double>(inProjects);
  fs::remove_all(home);
}

// The desktop entries a one-shot snapshot scans: N entries naming programs of /usr/bin,
// looked up through this machine's PATH as a desktop of N apps would be.
void desktopScan(benchmark::State& state) {
  namespace fs = std::filesystem;
  const auto dir = fs::temp_directory_path() / ("omnira-bench-apps-" + std::to_string(::getpid()));
  fs::create_directories(dir / "applications");
  int written = 0;
  for (const auto& program : fs::directory_iterator("/usr/bin")) {
    if (written == state.range(0)) break;
    const auto name = program.path().filename().string();
    std::ofstream(dir / "applications" / ("org.example." + name + ".desktop"))
        << "[Desktop Entry]\nType=Application\nName=" << name << "\nExec=" << name << " %U\nIcon=" << name
        << "\nCategories=Utility;\nStartupWMClass=" << name << "\n";
    ++written;
  }
  auto config = platform::LinuxAppIdentifier::Config::fromEnvironment(
      [](const std::string& variable) -> std::optional<std::string> {
        if (const char* value = std::getenv(variable.c_str())) return std::string(value);
        return std::nullopt;
      },
      ::getuid());
  config.desktop.dataDirs = {dir};
  for (auto _ : state) {
    auto entries = platform::DesktopEntries::scan(config.desktop);
    benchmark::DoNotOptimize(entries.all().data());
  }
  state.counters["entries"] = written;
  state.counters["program_dirs"] = static_cast<double>(config.desktop.programDirs.size());
  fs::remove_all(dir);
}

BENCHMARK(projectScan)->Args({1000, 0})->Args({1000, 1})->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(desktopScan)->Arg(300)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(processSample)->Arg(0)->Arg(1000)->Unit(benchmark::kMicrosecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(grouping)->Arg(0)->Arg(1000)->Unit(benchmark::kMicrosecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(tick)->Arg(0)->Arg(1000)->Unit(benchmark::kMicrosecond)->MeasureProcessCPUTime()->UseRealTime();

}  // namespace
}  // namespace omnira
