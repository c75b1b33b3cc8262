#pragma once
// Shared by the history tests: a fresh data folder per test, and ticks built from a few
// figures. Everything runs on real SQLite files.

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <stdlib.h>

#include <filesystem>
#include <string>

#include "OmniraCore/foundation/AppPaths.h"
#include "OmniraCore/history/HistoryDatabase.h"

namespace omnira::history_testing {

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
  process.diskWriteBytesPerSec = 50;
  return AppGroup(id, name, GroupKind::app, id, {process});
}

}  // namespace omnira::history_testing
