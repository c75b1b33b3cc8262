#include "OmniraCore/history/HistoryDatabase.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fmt/format.h>

#include <fstream>

#include "OmniraCore/history/HistoryRetention.h"
#include "tests/history/HistoryFiles.h"
#include "tests/support/Refused.h"

namespace omnira {
namespace {

using history_testing::app;
using history_testing::at;
using history_testing::noon;
using history_testing::tick;
using System = HistoryDatabase::SystemTable;
using Apps = HistoryDatabase::AppTable;

struct HistoryDatabaseFile : history_testing::HistoryFolder {};

TEST_F(HistoryDatabaseFile, CreatesAFileInWALWithTheSchemaAndAnOpenPeriodContinuesAcrossAReopen) {
  std::filesystem::remove_all(folder);  // the first run: no data folder yet
  {
    auto database = open();
    ASSERT_TRUE(database);
    // Empty until both an hour row and a day row exist.
    ASSERT_TRUE(database->write({{System::minutes, {.start = noon - 60, .seconds = 5}}}, {}));
    EXPECT_TRUE(database->isEmpty().value());
    ASSERT_TRUE(database->record(tick(5), {app("/a.desktop", "A", 50, 500)}, TickGroups::fresh, at(noon + 1)));
  }
  EXPECT_EQ(query("PRAGMA journal_mode"), "wal");
  EXPECT_EQ(query("PRAGMA user_version"), std::to_string(HistoryDatabase::schemaVersion));

  auto since = open()->recordingSince().value();
  auto database = open();
  ASSERT_TRUE(database);
  EXPECT_EQ(database->recordingSince().value(), since);
  EXPECT_FALSE(database->isEmpty().value());
  ASSERT_TRUE(database->record(tick(5), {app("/a.desktop", "A", 50, 100)}, TickGroups::fresh, at(noon + 6)));
  EXPECT_DOUBLE_EQ(database->loadSystem(System::minutes, noon)->value().seconds, 10);
  auto rows = database->loadApps(Apps::days, HistoryDatabase::periodStart(Apps::days, at(noon))).value();
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_DOUBLE_EQ(rows[0].seconds, 10);
}

TEST_F(HistoryDatabaseFile, WritingAPeriodOrAMetaKeyAgainLeavesOneRowWithTheLaterValues) {
  auto database = open();
  ASSERT_TRUE(database);
  HistoryDatabase::AppRow row{.start = noon, .appId = "a", .name = "A", .kind = "app", .seconds = 5};
  ASSERT_TRUE(database->write({{System::hours, {.start = noon, .seconds = 5}}}, {{Apps::hours, row}}));
  row.seconds = 10;
  row.name = "A renamed";
  ASSERT_TRUE(database->write({{System::hours, {.start = noon, .seconds = 10}}}, {{Apps::hours, row}}));
  EXPECT_EQ(database->loadSystem(System::hours, noon)->value().seconds, 10);
  auto rows = database->apps(Apps::hours, noon, noon + 1).value();
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0], row);

  ASSERT_TRUE(database->setMeta("it's", "one"));
  ASSERT_TRUE(database->setMeta("it's", "two"));
  EXPECT_EQ(database->meta("it's").value(), "two");
}

