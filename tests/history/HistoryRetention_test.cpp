#include "OmniraCore/history/HistoryRetention.h"

#include <gtest/gtest.h>

#include <fstream>

#include "tests/history/HistoryFiles.h"

namespace omnira {
namespace {

using history_testing::at;
using history_testing::noon;
using System = HistoryDatabase::SystemTable;
using Apps = HistoryDatabase::AppTable;
constexpr int64_t day = 86'400;

TEST(HistoryRetention, EachTableKeepsItsOwnSpanOfTheChosenDays) {
  const Date now = at(noon + 125);  // inside a minute, not on any boundary
  auto year = HistoryRetention::bounds(365, now);
  EXPECT_EQ(year.systemMinutes, noon + 120 - 2 * day);
  EXPECT_EQ(year.systemFiveMinutes, noon - 90 * day);
  EXPECT_EQ(year.systemHours, noon - 365 * day);
  EXPECT_EQ(year.appHours, noon - 30 * day);
  EXPECT_EQ(year.appDays, HistoryDatabase::periodStart(Apps::days, now - std::chrono::hours(24 * 365)));

  // A shorter choice caps every span, and hour rows of apps never outlive day rows.
  for (int64_t days : HistoryRetention::choices) {
    auto bounds = HistoryRetention::bounds(days, now);
    EXPECT_EQ(bounds.systemHours, noon - days * day);
    EXPECT_GE(bounds.appHours, bounds.appDays) << days;
  }
}

struct HistoryPrunerFile : history_testing::HistoryFolder {};

TEST_F(HistoryPrunerFile, TheSettingSnapsToTheNearestChoice) {
  auto days = [&](const std::string& json) {
    std::ofstream(folder / "settings.json", std::ios::trunc) << json;
    return HistoryRetention::days(Settings::load(folder / "settings.json"));
  };
  EXPECT_EQ(days("{}"), 30);
  EXPECT_EQ(days(R"({"historyDays": 400})"), 365);
  EXPECT_EQ(days(R"({"historyDays": 1})"), 30);
}

TEST_F(HistoryPrunerFile, PrunesAtStartThenAtMostOnceAnHourAndDeletingOlderHistoryHonoursTheSpanAtOnce) {
  auto database = open();
  ASSERT_TRUE(database);
  auto writeOldMinute = [&](int64_t start) {
    ASSERT_TRUE(database->write({{System::minutes, {.start = start}}}, {}));
  };
  HistoryPruner pruner;
  writeOldMinute(noon - 3 * day);
  EXPECT_TRUE(pruner.pruneIfDue(*database, 30, at(noon)).value());
  EXPECT_TRUE(database->system(System::minutes, 0, noon)->empty());

  writeOldMinute(noon - 3 * day);
  EXPECT_FALSE(pruner.pruneIfDue(*database, 30, at(noon + 3599)).value());
  EXPECT_EQ(database->system(System::minutes, 0, noon)->size(), 1u);
  EXPECT_TRUE(pruner.pruneIfDue(*database, 30, at(noon + 3600)).value());
  EXPECT_TRUE(database->system(System::minutes, 0, noon)->empty());
  auto log = file;
  log += "-wal";
  EXPECT_EQ(std::filesystem::file_size(log), 0u);  // folded back into the file

  const HistoryDatabase::AppRow old{.start = noon - 100 * day, .appId = "a", .name = "A", .kind = "app"};
  auto recent = old;
  recent.start = noon - 60 * day;
  ASSERT_TRUE(database->write({}, {{Apps::days, old}, {Apps::days, recent}}));
  ASSERT_TRUE(HistoryRetention::deleteOlder(*database, 90, at(noon)));
  EXPECT_EQ(database->apps(Apps::days, 0, noon).value(), std::vector{recent});
  ASSERT_TRUE(HistoryRetention::deleteOlder(*database, 30, at(noon)));
  EXPECT_TRUE(database->apps(Apps::days, 0, noon)->empty());
}

}  // namespace
}  // namespace omnira
