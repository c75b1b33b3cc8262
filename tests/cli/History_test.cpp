// `omnira history` on a history file written through the database's own tick path,
// run as a person runs it, with its own data and download folders.

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "OmniraCore/history/HistoryDatabase.h"
#include "tests/cli/CommandRun.h"
#include "tests/history/HistoryFiles.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;

struct HistoryCommand : ::testing::Test {
  fs::path root = fs::temp_directory_path() / ("omnira-history-cli-" + std::to_string(::getpid()));
  void SetUp() override {
    fs::remove_all(root);
    fs::create_directories(root / "home");
  }
  void TearDown() override { fs::remove_all(root); }

  testing::CommandRun run(const std::string& arguments, const std::string& input = "", const std::string& zone = "") {
    const std::string command = (zone.empty() ? "" : "TZ='" + zone + "' ") + "HOME=" + (root / "home").string() + " XDG_DATA_HOME=" + (root / "data").string() +
                                " XDG_CONFIG_HOME=" + (root / "config").string() +
                                " XDG_DOWNLOAD_DIR=" + (root / "downloads").string() + " " + OMNIRA_CLI_PATH + " " +
                                arguments + (input.empty() ? " </dev/null" : " <<< '" + input + "'") + " 2>&1";
    return testing::runShell("bash -c \"" + command + "\"");
  }

  // Two hours of 5-second ticks ending now: the machine one core busy, two apps.
  void record() {
    auto db = HistoryDatabase::open(root / "data" / "Omnira" / "history.sqlite");
    ASSERT_TRUE(db.ok()) << db.error().message;
    const Date end = std::chrono::system_clock::now();
    for (Date at = end - std::chrono::hours(2); at <= end; at += std::chrono::seconds(5)) {
      SystemSample s;
      s.timestamp = at;
      s.interval = 5;
      s.cpuUser = 0.5;
      s.cpuPerCore = {1.0, 0.0};
      s.memoryTotal = 8ull << 30;
      s.memoryApp = 2ull << 30;
      s.networkInBytesPerSec = 1000;
      ProcessSample editor, build;
      editor.cpuPercent = 20;
      editor.memoryBytes = 500'000'000;
      build.cpuPercent = 80;
      build.memoryBytes = 100'000'000;
      build.diskWriteBytesPerSec = 1'000'000;
      std::vector<AppGroup> groups{
          AppGroup("/usr/share/applications/editor.desktop", "Editor, \"Pro\"", GroupKind::app, std::nullopt, {editor}),
          AppGroup("exec:/usr/bin/make", "make", GroupKind::other, std::nullopt, {build})};
      ASSERT_TRUE((*db)->record(s, groups, TickGroups::fresh, at).ok());
    }
  }
};

TEST_F(HistoryCommand, MissingHistoryIsASentenceNotAFailure) {
  const auto r = run("history system");
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("No history has been recorded yet"), std::string::npos) << r.out;
  EXPECT_FALSE(fs::exists(root / "data" / "Omnira" / "history.sqlite")) << "asking must not create a history";
  EXPECT_EQ(run("history").status, 2);
  EXPECT_EQ(run("history apps --by colour").status, 2);
  EXPECT_EQ(run("history system --period fortnight").status, 2);
}

