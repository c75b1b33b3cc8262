// The usage-limits store in a real Qt event loop, on real files in a temporary folder: fake
// Claude Code and Codex homes reached through the store's environment, its own data folder,
// and a clock the test moves. The 20-second waits only keep a broken store from hanging the
// suite.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <QEventLoop>
#include <QTimer>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <thread>

#include <nlohmann/json.hpp>

#include "Omnira/UsageLimitsStore.h"
#include "OmniraCore/foundation/SettingsFile.h"
#include "OmniraCore/usage/TokenLogs.h"
#include "tests/Omnira/QtTestApp.h"
#include "tests/usage/UsageLogFiles.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;
using usage_testing::assistantLine;
using Clock = std::chrono::system_clock;
using namespace std::chrono_literals;

const DayCalendar utc = DayCalendar::fixed(std::chrono::seconds(0));
constexpr const char* sonnet = "claude-sonnet-4-5-20250929";

struct UsageLimitsStoreTest : usage_testing::LogFolder {
  // Whole milliseconds, as the cache keeps them.
  Date now = std::chrono::floor<std::chrono::milliseconds>(Clock::now());
  std::string today = TokenLogs::day(now, utc);

  void SetUp() override {
    usage_testing::LogFolder::SetUp();
    testing::qtTestApp();
  }

  AppPaths paths() const { return AppPaths(folder / "data" / "Omnira", folder / "config" / "Omnira"); }
  fs::path settingsFile() const { return paths().settingsFile(); }
  fs::path cacheFile() const { return paths().dataFile(UsageLimitsCache::fileName); }

  UsageLimitsStore::Options options() {
    std::map<std::string, std::string> variables{{"HOME", (folder / "home").string()},
                                                 {"CLAUDE_CONFIG_DIR", claudeHome().string()},
                                                 {"CODEX_HOME", codexHome().string()}};
    UsageLimitsStore::Options options{paths(), Settings::load(settingsFile())};
    options.environment = [variables](const std::string& name) -> std::optional<std::string> {
      auto found = variables.find(name);
      if (found == variables.end()) return std::nullopt;
      return found->second;
    };
    options.fetcher = std::make_shared<UsageFetcher>(nullptr);  // sign-ins are checked, no one is asked
    options.clock = [this] { return now; };
    options.calendar = utc;
    return options;
  }

  void turn(const std::string& key, bool on) {
    ASSERT_TRUE(SettingsFile(settingsFile()).set(key, on ? "true" : "false").ok());
  }

  // A reply today, one two days ago and one nine days ago (outside the week).
  void writeClaudeLogs() {
    const auto day = [&](int back) { return formatISO8601(now - std::chrono::hours(24 * back)); };
    append(project("-home-dev-shop") / "a.jsonl",
           assistantLine("msg_1", "req_1", sonnet, {10, 200, 3000, 40}, day(0)) +
               assistantLine("msg_1", "req_1", sonnet, {10, 200, 3000, 40}, day(0)) +  // streamed twice
               assistantLine("msg_2", "req_2", "claude-opus-4-1-20250805", {1, 2, 3, 4}, day(2)) +
               assistantLine("msg_3", "req_3", sonnet, {5, 5, 5, 5}, day(9)));
  }
  void writeCodexLogs() {
    const std::string at = formatISO8601(now);
    append(codexHome() / "sessions" / "rollout-a.jsonl",
           R"({"timestamp":")" + at + R"(","type":"turn_context","payload":{"model":"gpt-5-codex"}})" "\n" +
               R"({"timestamp":")" + at + R"(","type":"event_msg","payload":{"type":"token_count","info":)"
               R"({"total_token_usage":{"input_tokens":100,"cached_input_tokens":40,"output_tokens":7}}}})" "\n");
  }

  // Runs the event loop until the store's next refresh has been applied.
  static bool waitForRefresh(UsageLimitsStore& store) {
    if (!store.isRefreshing()) return false;
    QEventLoop waiting;
    QObject::connect(&store, &UsageLimitsStore::refreshed, &waiting, &QEventLoop::quit);
    QTimer::singleShot(20000, &waiting, &QEventLoop::quit);
    waiting.exec();
    return !store.isRefreshing();
  }
};

