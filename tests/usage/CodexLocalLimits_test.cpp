#include "OmniraCore/usage/CodexLocalLimits.h"

#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "tests/usage/UsageLogFiles.h"
#include "tests/platform/linux/TempTree.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;

const fs::path fixtures = fs::path(OMNIRA_FIXTURES) / "usage" / "codex-limits";
const Date now = dateFromSecondsSinceEpoch(1795176000);  // 2026-11-20 12:00 UTC

Date at(double seconds) { return dateFromSecondsSinceEpoch(seconds); }

// Copies of the fixture homes whose session logs carry chosen modification times (git keeps none).
struct CodexLocalLimitsTest : ::testing::Test {
  platform::TempTree tree{fixtures};
  const fs::path& root = tree.root();

  void SetUp() override {
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
      if (entry.path().extension() == ".jsonl") touch(entry.path(), now - std::chrono::minutes(30));
    }
  }

  static void touch(const fs::path& file, Date when) {
    const auto nanoseconds = std::chrono::duration_cast<std::chrono::nanoseconds>(when.time_since_epoch()).count();
    const timespec times[2] = {{nanoseconds / 1000000000, nanoseconds % 1000000000},
                               {nanoseconds / 1000000000, nanoseconds % 1000000000}};
    ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0) << file;
  }
  fs::path home(const std::string& name) const { return root / name; }
};

TEST_F(CodexLocalLimitsTest, TheNewestCompleteReadingOfTheNewestLogWins) {
  const auto sessions = home("current") / "sessions" / "2026" / "11";
  touch(sessions / "19" / "rollout-2026-11-19T08-00-00-old.jsonl", now - std::chrono::hours(20));
  auto account = CodexLocalLimits::read(std::vector{home("current")}, now);
  ASSERT_TRUE(account.has_value());
  EXPECT_EQ(account->label, "ann@example.com");
  EXPECT_EQ(account->plan, "pro");  // the reading's own plan before the sign-in's
  ASSERT_EQ(account->windows.size(), 2u);
  EXPECT_EQ(account->windows[0], UsageWindow(UsageWindow::Kind::session, std::nullopt, 0.125, at(1795190400), 18000));
  EXPECT_EQ(account->windows[1], UsageWindow(UsageWindow::Kind::week, std::nullopt, 0.40, at(1795500000), 604800));

  // Once the older file is the one written last, its reading is the newest.
  touch(sessions / "19" / "rollout-2026-11-19T08-00-00-old.jsonl", now - std::chrono::minutes(1));
  account = CodexLocalLimits::read(std::vector{home("current")}, now);
  ASSERT_TRUE(account.has_value());
  EXPECT_DOUBLE_EQ(account->windows[0].used(), 0.5);

  // Logs untouched for more than eight days hold nothing current.
  for (const auto& entry : fs::recursive_directory_iterator(home("current")))
    if (entry.is_regular_file()) touch(entry.path(), now - std::chrono::hours(24 * 9));
  EXPECT_FALSE(CodexLocalLimits::read(std::vector{home("current")}, now).has_value());
}

TEST_F(CodexLocalLimitsTest, WindowsAreToldByLengthAndOlderResetsCountFromTheLine) {
  auto older = CodexLocalLimits::read(std::vector{home("older")}, now);
  ASSERT_TRUE(older.has_value());
  EXPECT_EQ(older->label, "Codex on this computer");
  ASSERT_EQ(older->windows.size(), 2u);
  // No length: the slot decides. Resets count from the line's 11:00.
  EXPECT_EQ(older->windows[0], UsageWindow(UsageWindow::Kind::session, std::nullopt, 0.2, at(1795176000 + 1800)));
  // A day is nearer five hours than a week.
  EXPECT_EQ(older->windows[1], UsageWindow(UsageWindow::Kind::session, std::nullopt, 0.05, at(1795176000 + 3600), 86400));

  auto monthly = CodexLocalLimits::read(std::vector{home("monthly")}, now);
  ASSERT_TRUE(monthly.has_value());
  ASSERT_EQ(monthly->windows.size(), 1u);
  EXPECT_EQ(monthly->windows[0].kind(), UsageWindow::Kind::month);

  auto passed = CodexLocalLimits::read(std::vector{home("passed")}, now);
  ASSERT_TRUE(passed.has_value());
  ASSERT_EQ(passed->windows.size(), 1u);
  EXPECT_EQ(passed->windows[0].kind(), UsageWindow::Kind::week);

  EXPECT_FALSE(CodexLocalLimits::read(std::vector{home("all-passed")}, now).has_value());
  EXPECT_FALSE(CodexLocalLimits::read(std::vector{home("none")}, now).has_value());

  // Several homes: the newest log of any of them.
  touch(home("monthly") / "sessions" / "2026" / "11" / "20" / "rollout-2026-11-20T09-00-00-month.jsonl",
        now - std::chrono::minutes(2));
  auto both = CodexLocalLimits::read(std::vector{home("older"), home("monthly")}, now);
  ASSERT_TRUE(both.has_value());
  EXPECT_EQ(both->windows[0].kind(), UsageWindow::Kind::month);
}

TEST_F(CodexLocalLimitsTest, ReadingBackwardsCopesWithLongLinesAndChunkEdges) {
  const fs::path log = home("older") / "sessions" / "2026" / "11" / "20" / "rollout-2026-11-20T09-00-00-older.jsonl";
  std::string reading;
  {
    std::ifstream in(log);
    std::string line;
    while (std::getline(in, line)) reading = line;  // the limits line is the last
  }
  // The limits line straddles the edge of the last 64 KiB read from the end.
  const size_t filler = 65536 + reading.size() / 2 - reading.size() - 2;
  std::ofstream(log, std::ios::trunc) << reading << "\n" << std::string(filler, 'x') << "\n";
  touch(log, now - std::chrono::minutes(5));
  auto account = CodexLocalLimits::read(std::vector{home("older")}, now);
  ASSERT_TRUE(account.has_value());
  EXPECT_DOUBLE_EQ(account->windows[0].used(), 0.2);

  // A line longer than any limits line (a tool's output) is passed over, whatever it holds.
  std::ofstream(log, std::ios::app) << "{\"rate_limits\":{" << std::string(3 * 1024 * 1024, 'y') << "\n";
  touch(log, now - std::chrono::minutes(5));
  account = CodexLocalLimits::read(std::vector{home("older")}, now);
  ASSERT_TRUE(account.has_value());
  EXPECT_DOUBLE_EQ(account->windows[0].used(), 0.2);
}

TEST_F(CodexLocalLimitsTest, TheEnvironmentNamesTheHomes) {
  const auto environment = usage_testing::environment(
      {{"CODEX_HOME", home("none").string() + "," + home("passed").string()}, {"HOME", root.string()}});
  touch(home("none") / "sessions" / "2026" / "11" / "20" / "rollout-2026-11-20T06-00-00-none.jsonl",
        now - std::chrono::hours(2));
  auto account = CodexLocalLimits::read(environment, now);
  ASSERT_TRUE(account.has_value());
  EXPECT_EQ(account->windows.size(), 1u);

  // The newest reading stands even when it names no window: older ones are older still.
  touch(home("none") / "sessions" / "2026" / "11" / "20" / "rollout-2026-11-20T06-00-00-none.jsonl",
        now - std::chrono::minutes(1));
  EXPECT_FALSE(CodexLocalLimits::read(environment, now).has_value());
}

}  // namespace
}  // namespace omnira
