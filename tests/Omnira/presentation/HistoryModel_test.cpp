// The History page's model on a real history file written through the core's database:
// the span picks its rows, the export is read back, and deleting keeps what it should.

#include "Omnira/presentation/HistoryModel.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <QStringList>

#include <filesystem>
#include <fstream>
#include <numeric>
#include <sstream>

#include "OmniraCore/history/HistoryDatabase.h"
#include "OmniraCore/history/HistoryExport.h"
#include "tests/Omnira/QtTestApp.h"

namespace omnira::presentation {
namespace {

namespace fs = std::filesystem;
using Table = HistoryDatabase::SystemTable;
using AppTable = HistoryDatabase::AppTable;

class HistoryModelTest : public ::testing::Test {
 protected:
  void SetUp() override {
    testing::qtTestApp();
    root_ = fs::temp_directory_path() / ("omnira-history-model-" + std::to_string(::getpid()));
    fs::remove_all(root_);
    fs::create_directories(root_ / "data");
  }
  void TearDown() override { fs::remove_all(root_); }

  AppPaths paths() const { return AppPaths(root_ / "data", root_ / "config", root_ / "Downloads"); }

  // The machine's hour and five minutes, and one app's hour and day, `ago` before now.
  void record(HistoryDatabase& db, std::chrono::seconds ago, double cores, int64_t diskRead, const std::string& app) {
    const Date at = now_ - ago;
    const auto system = [&](Table table) {
      HistoryDatabase::SystemRow row;
      row.start = HistoryDatabase::periodStart(table, at);
      row.seconds = 300;
      row.cpuLoadSeconds = cores * 300;
      row.memoryByteSeconds = 2e9 * 300;
      row.diskBytesRead = diskRead;
      row.networkBytesIn = 1000;
      return std::pair{table, row};
    };
    const auto appRow = [&](AppTable table) {
      HistoryDatabase::AppRow row;
      row.start = HistoryDatabase::periodStart(table, at);
      row.appId = "exec:/usr/bin/" + app;
      row.name = app;
      row.kind = "other";
      row.seconds = 300;
      row.cpuSeconds = cores * 300;
      row.memoryByteSeconds = 1e8 * 300;
      return std::pair{table, row};
    };
    ASSERT_TRUE(db.write({system(Table::hours), system(Table::fiveMinutes)}, {appRow(AppTable::hours), appRow(AppTable::days)}));
  }

  // Runs the loop until the model's signal has come `count` times.
  static bool waitFor(int& seen, int count) {
    return testing::pumpUntil([&] { return seen >= count; });
  }

  static double sum(const QList<qreal>& values) { return std::accumulate(values.begin(), values.end(), 0.0); }

  static QStringList appNames(const HistoryModel& model) {
    QStringList names;
    for (const auto& app : model.topApps()) names << app.toMap().value("name").toString();
    return names;
  }

