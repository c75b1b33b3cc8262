// The history kept open through what happens to its file and folder, on real files, a
// real lock and a clock the test moves by hand.

#include "Omnira/HistoryKeeper.h"

#include <gtest/gtest.h>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "tests/history/CapturedLog.h"
#include "tests/history/HistoryFiles.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;
using history_testing::app;
using history_testing::at;
using history_testing::noon;
using history_testing::tick;

struct HistoryKeeperTest : history_testing::HistoryFolder {
  fs::path lock() const { return folder / InstanceLock::fileName; }

  // Whether a tick writes into the file that is at the path now, as another program reads it.
  bool recordsIntoTheFile(HistoryKeeper& keeper, int64_t second) {
    auto* database = keeper.database();
    if (!database || !database->record(tick(5), {app("a", "A", 1, 1)}, TickGroups::fresh, at(second))) return false;
    auto reader = HistoryDatabase::open(file);
    if (!reader) return false;
    auto row = (*reader)->loadSystem(HistoryDatabase::SystemTable::minutes, second - second % 60);
    return row && row->has_value();
  }
};

TEST_F(HistoryKeeperTest, AHistoryThatCannotBeOpenedIsTriedAgainWithBackOffAndSaidOnceOffAndOnceBack) {
  fs::create_directories(file);  // a folder where the file should be: every open fails
  testing::CapturedLog log;
  HistoryKeeper keeper(file, lock());
  keeper.open(100);
  EXPECT_EQ(keeper.database(), nullptr);
  ASSERT_EQ(keeper.nextAttempt(), 105);

  // 5 s, then twice as long each time, up to five minutes.
  std::vector<double> waits;
  double now = 105;
  for (int i = 0; i < 7; ++i) {
    keeper.check(now);
    ASSERT_EQ(keeper.database(), nullptr);
    waits.push_back(*keeper.nextAttempt() - now);
    now = *keeper.nextAttempt();
  }
  EXPECT_EQ(waits, (std::vector<double>{10, 20, 40, 80, 160, 300, 300}));

  fs::remove(file);  // the obstacle is gone
  const auto before = keeper.generation();
  keeper.check(now);
  ASSERT_NE(keeper.database(), nullptr);
  EXPECT_NE(keeper.generation(), before);
  EXPECT_TRUE(recordsIntoTheFile(keeper, noon));
  keeper.check(now + 5);

  const auto lines = log.lines();
  ASSERT_EQ(lines.size(), 2u) << fmt::format("{}", fmt::join(lines, "\n"));
  EXPECT_NE(lines[0].find("History is off for now: cannot open " + file.string()), std::string::npos) << lines[0];
  EXPECT_EQ(lines[1], fmt::format("info History is recorded again in {}.", file.string()));
}

TEST_F(HistoryKeeperTest, ARemovedDataFolderIsMadeAgainWithTheLockAndANewHistory) {
  HistoryKeeper keeper(file, lock());
  keeper.open(0);
  ASSERT_TRUE(recordsIntoTheFile(keeper, noon));
  testing::CapturedLog log;

  fs::remove_all(folder);
  keeper.check(5);
  ASSERT_NE(keeper.database(), nullptr);
  EXPECT_TRUE(keeper.database()->isEmpty().value());
  EXPECT_TRUE(recordsIntoTheFile(keeper, noon + 60));
  EXPECT_FALSE(InstanceLock::acquire(lock()));
  keeper.check(10);
  keeper.check(15);
  ASSERT_EQ(log.lines().size(), 1u) << fmt::format("{}", fmt::join(log.lines(), "\n"));
  EXPECT_NE(log.lines()[0].find("The data folder " + folder.string() + " was removed"), std::string::npos);

  // The history file alone removed: a new one in its place.
  removeHistory();
  keeper.check(20);
  EXPECT_TRUE(recordsIntoTheFile(keeper, noon + 120));
}

TEST_F(HistoryKeeperTest, ARemovedLockFileIsTakenAgainUnlessAnotherOmniraTookItFirst) {
  // The program's own lock, taken before the store starts.
  auto program = InstanceLock::acquire(lock());
  ASSERT_TRUE(program);
  HistoryKeeper keeper(file, lock());
  keeper.open(0);
  ASSERT_NE(keeper.database(), nullptr);

  fs::remove(lock());
  keeper.check(5);
  EXPECT_TRUE(fs::exists(lock()));
  EXPECT_FALSE(InstanceLock::acquire(lock()));
  EXPECT_NE(keeper.database(), nullptr);

  // The folder removed, and a second start was quicker to take the new lock: this one
  // stops writing rather than share its files.
  fs::remove_all(folder);
  auto other = InstanceLock::acquire(lock());
  ASSERT_TRUE(other);
  testing::CapturedLog log;
  keeper.check(10);
  EXPECT_EQ(keeper.database(), nullptr);
  keeper.check(1000);
  EXPECT_EQ(keeper.database(), nullptr);
  ASSERT_EQ(log.containing("already running").size(), 1u) << fmt::format("{}", fmt::join(log.lines(), "\n"));
}

}  // namespace
}  // namespace omnira
