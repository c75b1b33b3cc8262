// The cost of one tick's history write with 100 apps, and the size of a file holding what
// a year at "historyDays" 365 with 50 apps keeps after pruning.

#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <filesystem>
#include <string>

#include <fmt/format.h>

#include "OmniraCore/history/HistoryDatabase.h"
#include "OmniraCore/history/HistoryRetention.h"

namespace omnira {
namespace {

struct TemporaryFolder {
  std::filesystem::path path;
  TemporaryFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "omnira-bench-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot make a temporary folder");
    path = pattern;
  }
  ~TemporaryFolder() { std::filesystem::remove_all(path); }
};

std::vector<AppGroup> groups(int count) {
  std::vector<AppGroup> result;
  for (int i = 0; i < count; ++i) {
    ProcessSample process;
    process.cpuPercent = i % 7;
    process.memoryBytes = 50'000'000 + 1'000'000ull * i;
    process.energyJoules = 0.5;
    process.networkInBytesPerSec = 1000.0 * i;
    process.diskWriteBytesPerSec = 300;
    const std::string id = fmt::format("/usr/share/applications/org.example.Application{}.desktop", i);
    result.emplace_back(id, fmt::format("Application {}", i), GroupKind::app, id, std::vector{process});
  }
  return result;
}

SystemSample sample() {
  SystemSample s;
  s.interval = 5;
  s.cpuUser = 0.2;
  s.cpuPerCore.assign(8, 0.2);
  s.memoryApp = 6'000'000'000;
  s.networkInBytesPerSec = 20'000;
  s.diskWriteBytesPerSec = 50'000;
  return s;
}

void tickWrite(benchmark::State& state) {
  TemporaryFolder folder;
  auto database = HistoryDatabase::open(folder.path / "history.sqlite");
  if (!database) return state.SkipWithError(database.error().message.c_str());
  const auto apps = groups(static_cast<int>(state.range(0)));
  const auto machine = sample();
  Date at = std::chrono::system_clock::now();
  for (auto _ : state) {
    at += std::chrono::seconds(5);
    if (!(*database)->record(machine, apps, TickGroups::fresh, at)) return state.SkipWithError("write failed");
  }
}
BENCHMARK(tickWrite)->Arg(100)->Unit(benchmark::kMicrosecond);

// Writes the rows a year keeps at 365 days (each table filled to its retention span, every
// app seen every hour), prunes, checkpoints and reports the file's size.
void yearFileSize(benchmark::State& state) {
  for (auto _ : state) {
    TemporaryFolder folder;
    auto database = HistoryDatabase::open(folder.path / "history.sqlite");
    if (!database) return state.SkipWithError(database.error().message.c_str());
    using System = HistoryDatabase::SystemTable;
    using Apps = HistoryDatabase::AppTable;
    const Date now = std::chrono::system_clock::now();
    const int64_t end = HistoryDatabase::periodStart(System::hours, now);
    const auto bounds = HistoryRetention::bounds(365, now);
    const auto apps = groups(50);
    const HistoryDatabase::SystemRow full{0, 300, 60, 1.8e12, 123'456'789, 12'345'678, 987'654'321, 98'765'432, 1500};
    auto fillSystem = [&](System table, int64_t from, int64_t step) {
      std::vector<std::pair<System, HistoryDatabase::SystemRow>> rows;
      for (int64_t start = from; start < end; start += step) {
        auto row = full;
        row.start = start;
        rows.push_back({table, row});
      }
      return (*database)->write(rows, {});
    };
    auto fillApps = [&](Apps table, int64_t from, int64_t step) {
      for (int64_t start = from; start < end; start += step) {
        std::vector<std::pair<Apps, HistoryDatabase::AppRow>> rows;
        for (const auto& group : apps) {
          rows.push_back({table, {start, group.id, group.name, "app", group.bundlePath, 3600, 123.4, 5678.9,
                                  1.8e11, 987'654'321, 12'345'678, 1'234'567, 23'456'789, 3'456'789}});
        }
        if (auto written = (*database)->write({}, rows); !written) return written;
      }
      return Result<void, HistoryDatabase::Failure>();
    };
    bool ok = fillSystem(System::minutes, bounds.systemMinutes, 60) &&
              fillSystem(System::fiveMinutes, bounds.systemFiveMinutes, 300) &&
              fillSystem(System::hours, bounds.systemHours, 3600) && fillApps(Apps::hours, bounds.appHours, 3600) &&
              fillApps(Apps::days, bounds.appDays, 86400);
    for (int64_t start = bounds.readings; ok && start < end; start += 300) {
      ok = static_cast<bool>((*database)->writeReading(
          {.start = start, .seconds = 300, .cpuPercentAverage = 12.3, .cpuPercentPeak = 80.5,
           .memoryUsedBytesAverage = 6'000'000'000, .memoryUsedBytesPeak = 7'000'000'000,
           .memoryPressurePercentAverage = 21.5, .memoryPressurePercentPeak = 40.25, .swapUsedBytesPeak = 1'000'000,
           .cpuCelsiusAverage = 51.5, .cpuCelsiusPeak = 77.25, .powerWattsAverage = 12.5, .powerWattsPeak = 30.75,
           .batteryPercent = 80, .pluggedInSeconds = 300}));
    }
    ok = ok && (*database)->prune(bounds) && (*database)->checkpoint();
    if (!ok) return state.SkipWithError("writing the year failed");
    state.counters["MB"] = static_cast<double>(std::filesystem::file_size(folder.path / "history.sqlite")) / 1e6;
  }
}
BENCHMARK(yearFileSize)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace omnira
