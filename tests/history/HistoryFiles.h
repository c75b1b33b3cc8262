#pragma once
// Shared by the history tests: a fresh data folder per test, ways to damage or remove the
// file in it, and ticks built from a few figures. Everything runs on real SQLite files.

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <stdlib.h>
#include <time.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>

#include "OmniraCore/foundation/AppPaths.h"
#include "OmniraCore/history/HistoryDatabase.h"

namespace omnira::history_testing {

// Noon UTC on a whole hour, so the first ticks share every period.
inline constexpr int64_t noon = 1'795'262'400;

struct HistoryFolder : ::testing::Test {
  std::filesystem::path folder;
  std::filesystem::path file;

  void SetUp() override {
    std::string pattern = (std::filesystem::temp_directory_path() / "omnira-history-XXXXXX").string();
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    folder = pattern;
    file = AppPaths(folder, folder / "config").dataFile("history.sqlite");
  }
  void TearDown() override { std::filesystem::remove_all(folder); }

  // The file gone with its log, as a person deleting it leaves the folder.
  void removeHistory() {
    for (const char* suffix : {"", "-wal", "-shm"}) std::filesystem::remove(file.string() + suffix);
  }
  static std::string contents(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }

  std::unique_ptr<HistoryDatabase> open() {
    auto database = HistoryDatabase::open(file);
    if (!database) ADD_FAILURE() << database.error().message;
    return database ? std::move(*database) : nullptr;
  }

  // A value read straight from the file by a second connection, as another program would.
  std::string query(const std::string& sql) {
    sqlite3* db = nullptr;
    EXPECT_EQ(sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READONLY, nullptr), SQLITE_OK);
    sqlite3_stmt* statement = nullptr;
    std::string value;
    if (sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr) == SQLITE_OK &&
        sqlite3_step(statement) == SQLITE_ROW && sqlite3_column_text(statement, 0)) {
      value = reinterpret_cast<const char*>(sqlite3_column_text(statement, 0));
    } else {
      ADD_FAILURE() << sql << ": " << sqlite3_errmsg(db);
    }
    sqlite3_finalize(statement);
    sqlite3_close(db);
    return value;
  }
};

// The process's time zone for as long as it lives, as a person's session sets TZ; POSIX
// rules, so no zone database is needed.
class LocalZone {
 public:
  explicit LocalZone(const char* zone) {
    if (const char* old = ::getenv("TZ")) previous_ = old;
    ::setenv("TZ", zone, 1);
    ::tzset();
  }
  ~LocalZone() {
    if (previous_) ::setenv("TZ", previous_->c_str(), 1);
    else ::unsetenv("TZ");
    ::tzset();
  }
  LocalZone(const LocalZone&) = delete;
  LocalZone& operator=(const LocalZone&) = delete;

 private:
  std::optional<std::string> previous_;
};

// Zones whose hours do not start on UTC hours, with their offset from UTC in late November
// (Adelaide's summer time; in its winter the hours are off by the same half hour).
struct OffHourZone {
  const char* rule;
  int64_t offset;  // seconds east of UTC
};
inline constexpr OffHourZone offHourZones[] = {
    {"IST-5:30", 19'800},                        // Asia/Kolkata
    {"NPT-5:45", 20'700},                        // Asia/Kathmandu
    {"ACST-9:30ACDT,M10.1.0,M4.1.0/3", 37'800},  // Australia/Adelaide, on summer time
};

inline Date at(int64_t secondsSinceEpoch) { return Date(std::chrono::seconds(secondsSinceEpoch)); }

// Two cores, `cpu` busy in all (0...1), 1 GB app memory, 1000 B/s in each direction.
inline SystemSample tick(double interval, double cpu = 0.5) {
  SystemSample sample;
  sample.interval = interval;
  sample.cpuUser = cpu;
  sample.cpuPerCore = {cpu, cpu};
  sample.memoryTotal = 8'000'000'000;
  sample.memoryApp = 1'000'000'000;
  sample.networkInBytesPerSec = 1000;
  sample.networkOutBytesPerSec = 1000;
  sample.diskReadBytesPerSec = 1000;
  sample.diskWriteBytesPerSec = 1000;
  return sample;
}

inline AppGroup app(const std::string& id, const std::string& name, double cpuPercent, uint64_t memory,
                    double energy = 0) {
  ProcessSample process;
  process.cpuPercent = cpuPercent;
  process.memoryBytes = memory;
  process.energyJoules = energy;
  process.networkInBytesPerSec = 100;
  process.networkBytesIn = 700;  // what the tick's network step counted
  process.diskWriteBytesPerSec = 50;
  return AppGroup(id, name, GroupKind::app, id, {process});
}

}  // namespace omnira::history_testing
