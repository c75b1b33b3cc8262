// The AI usage page's model on a real usage-limits store: its cache file holds an account,
// and its ledgers were read by the core from copies of the fixture logs moved to this week.
// The windows must read as `omnira limits` prints them, and the bars add up to the ledger.

#include "Omnira/presentation/UsageModel.h"

#include <gtest/gtest.h>

#include <QVariantMap>

#include <chrono>
#include <filesystem>

#include "Omnira/UsageLimitsStore.h"
#include "OmniraCore/usage/TokenLogs.h"
#include "OmniraCore/usage/UsageRefresh.h"
#include "OmniraCore/usage/UsageWindowText.h"
#include "tests/Omnira/QtTestApp.h"
#include "tests/usage/UsageLogFiles.h"

namespace omnira::presentation {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
    text.replace(at, from.size(), to);
  return text;
}

struct UsageModelTest : usage_testing::LogFolder {
  const DayCalendar utc = DayCalendar::fixed(std::chrono::seconds(0));
  const Date now = std::chrono::system_clock::now();

  AppPaths paths() const { return AppPaths(folder / "data", folder / "config"); }
  std::string daysAgo(int days) const { return TokenLogs::day(now - std::chrono::hours(24 * days), utc); }

  void writeSettings(bool enabled) const {
    fs::create_directories(folder / "config");
    std::ofstream(paths().settingsFile()) << nlohmann::json{
        {"usageLimitsEnabled", enabled}, {"usageLimitsClaude", true},      {"usageLimitsCodex", true},
        {"usageLimitsCopilot", true},    {"usageLimitsCursor", false},     {"usageLimitsGrok", false},
        {"usageLimitsOllama", false},    {"usageLimitsAntigravity", false}, {"usageLimitsOpenCode", false}}
        .dump();
  }

  // Claude Code's logs of yesterday and today and a plan; Codex without sign-in or logs;
  // Copilot turned on with nothing at all.
  UsageLimitsCache cache() {
    const fs::path project = claudeHome() / "projects" / "-home-dev-shop";
    replace(project / "first.jsonl",
            replaced(read(usage_testing::fixtures / "claude/streamed.jsonl"), "2025-03-14", daysAgo(1)));
    replace(project / "resumed.jsonl", replaced(replaced(read(usage_testing::fixtures / "claude/resumed.jsonl"),
                                                         "2025-03-14", daysAgo(1)),
                                                "2025-03-15", daysAgo(0)));
    UsageLimitsCache made;
    UsageRefresh::updateLedgers(made.ledgers, {UsageTool::claude, UsageTool::codex},
                                usage_testing::environment({{"CLAUDE_CONFIG_DIR", claudeHome().string()},
                                                            {"CODEX_HOME", codexHome().string()},
                                                            {"HOME", (folder / "home").string()}}),
                                now, 30, utc);
    UsageAccount account;
    account.id = "claude-1";
    account.tool = UsageTool::claude;
    account.label = "dev@example.com";
    account.plan = "Max";
    account.fetchedAt = now - 2min;
    // Four of five hours gone with 60% used: on pace. Four of seven days gone with 80% used: runs out.
    account.windows = {UsageWindow(UsageWindow::Kind::session, std::nullopt, 0.6, now + 1h, UsageWindow::sessionLength),
                       UsageWindow(UsageWindow::Kind::week, std::nullopt, 0.8, now + 72h, UsageWindow::weekLength)};
    made.accounts = {account};
    made.problems = {UsageProblem{UsageTool::codex, UsageProblem::Kind::notSignedIn, std::nullopt}};
    made.refreshedAt = now - 2min;
    return made;
  }
};

