// Writes a span of history tick by tick through the store's own path (record, then the
// hourly prune and checkpoint), as a running Omnira would at the 5-second cadence, and
// reports the file's size after pruning. The file is kept, so `omnira history` can read it.
// Usage: omnira_history_year FILE [DAYS=365] [APPS=50]

#include <fmt/format.h>

#include <charconv>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <string>

#include "OmniraCore/history/HistoryDatabase.h"
#include "OmniraCore/history/HistoryRetention.h"
#include "OmniraCore/history/ReadingsRecorder.h"

namespace {

int argument(int argc, char** argv, int index, int fallback) {
  if (argc <= index) return fallback;
  int value = 0;
  const char* text = argv[index];
  if (std::from_chars(text, text + std::strlen(text), value).ec != std::errc() || value < 1) return -1;
  return value;
}

uint64_t fileBytes(const std::filesystem::path& file) {
  uint64_t total = 0;
  for (const char* suffix : {"", "-wal", "-shm"}) {
    std::error_code ec;
    const auto size = std::filesystem::file_size(file.string() + suffix, ec);
    if (!ec) total += size;
  }
  return total;
}

}  // namespace

int main(int argc, char** argv) {
  using namespace omnira;
  const int days = argument(argc, argv, 2, 365), apps = argument(argc, argv, 3, 50);
  if (argc < 2 || days < 1 || apps < 1) {
    fmt::print(stderr, "usage: omnira_history_year FILE [DAYS=365] [APPS=50]\n");
    return 2;
  }
  const std::filesystem::path file = argv[1];
  std::filesystem::remove(file);
  auto database = HistoryDatabase::open(file);
  if (!database) {
    fmt::print(stderr, "{}\n", database.error().message);
    return 1;
  }
  auto& db = **database;

  std::vector<AppGroup> groups;
  for (int i = 0; i < apps; ++i) {
    ProcessSample p;
    p.memoryBytes = 40'000'000ull + 3'000'000ull * static_cast<uint64_t>(i);
    const std::string id = fmt::format("/usr/share/applications/org.example.App{}.desktop", i);
    groups.emplace_back(id, fmt::format("App {}", i), GroupKind::app, id, std::vector{p});
  }
  SystemSample s;
  s.interval = 5;
  s.cpuPerCore.assign(8, 0.0);
  s.memoryTotal = 16ull << 30;

  HistoryPruner pruner;
  ReadingsRecorder readings;
  const auto started = std::chrono::steady_clock::now();
  const Date end = std::chrono::system_clock::now();
  const Date begin = end - std::chrono::hours(24 * days);
  uint64_t ticks = 0;
  for (Date at = begin; at <= end; at += std::chrono::seconds(5), ++ticks) {
    // Figures that move, so rows are not all alike.
    const double phase = static_cast<double>(ticks % 720) / 720.0;
    s.timestamp = at;
    s.cpuUser = 0.1 + 0.3 * phase;
    s.memoryApp = 4'000'000'000ull + static_cast<uint64_t>(phase * 2e9);
    s.networkInBytesPerSec = 10'000 * phase;
    s.diskWriteBytesPerSec = 40'000 * phase;
    for (size_t i = 0; i < groups.size(); ++i) {
      auto& p = groups[i].processes.front();
      p.cpuPercent = static_cast<double>((ticks + i) % 37);
      p.diskWriteBytesPerSec = static_cast<double>((ticks * 13 + i) % 5000);
    }
    if (auto written = db.record(s, groups, TickGroups::fresh, at); !written) {
      fmt::print(stderr, "{}\n", written.error().message);
      return 1;
    }
    if (auto row = readings.record(s, {}, at)) {
      if (auto written = db.writeReading(*row); !written) {
        fmt::print(stderr, "{}\n", written.error().message);
        return 1;
      }
    }
    if (ticks % 720 == 0) {
      if (auto pruned = pruner.pruneIfDue(db, days, at); !pruned) {
        fmt::print(stderr, "{}\n", pruned.error().message);
        return 1;
      }
    }
    if (ticks % (720 * 24 * 30) == 0 && ticks > 0)
      fmt::print(stderr, "{} days written, {:.1f} MB\n", ticks / (720 * 24), static_cast<double>(fileBytes(file)) / 1e6);
  }
  if (auto pruned = HistoryRetention::deleteOlder(db, days, end); !pruned) {
    fmt::print(stderr, "{}\n", pruned.error().message);
    return 1;
  }
  if (auto done = db.checkpoint(); !done) {
    fmt::print(stderr, "{}\n", done.error().message);
    return 1;
  }
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  fmt::print("{} ticks ({} days at 5 s, {} apps) in {:.0f} s: {:.2f} ms a tick; file after pruning at {} days: {:.1f} MB\n",
             ticks, days, apps, seconds, seconds * 1000 / static_cast<double>(ticks), days,
             static_cast<double>(fileBytes(file)) / 1e6);
  return 0;
}
