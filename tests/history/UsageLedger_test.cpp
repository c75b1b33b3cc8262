#include "OmniraCore/history/UsageLedger.h"

#include <gtest/gtest.h>

#include <fstream>

#include "tests/history/HistoryFiles.h"

namespace omnira {
namespace {

using history_testing::app;
using history_testing::at;

constexpr int64_t noon = 1'795'262'400;
constexpr int64_t day = 86'400;

TEST(UsageLedger, AddsEachTickToTheAppsOfItsLocalDay) {
  UsageLedger ledger;
  ledger.record(5, at(noon));
  ledger.record({app("a", "A", 50, 100, 2), app("b", "B", 10, 5)}, TickGroups::fresh, 5, at(noon));
  ledger.record({app("a", "A renamed", 150, 300, 3)}, TickGroups::fresh, 10, at(noon + 10));
  ledger.record({app("a", "A", 150, 900, 3)}, TickGroups::fresh, 0, at(noon + 20));  // no interval: nothing
  ledger.record({app("a", "A", 100, 50, 1)}, TickGroups::fresh, 5, at(noon + day));

  const auto& today = ledger.day(UsageLedger::dayKey(at(noon)));
  EXPECT_DOUBLE_EQ(today.seconds, 5);
  ASSERT_EQ(today.apps.size(), 2u);
  const auto& a = today.apps.at("a");
  EXPECT_EQ(a.name, "A renamed");
  EXPECT_DOUBLE_EQ(a.seconds, 15);
  EXPECT_DOUBLE_EQ(a.cpuSeconds, 0.5 * 5 + 1.5 * 10);
  EXPECT_DOUBLE_EQ(a.energyJoules, 5);
  EXPECT_EQ(a.peakMemoryBytes, 300u);
  EXPECT_EQ(ledger.day(UsageLedger::dayKey(at(noon + day))).apps.at("a").peakMemoryBytes, 50u);
  EXPECT_TRUE(ledger.day("1999-01-01").apps.empty());
  EXPECT_EQ(UsageLedger::dayKey(at(noon)).size(), 10u);
}

TEST(UsageLedger, EnergyOfOneProcessSampleCountsOnceHoweverManyTicksRepeatIt) {
  UsageLedger ledger;
  const std::vector<AppGroup> groups{app("a", "A", 50, 100, 12)};
  for (int i = 0; i < 12; ++i) {
    ledger.record(groups, i % 6 == 0 ? TickGroups::fresh : TickGroups::repeated, 5, at(noon + 5 * i));
  }
  const auto& a = ledger.day(UsageLedger::dayKey(at(noon))).apps.at("a");
  EXPECT_DOUBLE_EQ(a.energyJoules, 24);
  EXPECT_DOUBLE_EQ(a.cpuSeconds, 0.5 * 60);
  EXPECT_DOUBLE_EQ(a.seconds, 60);
}

TEST(UsageLedger, KeepsOnlyTheLastDays) {
  UsageLedger ledger;
  for (int i = 0; i < UsageLedger::keptDays + 5; ++i) ledger.record(1, at(noon + i * day));
  EXPECT_EQ(ledger.days().size(), static_cast<size_t>(UsageLedger::keptDays));
  EXPECT_EQ(ledger.days().begin()->first, UsageLedger::dayKey(at(noon + 5 * day)));
}

struct UsageLedgerFile : history_testing::HistoryFolder {
  std::filesystem::path usage() { return AppPaths(folder, folder / "config").dataFile("usage.json"); }
};

TEST_F(UsageLedgerFile, SavesAndLoadsWithFixedKeys) {
  EXPECT_TRUE(UsageLedger::load(usage()).value().days().empty());  // no file yet
  UsageLedger ledger;
  ledger.record(5, at(noon));
  ledger.record({app("/x.desktop", "X", 20, 1234, 0.5)}, TickGroups::fresh, 5, at(noon));
  ASSERT_TRUE(ledger.save(usage()));
  EXPECT_EQ(UsageLedger::load(usage()).value(), ledger);

  auto json = ledger.toJSON();
  const auto& entry = json["days"][UsageLedger::dayKey(at(noon))]["apps"]["/x.desktop"];
  EXPECT_EQ(entry.dump(), R"({"name":"X","seconds":5.0,"cpuSeconds":1.0,"energyJoules":0.5,"peakMemoryBytes":1234})");
}

TEST_F(UsageLedgerFile, AMalformedFileIsAFailureNamingIt) {
  std::ofstream(usage()) << R"({"days": {"2026-11-21": {"apps": {"x": {"name": "X"}}}}})";
  auto incomplete = UsageLedger::load(usage());
  ASSERT_FALSE(incomplete);
  EXPECT_NE(incomplete.error().message.find("usage.json"), std::string::npos);
  std::ofstream(usage(), std::ios::trunc) << "not json";
  EXPECT_FALSE(UsageLedger::load(usage()));
}

}  // namespace
}  // namespace omnira
