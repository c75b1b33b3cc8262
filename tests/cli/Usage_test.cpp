// `omnira tokens` and `omnira limits` run as a person runs them, on copies of the fixture
// logs in their own homes, with their dates moved to this week. TZ is UTC, so day keys are
// known in advance.

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <filesystem>
#include <string>

#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/usage/DayCalendar.h"
#include "OmniraCore/usage/TokenLogs.h"
#include "OmniraCore/usage/UsageLimitsCache.h"
#include "tests/cli/CommandRun.h"
#include "tests/usage/UsageLogFiles.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

using usage_testing::fixtures;
const DayCalendar utc = DayCalendar::fixed(std::chrono::seconds(0));

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
    text.replace(at, from.size(), to);
  return text;
}

Json usage(int64_t input, int64_t output, int64_t cacheRead, int64_t cacheWrite) {
  return {{"input", input}, {"output", output}, {"cacheRead", cacheRead}, {"cacheWrite", cacheWrite},
          {"total", input + output + cacheRead + cacheWrite}};
}

// The tools' homes are the folder's, and the command's own home is beside them.
struct UsageCommand : usage_testing::LogFolder {
  const fs::path& root = folder;
  void SetUp() override {
    LogFolder::SetUp();
    fs::create_directories(root / "home");
  }
  Date now = std::chrono::system_clock::now();
  std::string today = TokenLogs::day(now, utc);
  std::string daysAgo(int days) { return TokenLogs::day(now - std::chrono::hours(24 * days), utc); }

  fs::path cacheFile() const { return root / "data" / "Omnira" / UsageLimitsCache::fileName; }

  // The fixture sessions, moved to yesterday and today (Claude Code) and to today and three
  // days ago (Codex). The resumed session is the newer file, as it was when it was written.
  void copyLogs() {
    const fs::path project = root / "claude" / "projects" / "-home-dev-shop";
    replace(project / "first.jsonl", replaced(read(fixtures / "claude/streamed.jsonl"), "2025-03-14", daysAgo(1)));
    fs::last_write_time(project / "first.jsonl", fs::file_time_type::clock::now() - std::chrono::hours(1));
    replace(project / "resumed.jsonl",
            replaced(replaced(read(fixtures / "claude/resumed.jsonl"), "2025-03-14", daysAgo(1)), "2025-03-15", today));
    replace(root / "codex" / "sessions" / "rollout-basic.jsonl",
            replaced(read(fixtures / "codex/rollout-2025-03-14T11-00-00-basic.jsonl"), "2025-03-14", today));
    replace(root / "codex" / "archived_sessions" / "rollout-restart.jsonl",
            replaced(read(fixtures / "codex/rollout-2025-03-14T12-00-00-restart.jsonl"), "2025-03-14", daysAgo(3)));
  }

  testing::CommandRun run(const std::string& arguments, bool both = false) {
    return testing::runCommandIn(root, arguments, both,
                                 "TZ=UTC CLAUDE_CONFIG_DIR='" + claudeHome().string() + "' CODEX_HOME='" +
                                     codexHome().string() + "'");
  }
  Json runJSON(const std::string& arguments) {
    auto result = run(arguments);
    EXPECT_EQ(result.status, 0) << result.out;
    auto json = Json::parse(result.out, nullptr, false);
    EXPECT_FALSE(json.is_discarded()) << result.out;
    return json;
  }
  void set(const std::string& key, const std::string& value) {
    ASSERT_EQ(run("settings set " + key + " " + value).status, 0);
  }
};

