// `omnira history` on a history file written through the database's own tick path,
// run as a person runs it, with its own data and download folders; and while the real
// application runs on the same files.

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>

#include "OmniraCore/history/WorthALook.h"
#include "OmniraCore/history/HistoryDatabase.h"
#include "OmniraCore/history/UsageLedger.h"
#include "tests/Omnira/RunningOmnira.h"
#include "tests/cli/CommandRun.h"
#include "tests/history/HistoryFiles.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;

struct HistoryCommand : testing::CommandHome {
  testing::CommandRun run(const std::string& arguments, const std::string& zone = "") {
    return testing::runCommandIn(root, arguments, true, zone.empty() ? "" : "TZ='" + zone + "'");
  }

  // As typed at a terminal, answering `answer` to the question.
  testing::CommandRun runAtTerminal(const std::string& arguments, const std::string& answer) {
    return testing::runShell("bash -c \"HOME=" + (root / "home").string() + " XDG_DATA_HOME=" +
                             (root / "data").string() + " XDG_CONFIG_HOME=" + (root / "config").string() + " script -qec '" + OMNIRA_CLI_PATH + " " + arguments +
                             "' /dev/null <<< '" + answer + "'\"");
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
  // A mistake in the arguments is one whether or not a history exists: one sentence, status 2.
  for (const char* wrong : {"history export --since garbage", "history delete", "history delete --older --all"}) {
    const auto mistaken = run(wrong);
    EXPECT_EQ(mistaken.status, 2) << wrong << ": " << mistaken.out;
    EXPECT_EQ(std::count(mistaken.out.begin(), mistaken.out.end(), '\n'), 1) << wrong << ": " << mistaken.out;
  }
  EXPECT_FALSE(fs::exists(root / "data" / "Omnira" / "history.sqlite"));
}

TEST_F(HistoryCommand, ReadsTheMachineAndTheTopApps) {
  record();
  auto system = run("history system --json");
  ASSERT_EQ(system.status, 0) << system.out;
  auto j = nlohmann::json::parse(system.out);
  EXPECT_EQ(j["resolution"], "hour");
  EXPECT_NEAR(j["total"]["seconds"].get<double>(), 7200, 10);
  EXPECT_NEAR(j["total"]["cpuAverageCores"].get<double>(), 1.0, 0.01);
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

    const auto shown = run("history system --json", zone.rule);
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

TEST_F(HistoryCommand, ExportsAndDeletesAllWithTheLedgerAndInsightsOnlyWhenConfirmed) {
  record();
  const auto exported = run("history export --since 2020-01-01");
  ASSERT_EQ(exported.status, 0) << exported.out;
  size_t files = 0;
  for (const auto& entry : fs::directory_iterator(root / "downloads")) {
    ++files;
    EXPECT_NE(exported.out.find(entry.path().string()), std::string::npos);
  }
  EXPECT_EQ(files, 2u);

  const auto data = root / "data" / "Omnira";
  std::ofstream(data / "usage.json") << R"({"version": 1, "days": {}})";
  std::ofstream(data / "insights.json") << R"({"insights": [], "pinned": []})";
  EXPECT_EQ(run("history delete --all").status, 1);  // no terminal, no --yes
  // The question names what goes; answering no keeps every file.
  const auto declined = runAtTerminal("history delete --all", "n");
  EXPECT_NE(declined.out.find("each app’s daily usage and the insights under “Worth a Look”"), std::string::npos)
      << declined.out;
  EXPECT_NE(declined.out.find("Nothing was deleted."), std::string::npos) << declined.out;
  EXPECT_TRUE(fs::exists(data / "usage.json"));

  const auto older = run("history delete --older --yes");
  ASSERT_EQ(older.status, 0) << older.out;
  EXPECT_TRUE(fs::exists(data / "usage.json"));

  const auto all = run("history delete --all --yes");
  ASSERT_EQ(all.status, 0) << all.out;
  EXPECT_FALSE(fs::exists(data / "usage.json"));
  EXPECT_FALSE(fs::exists(data / "insights.json"));
  EXPECT_TRUE(fs::exists(data / "history.sqlite"));
  EXPECT_NE(run("history system").out.find("holds nothing"), std::string::npos);
  EXPECT_EQ(run("history delete --all --yes").status, 0) << "files already gone are no failure";

  // A file that cannot be deleted is named, not passed over.
  fs::create_directories(data / "usage.json" / "inside");
  const auto blocked = run("history delete --all --yes");
  EXPECT_EQ(blocked.status, 1);
  EXPECT_NE(blocked.out.find("usage.json"), std::string::npos) << blocked.out;
}

TEST_F(HistoryCommand, DeletingAllWhileOmniraRunsKeepsNothingFromBeforeInAnyFile) {
  const auto data = root / "data" / "Omnira";
  const auto history = data / "history.sqlite";
  fs::create_directories(root / "config" / "Omnira");
  std::ofstream(root / "config" / "Omnira" / "settings.json") << R"({"refreshSeconds": 1})";
  // What an earlier run left: 3000 s of this hour, today's usage of an old tool, an insight.
  const Date now = std::chrono::system_clock::now();
  const double earlier = 3000;
  const AppGroup oldTool("exec:/opt/old/tool", "tool", GroupKind::other, std::nullopt, {ProcessSample{}});
  {
    auto db = HistoryDatabase::open(history);
    ASSERT_TRUE(db.ok());
    SystemSample sample;
    sample.interval = earlier;
    ASSERT_TRUE((*db)->record(sample, {oldTool}, TickGroups::fresh, now).ok());
  }
  UsageLedger ledger;
  ledger.record(earlier, now);
  ledger.record({oldTool}, TickGroups::fresh, earlier, now);
  ASSERT_TRUE(ledger.save(data / "usage.json").ok());
  WorthALook insights;
  insights.note({Insight{.id = UUID::random(), .date = now, .appID = "exec:/opt/old/tool", .title = "From before"}});
  ASSERT_TRUE(insights.save(data / "insights.json").ok());

  testing::RunningOmnira omnira(root);
  // It has ticked, continuing this hour's rows, when they hold more than the earlier run's.
  ASSERT_TRUE(testing::waitForRecorded(history, earlier + 1.5, HistoryDatabase::SystemTable::hours))
      << testing::slurp(root / "stderr");
  const Date deletedAt = std::chrono::system_clock::now();
  const auto deleted = run("history delete --all --yes");
  ASSERT_EQ(deleted.status, 0) << deleted.out;
  // A few ticks after the deletion; with the old totals back this holds at once, and fails below.
  ASSERT_TRUE(testing::waitForRecorded(history, 2.5)) << testing::slurp(root / "stderr");
  ASSERT_EQ(omnira.stop(), 0) << testing::slurp(root / "stderr");

  auto db = HistoryDatabase::open(history);
  ASSERT_TRUE(db.ok());
  EXPECT_LT(testing::recordedSeconds(history, HistoryDatabase::SystemTable::hours), earlier / 2);
  EXPECT_GE((*db)->recordingSince().value().value(), deletedAt - std::chrono::seconds(1));
  const auto days = (*db)->apps(HistoryDatabase::AppTable::days, 0, INT64_MAX).value();
  for (const auto& row : days) {
    EXPECT_NE(row.appId, oldTool.id);
    EXPECT_LT(row.seconds, earlier / 2) << row.appId;
  }
  // The running application saved its ledger and insights on quitting: only what came after.
  auto saved = UsageLedger::load(data / "usage.json");
  ASSERT_TRUE(saved.ok()) << saved.error().message;
  for (const auto& [key, day] : saved->days()) {
    EXPECT_LT(day.seconds, earlier / 2) << key;
    EXPECT_FALSE(day.apps.contains(oldTool.id)) << key;
  }
  auto kept = WorthALook::load(data / "insights.json");
  ASSERT_TRUE(kept.ok()) << kept.error().message;
  for (const auto& insight : kept->insights()) EXPECT_NE(insight.title, "From before");
}

}  // namespace
}  // namespace omnira