TEST_F(UsageLimitsStoreTest, RefreshesAtMostOnceAMinuteAfterTheLastEndedAndCountsTheWeek) {
  auto opts = options();
  // By this clock a refresh's own work, off the main thread, takes 45 s.
  const auto mainThread = std::this_thread::get_id();
  opts.clock = [this, mainThread] { return std::this_thread::get_id() == mainThread ? now : now + 45s; };
  UsageLimitsStore store(opts);
  int started = 0;
  QObject::connect(&store, &UsageLimitsStore::isRefreshingChanged, [&] { started += store.isRefreshing(); });

  EXPECT_TRUE(store.refreshIfStale());
  EXPECT_FALSE(store.refreshIfStale()) << "one refresh at a time";
  ASSERT_TRUE(waitForRefresh(store));
  EXPECT_EQ(store.refreshedAt(), now + 45s);
  // No logs yet: no summary.

  writeClaudeLogs();
  writeCodexLogs();
  now += 45s + 59s;  // more than a minute after it started, less after it ended
  EXPECT_FALSE(store.refreshIfStale()) << "within a minute of the last one";
  EXPECT_EQ(started, 1);
  now += 2s;
  EXPECT_TRUE(store.refreshIfStale());
  ASSERT_TRUE(waitForRefresh(store));
  EXPECT_EQ(started, 2);

  auto claude = store.tokens(UsageTool::claude, now);
  ASSERT_TRUE(claude);
  EXPECT_EQ(claude->today, (TokenUsage{10, 200, 3000, 40}));
  EXPECT_EQ(claude->week, (TokenUsage{11, 202, 3003, 44}));
  EXPECT_EQ(claude->daily[6], 3250);
  auto codex = store.tokens(UsageTool::codex, now);
  ASSERT_TRUE(codex);
  EXPECT_EQ(codex->today, (TokenUsage{60, 7, 40, 0}));

  // Signed in nowhere: both tools say so, with their lines.
  ASSERT_EQ(store.problems().size(), 2u);
}

TEST_F(UsageLimitsStoreTest, AToolTurnedOffIsNeitherListedNorAsked) {
  writeClaudeLogs();
  writeCodexLogs();
  turn("usageLimitsCodex", false);
  UsageLimitsStore store(options());
  const auto& tools = store.tools();
  EXPECT_EQ(std::find(tools.begin(), tools.end(), UsageTool::codex), tools.end());

  store.refresh();
  ASSERT_TRUE(waitForRefresh(store));
  ASSERT_EQ(store.problems().size(), 1u);
  EXPECT_EQ(store.problems()[0].tool, UsageTool::claude);
  EXPECT_FALSE(store.ledgers().contains(UsageTool::codex)) << "Codex's logs were read";
  EXPECT_FALSE(store.tokens(UsageTool::codex, now));

  // Turned on again it is asked at once; Claude turned off leaves at once.
  turn("usageLimitsCodex", true);
  store.applySettings(Settings::load(settingsFile()));
  ASSERT_TRUE(waitForRefresh(store));
  EXPECT_TRUE(store.tokens(UsageTool::codex, now));
  turn("usageLimitsClaude", false);
  store.applySettings(Settings::load(settingsFile()));
  EXPECT_EQ(store.tools().front(), UsageTool::codex);

  // With the feature off nothing is listed or refreshed.
  turn("usageLimitsEnabled", false);
  store.applySettings(Settings::load(settingsFile()));
  EXPECT_TRUE(store.tools().empty());
  now += std::chrono::minutes(5);
  EXPECT_FALSE(store.refreshIfStale());
}

TEST_F(UsageLimitsStoreTest, ShowsItsCacheBeforeAnyRefresh) {
  writeClaudeLogs();
  {
    UsageLimitsStore store(options());
    store.refresh();
    ASSERT_TRUE(waitForRefresh(store));
  }
  const auto written = UsageLimitsCache::load(cacheFile());
  ASSERT_TRUE(written.ok()) << written.error().message;
  ASSERT_TRUE(written->ledgers.contains(UsageTool::claude));

  // A new launch shows the cache before any refresh, with the account it held.
  UsageLimitsCache cache = *written;
  cache.accounts.push_back({"codex-local", UsageTool::codex, "Codex on this computer", std::nullopt,
                            {UsageWindow(UsageWindow::Kind::week, std::nullopt, 0.25, now + std::chrono::hours(30),
                                         UsageWindow::weekLength)},
                            now, UsageAccount::Source::toolFiles});
  ASSERT_TRUE(cache.save(cacheFile()).ok());
  {
    UsageLimitsStore store(options());
    EXPECT_EQ(store.accounts(), cache.accounts);
    EXPECT_EQ(store.tokens(UsageTool::claude, now)->today.output, 200);
    EXPECT_FALSE(store.refreshIfStale()) << "the cached refresh is less than a minute old";
  }
}

}  // namespace
}  // namespace omnira