TEST_F(UsageModelTest, WindowsReadAsTheCommandAndBarsAddUpToTheLedger) {
  testing::qtTestApp();
  writeSettings(true);
  const UsageLimitsCache saved = cache();
  ASSERT_TRUE(saved.save(paths().dataFile(UsageLimitsCache::fileName)));
  UsageLimitsStore store(UsageLimitsStore::Options{paths(), Settings::load(paths().settingsFile()), {}, {}, [this] { return now; }, utc});
  UsageModel model([this] { return now; });
  model.setStore(&store);

  ASSERT_TRUE(model.hasTools()) << model.emptyText().toStdString();
  ASSERT_EQ(model.tools().size(), 2);
  const QVariantMap claude = model.tools()[0].toMap(), codex = model.tools()[1].toMap();
  EXPECT_EQ(claude["name"].toString().toStdString(), displayName(UsageTool::claude));

  // Each window in the command's words, with the core's pace.
  const QVariantList accounts = claude["accounts"].toList();
  ASSERT_EQ(accounts.size(), 1);
  EXPECT_EQ(accounts[0].toMap()["heading"].toString().toStdString(), "dev@example.com · Max");
  const QVariantList windows = accounts[0].toMap()["windows"].toList();
  ASSERT_EQ(windows.size(), 2);
  for (int i = 0; i < 2; ++i) {
    // As the cache gave them back (whole seconds).
    const UsageWindow& window = store.accounts().at(0).windows.at(static_cast<size_t>(i));
    const QVariantMap shown = windows[i].toMap();
    EXPECT_EQ(shown["label"].toString().toStdString(), windowLabel(window));
    EXPECT_EQ(shown["leftText"].toString().toStdString(), leftText(window));
    EXPECT_EQ(shown["resetText"].toString().toStdString(), resetText(window, now));
    EXPECT_EQ(shown["paceText"].toString().toStdString(), paceText(window, now));
    EXPECT_FALSE(shown["paceText"].toString().isEmpty());
    EXPECT_EQ(shown["late"].toBool(), !window.pace(now)->isOnPace());
  }
  EXPECT_FALSE(windows[0].toMap()["late"].toBool());
  EXPECT_TRUE(windows[1].toMap()["late"].toBool());

  // The panel has the same windows, compact.
  ASSERT_EQ(model.panelWindows().size(), 2);
  EXPECT_EQ(model.panelWindows()[1].toMap()["tool"].toString().toStdString(), displayName(UsageTool::claude));
  EXPECT_EQ(model.panelWindows()[1].toMap()["paceWord"].toString().toStdString(), "Too fast");
  EXPECT_EQ(model.panelWindows()[0].toMap()["resetIn"].toString().toStdString(),
            spanText(std::chrono::duration<double>(*store.accounts().at(0).windows.at(0).resetsAt() - now).count()));

  // The bars: a week of days and the models, each adding up to the ledger's week.
  std::vector<std::string> week;
  for (int back = TokenSummary::weekDays - 1; back >= 0; --back) week.push_back(daysAgo(back));
  const int64_t total = store.ledgers().at(UsageTool::claude).usage(week).total();
  ASSERT_GT(total, 0);
  ASSERT_TRUE(claude["hasTokens"].toBool());
  const QVariantList days = claude["dayValues"].toList(), models = claude["modelValues"].toList();
  ASSERT_EQ(days.size(), TokenSummary::weekDays);
  double byDay = 0, byModel = 0;
  for (const auto& value : days) byDay += value.toDouble();
  for (const auto& value : models) byModel += value.toDouble();
  EXPECT_EQ(static_cast<int64_t>(byDay), total);
  EXPECT_EQ(static_cast<int64_t>(byModel), total);
  EXPECT_EQ(static_cast<int64_t>(days.back().toDouble()),
            store.ledgers().at(UsageTool::claude).usageOn(daysAgo(0)).total());
  EXPECT_EQ(claude["models"].toList()[0].toMap()["name"].toString().toStdString(),
            TokenLogs::modelName(store.ledgers().at(UsageTool::claude).byModel(week)[0].first));

  // Codex has its problem and no logs, Copilot nothing: plain sentences.
  EXPECT_FALSE(codex["hasTokens"].toBool());
  EXPECT_EQ(codex["tokensText"].toString().toStdString(), "No token logs of Codex were found on this computer.");
  ASSERT_EQ(codex["problems"].toList().size(), 1);
  EXPECT_EQ(codex["problems"].toList()[0].toString().toStdString(), saved.problems[0].line());
  EXPECT_EQ(model.quietText().toStdString(), "Also turned on, with nothing read yet: GitHub Copilot.");

  // Turned off: no tools, and why.
  writeSettings(false);
  store.applySettings(Settings::load(paths().settingsFile()));
  model.refresh();
  EXPECT_FALSE(model.hasTools());
  EXPECT_TRUE(model.panelWindows().isEmpty());
  EXPECT_NE(model.emptyText().indexOf("turned off"), -1) << model.emptyText().toStdString();
}

}  // namespace
}  // namespace omnira::presentation