TEST_F(HistoryDatabaseFile, TicksFoldIntoTheOpenPeriodsWeightedByTheirInterval) {
  auto database = open();
  ASSERT_TRUE(database);
  // Two ticks in the first minute, one in the next; the hour and day rows take all three.
  ASSERT_TRUE(database->record(tick(5, 0.5), {app("a", "A", 50, 100, 2)}, TickGroups::fresh, at(noon + 10)));
  ASSERT_TRUE(database->record(tick(5, 1.0), {app("a", "A", 150, 300, 2), app("b", "B", 10, 7)}, TickGroups::fresh, at(noon + 15)));
  ASSERT_TRUE(database->record(tick(10, 0.25), {app("a", "A", 100, 200, 2)}, TickGroups::fresh, at(noon + 70)));
  ASSERT_TRUE(database->record(tick(0), {app("a", "A", 100, 900)}, TickGroups::fresh, at(noon + 75)));  // no interval: nothing

  auto minutes = database->system(System::minutes, noon, noon + 3600).value();
  ASSERT_EQ(minutes.size(), 2u);
  EXPECT_DOUBLE_EQ(minutes[0].seconds, 10);
  EXPECT_DOUBLE_EQ(minutes[0].cpuLoadSeconds, 0.5 * 2 * 5 + 1.0 * 2 * 5);  // busy cores × seconds
  EXPECT_DOUBLE_EQ(minutes[0].energyJoules, 4);

  auto hour = database->loadSystem(System::hours, noon)->value();
  EXPECT_DOUBLE_EQ(hour.seconds, 20);
  EXPECT_EQ(database->loadSystem(System::fiveMinutes, noon)->value(), hour);

  const int64_t day = HistoryDatabase::periodStart(Apps::days, at(noon));
  for (auto table : {Apps::hours, Apps::days}) {
    auto rows = database->loadApps(table, table == Apps::hours ? noon : day).value();
    ASSERT_EQ(rows.size(), 2u);
    const auto& a = rows[0].appId == "a" ? rows[0] : rows[1];
    EXPECT_DOUBLE_EQ(a.seconds, 20);
    EXPECT_DOUBLE_EQ(a.cpuSeconds, 0.5 * 5 + 1.5 * 5 + 1.0 * 10);
    EXPECT_EQ(a.peakMemoryBytes, 300);
    EXPECT_DOUBLE_EQ(a.energyJoules, 6);
    EXPECT_EQ(a.networkBytesIn, 3 * 700);  // as the network steps counted it, not rate × seconds
  }
}

TEST_F(HistoryDatabaseFile, EnergyOfOneProcessSampleCountsOnceHoweverManyTicksRepeatIt) {
  auto database = open();
  ASSERT_TRUE(database);
  // Processes are sampled on every sixth tick; the five between repeat the last groups,
  // whose 12 J were measured over the whole 30 s of their sample.
  const std::vector<AppGroup> groups{app("a", "A", 100, 100, 12)};
  for (int i = 0; i < 12; ++i) {
    const auto freshness = i % 6 == 0 ? TickGroups::fresh : TickGroups::repeated;
    ASSERT_TRUE(database->record(tick(5), groups, freshness, at(noon + 5 * i)));
  }
  EXPECT_DOUBLE_EQ(database->loadSystem(System::hours, noon)->value().energyJoules, 24);
  for (auto table : {Apps::hours, Apps::days}) {
    auto rows = database->loadApps(table, HistoryDatabase::periodStart(table, at(noon))).value();
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_DOUBLE_EQ(rows[0].energyJoules, 24);
    EXPECT_DOUBLE_EQ(rows[0].cpuSeconds, 60);  // a rate: every tick's interval counts
  }
}