TEST_F(UsageCommand, TokensOfBothToolsAsJSONAndText) {
  copyLogs();
  const Json json = runJSON("tokens --json");
  ASSERT_EQ(json["tools"].size(), 2u) << json.dump(2);

  const Json& claude = json["tools"][0];
  EXPECT_EQ(claude["today"], usage(4, 90, 22000, 500));
  EXPECT_EQ(claude["week"], usage(22, 532, 63000, 1800));  // each reply once, with its fullest line
  ASSERT_EQ(claude["days"].size(), 7u);
  EXPECT_EQ(claude["daily"], (Json{0, 0, 0, 0, 0, 42760, 22594}));

  const Json& codex = json["tools"][1];
  EXPECT_EQ(codex["today"], usage(650, 60, 600, 0));

  const auto text = run("tokens");
  ASSERT_EQ(text.status, 0) << text.out;
  for (const char* part : {"Claude Code\n", "Codex\n", "This week by model", "Sonnet 4.5", "GPT-5 Codex", "65,354",
                           "42.8K", "████"})
    EXPECT_NE(text.out.find(part), std::string::npos) << part << "\n" << text.out;
  // The largest day fills the bar.
  std::string full;
  for (int i = 0; i < 32; ++i) full += "█";
  EXPECT_NE(text.out.find(daysAgo(1) + "  " + full + "   42.8K"), std::string::npos) << text.out;
  EXPECT_FALSE(fs::exists(cacheFile())) << "the command must leave the cache to the application";
}

TEST_F(UsageCommand, ToolAndDaysNarrowWhatIsShown) {
  copyLogs();
  Json codex = runJSON("tokens --tool codex --days 3 --json");
  ASSERT_EQ(codex["tools"].size(), 1u);
  EXPECT_EQ(codex["tools"][0]["week"], usage(650, 60, 600, 0));  // three days ago is out

  const auto todayOnly = run("tokens --tool claude --days 1");
  ASSERT_EQ(todayOnly.status, 0);
  EXPECT_NE(todayOnly.out.find("22,594"), std::string::npos) << todayOnly.out;

  for (const char* bad : {"--tool gemini", "--tool copilot", "--days 0", "--days 400", "--days 2x"}) {
    const auto refused = run(std::string("tokens ") + bad, true);
    EXPECT_EQ(refused.status, 2) << bad;
    EXPECT_NE(refused.out.find(bad[2] == 't' ? "--tool takes claude or codex" : "--days takes a whole number"),
              std::string::npos)
        << refused.out;
  }
}

TEST_F(UsageCommand, SaysSoWithoutLogsOrWhenTurnedOff) {
  const auto none = run("tokens", true);
  EXPECT_EQ(none.status, 0);
  EXPECT_NE(none.out.find("No tokens from Claude Code or Codex in the last 7 days"), std::string::npos) << none.out;

  copyLogs();
  set("usageLimitsCodex", "false");
  Json json = runJSON("tokens --json");
  ASSERT_EQ(json["tools"].size(), 1u);
  EXPECT_NE(run("tokens --tool codex").out.find("Codex is turned off"), std::string::npos);

  set("usageLimitsEnabled", "false");
  for (const char* command : {"tokens", "limits"}) {
    const auto off = run(command);
    EXPECT_EQ(off.status, 0);
    EXPECT_EQ(off.out,
              "Turn on Usage Limits in Integrations.\n"
              "Without a settings window: omnira settings set usageLimitsEnabled true\n");
  }
}

TEST_F(UsageCommand, TokensBuildOnTheApplicationsCacheWithoutWritingIt) {
  copyLogs();
  // The running application read today's session up to its end already: the command takes
  // that file's figures from the cache's ledger instead of reading it again.
  const fs::path resumed = root / "claude" / "projects" / "-home-dev-shop" / "resumed.jsonl";
  UsageLimitsCache cache;
  TokenFileLedger taken;
  taken.add({1, 2, 3, 4}, "claude-sonnet-4-5-20250929", today);
  taken.size = taken.offset = fs::file_size(resumed);
  cache.ledgers[UsageTool::claude] = TokenLedger::fromJSON(Json{{"files", {{resumed.string(), taken.toJSON()}}}}).value();
  ASSERT_TRUE(cache.save(cacheFile()).ok());
  const std::string before = read(cacheFile());

  EXPECT_EQ(runJSON("tokens --json --tool claude")["tools"][0]["today"], usage(1, 2, 3, 4));
  EXPECT_EQ(read(cacheFile()), before);

  // Ledgers of another version are not continued: the logs alone count.
  auto old = Json::parse(before);
  old["ledgerVersion"] = UsageLimitsCache::currentLedgerVersion + 1;
  replace(cacheFile(), old.dump());
  EXPECT_EQ(runJSON("tokens --json --tool claude")["tools"][0]["today"], usage(4, 90, 22000, 500));
}

