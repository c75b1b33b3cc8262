// The history file on disk going wrong: a damaged page, a full disk, the file removed
// under an open database. Every case runs on real SQLite files.

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include "OmniraCore/history/HistoryDatabase.h"
#include "tests/history/CapturedLog.h"
#include "tests/history/HistoryFiles.h"
#include "tests/support/Refused.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;
using history_testing::app;
using history_testing::at;
using history_testing::noon;
using history_testing::tick;
using System = HistoryDatabase::SystemTable;

struct HistoryRecovery : history_testing::HistoryFolder {
  std::vector<fs::path> setAside() {
    std::vector<fs::path> found;
    for (const auto& entry : fs::directory_iterator(folder)) {
      const std::string name = entry.path().filename().string();
      const bool log = name.ends_with("-wal") || name.ends_with("-shm");
      if (name.starts_with("history.sqlite.bad-") && !log) found.push_back(entry.path());
    }
    return found;
  }
  std::vector<AppGroup> manyApps(int count, const std::string& prefix) {
    std::vector<AppGroup> groups;
    for (int i = 0; i < count; ++i)
      groups.push_back(app(fmt::format("/usr/share/applications/{}-{}.desktop", prefix, i), std::string(40, 'n'), 1, 100));
    return groups;
  }
};

TEST_F(HistoryRecovery, ADamagedFileIsKeptAsideAndANewHistoryStartsSayingSoOnce) {
  {
    auto database = open();
    ASSERT_TRUE(database);
    // Enough apps for the app tables to span many pages.
    ASSERT_TRUE(database->record(tick(5), manyApps(400, "app"), TickGroups::fresh, at(noon + 1)));
  }  // the last connection folds the log back into the file
  ASSERT_FALSE(fs::exists(file.string() + "-wal"));
  const auto size = fs::file_size(file);
  ASSERT_GE(size, 16u * 4096);
  {
    // Garbage over a page in the middle, as a failing disk or a stray write leaves it.
    std::fstream out(file, std::ios::in | std::ios::out | std::ios::binary);
    out.seekp(static_cast<std::streamoff>(size / 4096 / 2 * 4096));
    out << std::string(4096, '\x5a');
  }
  const std::string damaged = contents(file);

  testing::CapturedLog log;
  auto database = open();
  ASSERT_TRUE(database);
  EXPECT_TRUE(database->isEmpty().value());
  ASSERT_TRUE(database->record(tick(5), {app("a", "A", 1, 1)}, TickGroups::fresh, at(noon + 6)));

  const auto aside = setAside();
  ASSERT_EQ(aside.size(), 1u);
  EXPECT_EQ(contents(aside[0]), damaged);  // nothing of it is lost
  const auto said = log.containing("damaged");
  ASSERT_EQ(said.size(), 1u) << log.lines().size();

  // A file that is not a database at all goes aside the same way; a second one in the
  // same second gets a name of its own.
  database.reset();
  removeHistory();
  { std::ofstream(file) << std::string(4096, 'x'); }
  ASSERT_TRUE(open());
  EXPECT_EQ(setAside().size(), 2u);
}

TEST_F(HistoryRecovery, AFullDiskIsLoggedOnceWhenWritingFailsAndOnceWhenItWorksAgain) {
  // A cap on the file's pages stands in for the disk: past it SQLite fails as on a full one.
  auto opened = HistoryDatabase::open(file, {.maxPages = 16});
  ASSERT_TRUE(opened) << opened.error().message;
  auto& database = **opened;
  testing::CapturedLog log;

  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(testing::refusedSaying(database.record(tick(5), manyApps(300, "full"), TickGroups::fresh, at(noon + 5 * i)),
                                       "full"));
  }
  auto lines = log.lines();
  ASSERT_EQ(lines.size(), 1u) << fmt::format("{}", fmt::join(lines, "\n"));
  EXPECT_NE(lines[0].find("full"), std::string::npos) << lines[0];

  // Space again (fewer rows fit in the pages there are): one line says so, then silence.
  ASSERT_TRUE(database.record(tick(5), {app("a", "A", 1, 1)}, TickGroups::fresh, at(noon + 20)));
  ASSERT_TRUE(database.record(tick(5), {app("a", "A", 1, 1)}, TickGroups::fresh, at(noon + 25)));
  lines = log.lines();
  ASSERT_EQ(lines.size(), 2u) << fmt::format("{}", fmt::join(lines, "\n"));
  EXPECT_EQ(lines[1], fmt::format("info History is written to {} again.", file.string()));
}

}  // namespace
}  // namespace omnira