TEST_F(HistoryDatabaseFile, HoursAndDaysFollowTheLocalClockWhereTheZoneIsOffByPartOfAnHour) {
  for (const auto& zone : history_testing::offHourZones) {
    SCOPED_TRACE(zone.rule);
    history_testing::LocalZone local(zone.rule);
    removeHistory();
    auto database = open();
    ASSERT_TRUE(database);
    // 11:50 and 12:10 UTC lie in one local hour in each of these zones.
    ASSERT_TRUE(database->record(tick(5), {app("a", "A", 100, 100)}, TickGroups::fresh, at(noon - 600)));
    ASSERT_TRUE(database->record(tick(5), {app("a", "A", 100, 100)}, TickGroups::fresh, at(noon + 600)));
    const int64_t localClock = noon + 600 + zone.offset;
    const int64_t hour = noon + 600 - localClock % 3600;
    // The machine's hours are checked through the history command; these are the apps'.
    auto appHours = database->apps(Apps::hours, noon - 7200, noon + 7200).value();
    ASSERT_EQ(appHours.size(), 1u);
    EXPECT_EQ(appHours[0].start, hour);

    auto days = database->apps(Apps::days, noon - 86'400 * 2, noon + 86'400 * 2).value();
    ASSERT_EQ(days.size(), 1u);
    EXPECT_EQ(days[0].start, noon + 600 - localClock % 86'400);
  }
}

TEST_F(HistoryDatabaseFile, ReadingsKeepEveryColumnAndTheirGaps) {
  auto database = open();
  ASSERT_TRUE(database);
  HistoryDatabase::ReadingRow full{.start = noon, .seconds = 300, .cpuPercentAverage = 12.5, .cpuPercentPeak = 80,
                                   .memoryUsedBytesAverage = 4'000'000'000, .memoryUsedBytesPeak = 5'000'000'000,
                                   .memoryPressurePercentAverage = 20, .memoryPressurePercentPeak = 35,
                                   .memoryPressureLevelPeak = "warning", .swapUsedBytesPeak = 1024,
                                   .gpuPercentAverage = 3, .gpuPercentPeak = 9, .neuralEnginePercentAverage = 0,
                                   .neuralEnginePercentPeak = 1, .cpuCelsiusAverage = 50, .cpuCelsiusPeak = 71,
                                   .hottestCelsiusAverage = 55, .hottestCelsiusPeak = 80, .fanRpmAverage = 1200,
                                   .fanRpmPeak = 2400, .powerWattsAverage = 8, .powerWattsPeak = 20,
                                   .thermalStatePeak = "fair", .batteryPercent = 77, .pluggedInSeconds = 120};
  HistoryDatabase::ReadingRow sparse{.start = noon + 300, .seconds = 300};
  ASSERT_TRUE(database->writeReading(full));
  ASSERT_TRUE(database->writeReading(sparse));
  EXPECT_EQ(database->readings(noon).value(), (std::vector{full, sparse}));
  EXPECT_EQ(database->readings(noon + 1).value(), std::vector{sparse});
}

TEST_F(HistoryDatabaseFile, PruningDeletesOnlyRowsBeforeEachTablesBound) {
  auto database = open();
  ASSERT_TRUE(database);
  std::vector<std::pair<System, HistoryDatabase::SystemRow>> system;
  std::vector<std::pair<Apps, HistoryDatabase::AppRow>> apps;
  for (int64_t start : {noon - 7200, noon - 3600, noon}) {
    for (auto table : {System::minutes, System::fiveMinutes, System::hours}) system.push_back({table, {.start = start}});
    for (auto table : {Apps::hours, Apps::days}) apps.push_back({table, {.start = start, .appId = "a"}});
    ASSERT_TRUE(database->writeReading({.start = start}));
  }
  ASSERT_TRUE(database->write(system, apps));
  ASSERT_TRUE(database->prune({.systemMinutes = noon, .systemFiveMinutes = noon - 3600, .systemHours = noon - 7200,
                               .appHours = noon - 3599, .appDays = noon + 1, .readings = noon - 3600}));
  const int64_t end = noon + 1;
  EXPECT_EQ(database->system(System::minutes, 0, end)->size(), 1u);
  EXPECT_EQ(database->system(System::hours, 0, end)->size(), 3u);
  EXPECT_EQ(database->apps(Apps::hours, 0, end)->size(), 1u);
  EXPECT_EQ(database->apps(Apps::days, 0, end)->size(), 0u);
  EXPECT_EQ(database->readings(0)->size(), 2u);
}

// The application records through one connection while `omnira history delete` deletes
// through another, as two programs on one file do.
TEST_F(HistoryDatabaseFile, AnotherProgramsDeletionStartsTheOpenPeriodsAfresh) {
  auto running = open();
  ASSERT_TRUE(running);
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(running->record(tick(5), {app("a", "A", 100, 100, 1)}, TickGroups::fresh, at(noon + 1 + 5 * i)));
  }
  const uint64_t restarts = running->restarts().value();
  const Date deletedAt = at(noon + 12);
  {
    auto command = open();
    ASSERT_TRUE(command);
    ASSERT_TRUE(command->deleteAll(deletedAt));
  }
  EXPECT_EQ(running->restarts().value(), restarts + 1);
  EXPECT_EQ(running->recordingSince().value(), deletedAt);

  ASSERT_TRUE(running->record(tick(5), {app("a", "A", 100, 100, 1)}, TickGroups::fresh, at(noon + 16)));
  for (auto table : {System::minutes, System::fiveMinutes, System::hours}) {
    EXPECT_DOUBLE_EQ(running->loadSystem(table, noon)->value().seconds, 5) << HistoryDatabase::tableName(table);
  }
  for (auto table : {Apps::hours, Apps::days}) {
    auto rows = running->loadApps(table, HistoryDatabase::periodStart(table, at(noon))).value();
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_DOUBLE_EQ(rows[0].seconds, 5) << HistoryDatabase::tableName(table);
  }

  // Reading, or deleting only the older rows, starts nothing again: the open rows go on.
  {
    auto command = open();
    ASSERT_TRUE(command);
    ASSERT_TRUE(command->system(System::hours, 0, noon + 3600));
    ASSERT_TRUE(HistoryRetention::deleteOlder(*command, 30, at(noon + 17)));
  }
  ASSERT_TRUE(running->record(tick(5), {app("a", "A", 100, 100, 1)}, TickGroups::fresh, at(noon + 21)));
  EXPECT_DOUBLE_EQ(running->loadSystem(System::minutes, noon)->value().seconds, 10);
  EXPECT_DOUBLE_EQ(running->loadApps(Apps::hours, HistoryDatabase::periodStart(Apps::hours, at(noon)))->at(0).seconds,
                   10);

  // A deletion through this same object counts as a restart too, and takes the readings.
  ASSERT_TRUE(running->writeReading({.start = noon}));
  ASSERT_TRUE(running->deleteAll(at(noon + 22)));
  EXPECT_EQ(running->restarts().value(), restarts + 2);
  EXPECT_TRUE(running->readings(0)->empty());
  EXPECT_EQ(running->recordingSince().value(), at(noon + 22));
  ASSERT_TRUE(running->record(tick(5), {app("a", "A", 100, 100, 1)}, TickGroups::fresh, at(noon + 26)));
  EXPECT_DOUBLE_EQ(running->loadSystem(System::minutes, noon)->value().seconds, 5);
}

