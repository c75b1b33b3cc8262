#include "OmniraCore/history/UsageLedger.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <fstream>

#include "tests/history/HistoryFiles.h"
#include "tests/support/Refused.h"

namespace omnira {
namespace {

using history_testing::app;
using history_testing::at;
using history_testing::noon;
constexpr int64_t day = 86'400;

TEST(UsageLedger, AddsEachTickToTheAppsOfItsLocalDayAndKeepsOnlyTheLastDays) {
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
  EXPECT_DOUBLE_EQ(a.seconds, 15);
  EXPECT_DOUBLE_EQ(a.cpuSeconds, 0.5 * 5 + 1.5 * 10);
  EXPECT_EQ(ledger.day(UsageLedger::dayKey(at(noon + day))).apps.at("a").peakMemoryBytes, 50u);

  // Energy of one process sample counts once however many ticks repeat it; rates count every tick.
  UsageLedger repeated;
  for (int i = 0; i < 12; ++i)
    repeated.record({app("a", "A", 50, 100, 12)}, i % 6 == 0 ? TickGroups::fresh : TickGroups::repeated, 5,
                    at(noon + 5 * i));
  const auto& r = repeated.day(UsageLedger::dayKey(at(noon))).apps.at("a");
  EXPECT_DOUBLE_EQ(r.energyJoules, 24);

  // Only the last days are kept.
  for (int i = 2; i < UsageLedger::keptDays + 5; ++i) ledger.record(1, at(noon + i * day));
  EXPECT_EQ(ledger.days().begin()->first, UsageLedger::dayKey(at(noon + 5 * day)));
}

struct UsageLedgerFile : history_testing::HistoryFolder {
  std::filesystem::path usage() { return AppPaths(folder, folder / "config").dataFile("usage.json"); }
};

TEST_F(UsageLedgerFile, SavesWithFixedKeysAndABadEntryCostsOnlyItselfWithTheFileKeptBeforeTheSave) {
  EXPECT_TRUE(UsageLedger::load(usage()).value().days().empty());  // no file yet
  UsageLedger ledger;
  for (int d = 0; d < 5; ++d) ledger.record({app("/x.desktop", "X", 20, 1234, 0.5)}, TickGroups::fresh, 5, at(noon + d * day));
  ASSERT_TRUE(ledger.save(usage()));
  EXPECT_EQ(UsageLedger::load(usage()).value(), ledger);
  auto json = ledger.toJSON();
  EXPECT_EQ(json["days"][UsageLedger::dayKey(at(noon))]["apps"]["/x.desktop"].dump(),
            R"({"name":"X","seconds":5.0,"cpuSeconds":1.0,"energyJoules":0.5,"peakMemoryBytes":1234})");

  // One app entry cut short.
  json["days"][UsageLedger::dayKey(at(noon))]["apps"]["/broken.desktop"] = {{"name", "Broken"}};
  const std::string original = json.dump();
  std::ofstream(usage()) << original;

  auto loaded = UsageLedger::load(usage());
  ASSERT_TRUE(loaded) << loaded.error().message;
  EXPECT_EQ(*loaded, ledger);
  ASSERT_TRUE(loaded->save(usage()));
  EXPECT_EQ(UsageLedger::load(usage()).value().days().size(), 5u);
  const auto aside = usage().string() + ".bad-" + formatLocal(std::chrono::system_clock::now(), "%Y-%m-%d");
  std::ifstream kept(aside);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(kept), {}), original);

  // Not a ledger at all: moved aside, named in the failure, and the next save starts afresh.
  std::ofstream(usage(), std::ios::trunc) << "not json";
  EXPECT_TRUE(testing::refusedSaying(UsageLedger::load(usage()), aside + "-2"));
  EXPECT_FALSE(std::filesystem::exists(usage()));
}

}  // namespace
}  // namespace omnira