TEST_F(HistoryCommand, ReadsTheMachineAndTheTopApps) {
  record();
  auto system = run("history system --json");
  ASSERT_EQ(system.status, 0) << system.out;
  auto j = nlohmann::json::parse(system.out);
  EXPECT_EQ(j["resolution"], "hour");
  EXPECT_NEAR(j["total"]["seconds"].get<double>(), 7200, 10);
  EXPECT_NEAR(j["total"]["cpuAverageCores"].get<double>(), 1.0, 0.01);
  EXPECT_NEAR(j["total"]["networkBytesIn"].get<double>(), 7'200'000, 10'000);
  EXPECT_GE(j["rows"].size(), 2u);

  auto byCPU = nlohmann::json::parse(run("history apps --period week --json").out);
  ASSERT_EQ(byCPU["apps"].size(), 2u);
  EXPECT_EQ(byCPU["apps"][0]["name"], "make");
  EXPECT_NEAR(byCPU["apps"][0]["cpuSeconds"].get<double>(), 0.8 * 7200, 10);
  auto byMemory = nlohmann::json::parse(run("history apps --by memory --top 1 --json").out);
  ASSERT_EQ(byMemory["apps"].size(), 1u);
  EXPECT_EQ(byMemory["apps"][0]["memoryPeakBytes"], 500'000'000);

  const auto text = run("history apps --by disk");
  EXPECT_EQ(text.status, 0);
  EXPECT_LT(text.out.find("make"), text.out.find("Editor"));
}

TEST_F(HistoryCommand, HoursAreTheLocalClocksWhereTheZoneIsOffByPartOfAnHour) {
  for (const auto& zone : history_testing::offHourZones) {
    SCOPED_TRACE(zone.rule);
    history_testing::LocalZone local(zone.rule);
    fs::remove_all(root / "data");
    record();
    // A busy five minutes early in the last hour: its peak belongs to that hour's line.
    const Date now = std::chrono::system_clock::now();
    const int64_t lastHour = HistoryDatabase::periodStart(HistoryDatabase::SystemTable::hours, now);
    {
      auto db = HistoryDatabase::open(root / "data" / "Omnira" / "history.sqlite");
      ASSERT_TRUE(db.ok());
      ASSERT_TRUE((*db)->writeReading({.start = lastHour + 300, .seconds = 300, .cpuPercentPeak = 77}).ok());
    }

    const auto shown = run("history system --json", "", zone.rule);
    ASSERT_EQ(shown.status, 0) << shown.out;
    auto j = nlohmann::json::parse(shown.out);
    ASSERT_EQ(j["resolution"], "hour");
    EXPECT_NEAR(j["total"]["seconds"].get<double>(), 7200, 10);
    ASSERT_GE(j["rows"].size(), 2u);
    std::optional<double> peakOfLastHour;
    for (const auto& row : j["rows"]) {
      const auto start = parseISO8601(row["start"].get<std::string>());
      ASSERT_TRUE(start);
      const int64_t seconds = std::chrono::duration_cast<std::chrono::seconds>(start->time_since_epoch()).count();
      EXPECT_EQ((seconds + zone.offset) % 3600, 0) << row["start"] << " does not start a local hour";
      if (seconds == lastHour && row["cpuPeakPercent"].is_number()) peakOfLastHour = row["cpuPeakPercent"].get<double>();
    }
    EXPECT_EQ(peakOfLastHour, 77);
  }
}

TEST_F(HistoryCommand, ExportsIntoDownloadsAndDeletesOnlyWhenConfirmed) {
  record();
  const auto exported = run("history export --since 2020-01-01");
  ASSERT_EQ(exported.status, 0) << exported.out;
  size_t files = 0;
  for (const auto& entry : fs::directory_iterator(root / "downloads")) {
    ++files;
    EXPECT_NE(exported.out.find(entry.path().string()), std::string::npos);
    EXPECT_EQ(entry.path().extension(), ".csv");
  }
  EXPECT_EQ(files, 2u);
  EXPECT_EQ(run("history export --since yesterday").status, 2);

  EXPECT_EQ(run("history delete --all").status, 1);  // no terminal, no --yes
  EXPECT_EQ(run("history delete").status, 2);
  EXPECT_NE(run("history system").out.find("CPU"), std::string::npos);
  const auto deleted = run("history delete --all --yes");
  EXPECT_EQ(deleted.status, 0) << deleted.out;
  EXPECT_NE(run("history system").out.find("holds nothing"), std::string::npos);
}

}  // namespace
}  // namespace omnira