  fs::path root_;
  Date now_ = std::chrono::system_clock::now();
};

TEST_F(HistoryModelTest, SpansExportAndDeleteWorkOnTheFile) {
  HistoryModel model(paths(), 30, [this] { return now_; });
  int loaded = 0, exported = 0, deleted = 0;
  QObject::connect(&model, &HistoryModel::loaded, [&] { ++loaded; });
  QObject::connect(&model, &HistoryModel::exportFinished, [&] { ++exported; });
  QObject::connect(&model, &HistoryModel::deleteFinished, [&] { ++deleted; });

  // No file yet: a sentence, and reading does not make one.
  model.reload();
  ASSERT_TRUE(waitFor(loaded, 1));
  EXPECT_FALSE(model.hasRows());
  EXPECT_EQ(model.emptyText().toStdString(), "No history has been recorded yet.");
  EXPECT_FALSE(fs::exists(paths().dataFile("history.sqlite")));

  {
    auto db = HistoryDatabase::open(paths().dataFile("history.sqlite"));
    ASSERT_TRUE(db);
    record(**db, std::chrono::hours(2), 1.5, 4000, "recent");
    record(**db, std::chrono::hours(24 * 3), 0.5, 2000, "midweek");
    record(**db, std::chrono::hours(24 * 40), 2.0, 1000, "old");
  }

  // A day: 24 hours, only the recent row, in the hour it was recorded.
  model.reload();
  ASSERT_TRUE(waitFor(loaded, 2));
  ASSERT_TRUE(model.hasRows());
  ASSERT_EQ(model.cpuSeries().size(), 24);
  const int64_t recentHour = HistoryDatabase::periodStart(Table::hours, now_ - std::chrono::hours(2));
  const int64_t thisHour = HistoryDatabase::periodStart(Table::hours, now_);
  EXPECT_DOUBLE_EQ(model.cpuSeries()[23 - static_cast<int>((thisHour - recentHour) / 3600)], 1.5);
  EXPECT_DOUBLE_EQ(sum(model.cpuSeries()), 1.5);
  EXPECT_DOUBLE_EQ(sum(model.diskReadSeries()), 4000);
  EXPECT_EQ(appNames(model), QStringList{"recent"});

  // A week: seven days, the midweek row too; a month leaves out the 40-day-old one, a year has it.
  model.setSpan("week");
  ASSERT_TRUE(waitFor(loaded, 3));
  EXPECT_EQ(model.cpuSeries().size(), 7);
  EXPECT_DOUBLE_EQ(sum(model.diskReadSeries()), 6000);
  EXPECT_EQ(appNames(model), (QStringList{"recent", "midweek"}));  // by CPU time
  model.setSpan("month");
  ASSERT_TRUE(waitFor(loaded, 4));
  EXPECT_EQ(model.cpuSeries().size(), 30);
  EXPECT_DOUBLE_EQ(sum(model.diskReadSeries()), 6000);
  model.setSpan("year");
  ASSERT_TRUE(waitFor(loaded, 5));
  EXPECT_EQ(model.cpuSeries().size(), 365);
  EXPECT_DOUBLE_EQ(sum(model.diskReadSeries()), 7000);
  EXPECT_EQ(appNames(model), (QStringList{"old", "recent", "midweek"}));
  model.setSpan("fortnight");  // not a span: nothing changes
  EXPECT_EQ(model.span().toStdString(), "year");

  // The export writes the shown span with the core's writer; a second one is numbered.
  model.setSpan("week");
  ASSERT_TRUE(waitFor(loaded, 6));
  model.exportCSV();
  ASSERT_TRUE(waitFor(exported, 1));
  EXPECT_TRUE(model.problem().isEmpty()) << model.problem().toStdString();
  const QStringList files = model.exported().split('\n');
  ASSERT_EQ(files.size(), 2);
  EXPECT_EQ(fs::path(files[0].toStdString()).parent_path(), root_ / "Downloads");
  std::ifstream machine(files[0].toStdString(), std::ios::binary);
  std::stringstream text;
  text << machine.rdbuf();
  std::vector<std::string> lines;
  for (std::string line; std::getline(text, line);) lines.push_back(line);
  ASSERT_EQ(lines.size(), 3u) << text.str();  // the header and the two five-minute rows of the week
  EXPECT_EQ(lines[0] + "\n", HistoryExport::record(HistoryExport::machineColumns()));  // CRLF: getline kept the CR
  EXPECT_EQ(lines[1].substr(0, 16), HistoryExport::localMinute(HistoryDatabase::periodStart(Table::fiveMinutes, now_ - std::chrono::hours(72))));
  model.exportCSV();
  ASSERT_TRUE(waitFor(exported, 2));
  EXPECT_NE(model.exported().split('\n')[0].indexOf(" (2).csv"), -1) << model.exported().toStdString();
  EXPECT_TRUE(fs::exists(files[0].toStdString())) << "the first export is left alone";

  // Older than the 30 days kept: the 40-day-old rows go, the rest stay.
  const int beforeDelete = loaded;
  model.deleteOlder();
  ASSERT_TRUE(waitFor(deleted, 1));
  ASSERT_TRUE(waitFor(loaded, beforeDelete + 1));  // read again after deleting
  model.setSpan("year");
  ASSERT_TRUE(waitFor(loaded, beforeDelete + 2));
  EXPECT_DOUBLE_EQ(sum(model.diskReadSeries()), 6000);
  EXPECT_EQ(appNames(model), (QStringList{"recent", "midweek"}));

  // All: every row, and the ledger and insights files, as the command deletes them.
  std::ofstream(paths().dataFile("usage.json")) << "{}";
  std::ofstream(paths().dataFile("insights.json")) << "{}";
  model.deleteAll();
  ASSERT_TRUE(waitFor(deleted, 2));
  ASSERT_TRUE(waitFor(loaded, beforeDelete + 3));
  EXPECT_FALSE(model.hasRows());
  EXPECT_EQ(model.emptyText().toStdString(), "The history holds nothing for the last year.");
  EXPECT_FALSE(fs::exists(paths().dataFile("usage.json")));
  EXPECT_FALSE(fs::exists(paths().dataFile("insights.json")));
  auto db = HistoryDatabase::open(paths().dataFile("history.sqlite"));
  ASSERT_TRUE(db);
  auto left = (*db)->system(Table::hours, 0, INT64_MAX);
  ASSERT_TRUE(left);
  EXPECT_TRUE(left->empty());
}

}  // namespace
}  // namespace omnira::presentation