TEST_F(UsageCommand, LimitsFromCodexLogsSignInsAndTheCache) {
  using std::chrono::seconds;
  const auto unix = [&](seconds ahead) {
    return std::chrono::duration_cast<seconds>((now + ahead).time_since_epoch()).count();
  };
  const Json line = {
      {"timestamp", formatISO8601(now)},
      {"type", "event_msg"},
      {"payload",
       {{"type", "token_count"},
        {"info", nullptr},
        {"rate_limits",
         {{"primary", {{"used_percent", 38.0}, {"window_minutes", 300}, {"resets_at", unix(seconds(12466))}}},
          {"secondary",
           {{"used_percent", 20.0}, {"window_minutes", 10080}, {"resets_at", unix(seconds(117 * 3600 + 1800))}}}}}}}};
  replace(root / "codex" / "sessions" / "rollout-limits.jsonl", line.dump() + "\n");
  replace(root / "claude" / ".credentials.json", read(fixtures / "logins/claude-valid/.credentials.json"));

  // What a running Omnira last heard from the provider for Claude.
  UsageLimitsCache cache;
  cache.accounts.push_back({"claude-ann", UsageTool::claude, "ann@example.com", "Max",
                            {UsageWindow(UsageWindow::Kind::session, std::nullopt, 0.5, now - std::chrono::minutes(1),
                                         UsageWindow::sessionLength)},
                            now - std::chrono::minutes(3), UsageAccount::Source::vendor});
  cache.problems.push_back({UsageTool::claude, UsageProblem::Kind::throttled, std::string("ann@example.com")});
  cache.problems.push_back({UsageTool::codex, UsageProblem::Kind::unreachable, std::nullopt});  // no sign-in now
  cache.refreshedAt = now - std::chrono::minutes(3);
  ASSERT_TRUE(cache.save(cacheFile()).ok());

  const auto text = run("limits");
  ASSERT_EQ(text.status, 0) << text.out;
  for (const char* part :
       {"Claude · ann@example.com · Max", "Session  50% left  Resets any moment", "Codex · Codex on this computer",
        // Columns line up under the longest reset text. The reset is 3h 27m 46s away and the
        // session runs out in 2h 30m 29s, so seconds spent starting the command change neither.
        "62% left  Resets in 3h 27m   Runs out in 2h 30m at this rate",
        "80% left  Resets in 4d 21h   On pace · 33% to spare",
        "Claude is throttling the question. The last figures are kept.\n",
        "Codex: no sign-in on this computer. Sign in with the codex command.\n"})
    EXPECT_NE(text.out.find(part), std::string::npos) << part << "\n" << text.out;
  EXPECT_EQ(text.out.find("couldn’t reach"), std::string::npos) << text.out;

  const Json json = runJSON("limits --json");
  ASSERT_EQ(json["accounts"].size(), 2u) << json.dump(2);
  const Json& codex = json["accounts"][1];
  EXPECT_NEAR(codex["windows"][0]["left"].get<double>(), 0.62, 1e-9);
  EXPECT_NEAR(codex["windows"][1]["pace"]["spareAtReset"].get<double>(), 1 - 0.2 / (1 - 117.5 / 168), 1e-3);
  ASSERT_EQ(json["problems"].size(), 2u);

  set("usageLimitsCodex", "false");
  const auto claudeOnly = run("limits");
  EXPECT_EQ(claudeOnly.out.find("Codex"), std::string::npos) << claudeOnly.out;
}

}  // namespace
}  // namespace omnira