TEST_F(HistoryDatabaseFile, AFolderThatCannotBeMadeOrANewerSchemaCannotBeOpened) {
  open().reset();
  // A folder that cannot be made, because a file stands in its place. (A file that is
  // not a database is set aside instead: see HistoryRecovery.)
  EXPECT_TRUE(testing::refusedSaying(HistoryDatabase::open(file / "history.sqlite"), "cannot open"));

  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(file.c_str(), &db), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(db, "PRAGMA user_version = 99", nullptr, nullptr, nullptr), SQLITE_OK);
  sqlite3_close(db);
  EXPECT_TRUE(testing::refusedSaying(HistoryDatabase::open(file), "cannot open"));
  EXPECT_EQ(query("PRAGMA user_version"), "99");
}

TEST_F(HistoryDatabaseFile, AProcessKilledWhileWritingLeavesAnIntactFile) {
  int ready[2];
  ASSERT_EQ(::pipe(ready), 0);
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    // The child writes ticks until it is killed; after the first 50 it tells the parent.
    ::close(ready[0]);
    auto database = HistoryDatabase::open(file);
    if (!database) ::_exit(2);
    std::vector<AppGroup> groups;
    for (int i = 0; i < 50; ++i) groups.push_back(app(fmt::format("app{}", i), "App", i, 1000 * i));
    for (int64_t n = 0;; ++n) {
      if (!(*database)->record(tick(5), groups, TickGroups::fresh, at(noon + 5 * n))) ::_exit(3);
      if (n % 60 == 0 && !(*database)->checkpoint()) ::_exit(4);
      if (n == 50 && ::write(ready[1], "x", 1) != 1) ::_exit(5);
    }
  }
  ::close(ready[1]);
  char byte = 0;
  ASSERT_EQ(::read(ready[0], &byte, 1), 1);
  ::close(ready[0]);
  ASSERT_EQ(::kill(child, SIGKILL), 0);
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status)) << "the child stopped by itself with " << WEXITSTATUS(status);

  auto database = open();
  ASSERT_TRUE(database);
  EXPECT_EQ(query("PRAGMA integrity_check"), "ok");
  auto minutes = database->system(System::minutes, 0, INT64_MAX).value();
  ASSERT_GE(minutes.size(), 4u);  // 51 ticks of 5 s at least
  EXPECT_DOUBLE_EQ(minutes[0].seconds, 60);
  EXPECT_EQ(database->loadApps(Apps::hours, noon)->size(), 50u);
}

}  // namespace
}  // namespace omnira
