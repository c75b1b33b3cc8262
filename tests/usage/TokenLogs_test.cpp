#include "OmniraCore/usage/TokenLogs.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <time.h>

#include <unistd.h>

#include <limits>
#include <map>
#include <optional>
#include <set>
#include <sstream>

#include "tests/usage/UsageLogFiles.h"

namespace omnira {
namespace {

using namespace std::chrono_literals;
using namespace usage_testing;
using Line = TokenLogs::ClaudeLine;

const DayCalendar utc = DayCalendar::fixed(0s);
const Date longAgo = dateFromSecondsSinceEpoch(0);
const std::string sonnet = "claude-sonnet-4-5-20250929";

std::vector<std::string> fixtureLines(const std::string& name) {
  std::vector<std::string> lines;
  std::istringstream in(LogFolder::read(fixtures / name));
  for (std::string line; std::getline(in, line);) lines.push_back(line + "\n");
  return lines;
}

// Claude Code 2.x: the model before the id, a reply streamed over three lines, and a
// sub-agent in the session's own folder whose lines carry no request id.
const std::string session2 = "7c1d2e3f-5a6b-4c7d-8e9f-0a1b2c3d4e5f";
const std::string claude2Main = "claude2/projects/-home-dev-shop/" + session2 + ".jsonl";
const std::string claude2Agent = "claude2/projects/-home-dev-shop/" + session2 + "/subagents/agent-a1b2c3d4.jsonl";
const std::string haiku = "claude-haiku-4-5-20251001";
const TokenUsage claude2Sonnet{10, 430, 32000, 2400};
const TokenUsage claude2Haiku{5, 125, 19500, 1800};
// Codex: a running session and an archived one.
const std::string codex2Running = "rollout-2025-11-20T10-00-00-0199a8f1-7d2e-7c30-9b1a-5e6f7a8b9c0d.jsonl";
const TokenUsage codex2Running20{3000, 230, 1200, 0};

struct TokenLogsTest : LogFolder {
  TokenLedger ledger;
  TokenLogs::Update update(UsageTool tool = UsageTool::claude, const DayCalendar& calendar = utc) {
    return TokenLogs::update(ledger, tool, {tool == UsageTool::claude ? claudeHome() : codexHome()}, longAgo,
                             calendar);
  }
};

TEST(TokenLogs, ReadsAClaudeLineAsBytesWhereverItsIdStands) {
  auto lines = fixtureLines("claude/streamed.jsonl");
  ASSERT_EQ(lines.size(), 11u);
  EXPECT_EQ(TokenLogs::readClaudeLine(lines[0]).kind, Line::Kind::skip);  // summary
  EXPECT_EQ(TokenLogs::readClaudeLine(lines[1]).kind, Line::Kind::skip);  // the person's prompt

  auto complete = TokenLogs::readClaudeLine(lines[4]);
  ASSERT_EQ(complete.kind, Line::Kind::counted);
  EXPECT_EQ(complete.key(), "msg_01AAA:req_011AAA");
  EXPECT_EQ(complete.usage, (TokenUsage{3, 380, 20000, 1000}));

  // A tool result quoting log text is the person's line; its quotes are escaped.
  EXPECT_EQ(TokenLogs::readClaudeLine(lines[5]).kind, Line::Kind::skip);
  // The written count is the reply's own; its split into 5-minute and 1-hour writes need not add up to it.
  EXPECT_EQ(TokenLogs::readClaudeLine(lines[6]).usage, (TokenUsage{5, 42, 21000, 300}));
  std::string splitOnly = lines[6];
  splitOnly.erase(splitOnly.find("\"cache_creation_input_tokens\":300,"), 34);
  EXPECT_EQ(TokenLogs::readClaudeLine(splitOnly).usage, (TokenUsage{5, 42, 21000, 350}));  // 200 + 150
  EXPECT_EQ(TokenLogs::readClaudeLine(lines[7]).kind, Line::Kind::skip);                  // "<synthetic>"
  auto old = TokenLogs::readClaudeLine(lines[8]);
  EXPECT_FALSE(old.hasKey());
  EXPECT_EQ(old.usage, (TokenUsage{10, 20, 0, 0}));
  EXPECT_EQ(TokenLogs::readClaudeLine(lines[9]).kind, Line::Kind::unknown);   // "yesterday"
  EXPECT_EQ(TokenLogs::readClaudeLine(lines[10]).kind, Line::Kind::unknown);  // cut off, no moment

  std::string huge = lines[6];
  huge.replace(huge.find("\"output_tokens\":42"), 18, "\"output_tokens\":99999999999999999999");
  EXPECT_EQ(TokenLogs::readClaudeLine(huge).kind, Line::Kind::unknown);

  // Claude Code 2.x puts the model before the id.
  lines = fixtureLines(claude2Main);
  ASSERT_EQ(lines.size(), 7u);
  auto task = TokenLogs::readClaudeLine(lines[4]);
  ASSERT_EQ(task.kind, Line::Kind::counted);
  EXPECT_EQ(task.key(), "msg_01Q1:req_011Q1");
  EXPECT_EQ(task.model, sonnet);  // not the "haiku" its task names
  EXPECT_EQ(TokenLogs::readClaudeLine(lines[5]).kind, Line::Kind::skip);  // a sub-agent's usage in a tool result

  // The id after the content, whose tool call has an id of its own.
  auto json = nlohmann::ordered_json::parse(lines[4]);
  const std::string id = json["message"]["id"];
  json["message"].erase("id");
  json["message"]["id"] = id;
  const std::string idLast = json.dump();
  ASSERT_LT(idLast.find("toolu_01T"), idLast.find("msg_01Q1"));
  EXPECT_EQ(TokenLogs::readClaudeLine(idLast).key(), task.key());

  // Without a request id the message id alone is the key.
  const auto agentLines = fixtureLines(claude2Agent);
  auto agent = TokenLogs::readClaudeLine(agentLines[2]);
  EXPECT_EQ(agent.key(), "msg_01S1");
}

TEST_F(TokenLogsTest, CountsAStreamedReplyOnceWithItsMostCompleteLine) {
  const auto file = project("-home-dev-shop") / "5f0e2c1a.jsonl";
  append(file, read(fixtures / "claude/streamed.jsonl"));
  auto first = update();
  EXPECT_EQ(first.seen, std::vector<std::string>{file.string()});
  const std::vector<std::string> day{"2025-03-14"};
  EXPECT_EQ(ledger.usageOn("2025-03-14"), (TokenUsage{3 + 5 + 10, 380 + 42 + 20, 41000, 1300}));
  auto models = ledger.byModel(day);
  ASSERT_EQ(models.size(), 3u);
  EXPECT_EQ(models[0], (std::pair<std::string, TokenUsage>{sonnet, {3, 380, 20000, 1000}}));
  EXPECT_EQ(models[1], (std::pair<std::string, TokenUsage>{"claude-opus-4-1-20250805", {5, 42, 21000, 300}}));

  // Nothing new: the file is not opened.
  auto second = update();
  EXPECT_EQ(second.filesRead, 0u);

  // A later, fuller line of a reply adds only what it holds beyond what was booked, to the
  // day and model of the first booking, even when its own moment is the next day.
  append(file, assistantLine("msg_01BBB", "req_011BBB", "claude-opus-4-1-20250805", {5, 50, 21000, 300},
                             "2025-03-15T00:00:01Z"));
  update();
  EXPECT_EQ(ledger.usage(day).output, 380 + 50 + 20);
  EXPECT_TRUE(ledger.usageOn("2025-03-15").isZero());
}

TEST_F(TokenLogsTest, CountsCopiedRepliesOnceAndACopyOutlivesTheFileThatBookedIt) {
  auto lines = fixtureLines("claude/streamed.jsonl");
  const auto first = project("-home-dev-shop") / "first.jsonl";
  const auto resumed = project("-home-dev-shop") / "resumed.jsonl";
  const TokenUsage copied{3, 380, 20000, 1000}, own{4, 90, 22000, 500};
  // The first session's log holds only the early, partial lines of one reply.
  append(first, lines[1] + lines[2] + lines[3]);
  update();
  EXPECT_EQ(ledger.usageOn("2025-03-14"), (TokenUsage{3, 1, 20000, 1000}));

  // The resumed session repeats it complete and adds a reply of its own.
  append(resumed, read(fixtures / "claude/resumed.jsonl"));
  update();
  EXPECT_EQ(ledger.usageOn("2025-03-14"), copied);
  EXPECT_EQ(ledger.usageOn("2025-03-15"), own);

  // After a trip through the cache, and in a copy, the index of counted replies is rebuilt.
  TokenLedger cached = TokenLedger::fromJSON(nlohmann::json::parse(ledger.toJSON().dump())).value();
  EXPECT_EQ(cached, ledger);
  TokenLedger copy = ledger;  // indexed: the copy must not use the original's index
  append(project("-home-dev-other") / "third.jsonl",
         assistantLine("msg_01AAA", "req_011AAA", sonnet, {3, 400, 20000, 1000}, "2025-03-16T10:00:00Z") +
             assistantLine("msg_01EEE", "req_011EEE", sonnet, {4, 90, 22000, 500}, "2025-03-16T10:00:00Z"));
  for (TokenLedger* each : {&cached, &copy}) {
    TokenLogs::update(*each, UsageTool::claude, {claudeHome()}, longAgo, utc);
    EXPECT_EQ(each->usageOn("2025-03-14").output, 400);
    EXPECT_EQ(each->replies(), 2u);
  }
  fs::remove_all(project("-home-dev-other"));

  // The first file is written again, shorter and without the reply: the copy counts it now.
  replace(first, lines[1]);
  update();
  EXPECT_EQ(ledger.usageOn("2025-03-14"), copied);

  // Through the cache; then the reply comes back to the first file, and the second file goes.
  ledger = TokenLedger::fromJSON(nlohmann::json::parse(ledger.toJSON().dump())).value();
  append(first, lines[2] + lines[3] + lines[4]);
  update();
  EXPECT_EQ(ledger.usageOn("2025-03-14"), copied);
  fs::remove(resumed);
  update();
  EXPECT_EQ(ledger.usageOn("2025-03-14"), copied);
  EXPECT_EQ(ledger.replies(), 1u);
}

TEST_F(TokenLogsTest, ReadsARewrittenFileAgainFromTheStart) {
  const auto file = project("p") / "s.jsonl";
  append(file, assistantLine("msg_A", "req_A", sonnet, {100, 100, 100, 100}, "2025-03-14T10:00:00Z",
                             std::string(2000, 'x')));
  update();
  EXPECT_EQ(ledger.usageOn("2025-03-14").total(), 400);

  // Truncated and written again, shorter: its old figures go, and its replies leave the index.
  replace(file, assistantLine("msg_C", "req_C", sonnet, {1, 2, 3, 4}, "2025-03-14T11:00:00Z"));
  update();
  EXPECT_EQ(ledger.usageOn("2025-03-14"), (TokenUsage{1, 2, 3, 4}));
  append(project("q") / "copy.jsonl", assistantLine("msg_A", "req_A", sonnet, {100, 100, 100, 100}, "2025-03-14T10:00:00Z"));
  update();
  EXPECT_EQ(ledger.usageOn("2025-03-14").total(), 410);

  // Written again longer than before: the remembered offset no longer follows a newline.
  const auto before = ledger.files().at(file.string()).offset;
  std::string longer = assistantLine("msg_D", "req_D", sonnet, {0, 7, 0, 0}, "2025-03-14T12:00:00Z", std::string(before, 'y'));
  ASSERT_NE(longer[before - 1], '\n');
  replace(file, longer);
  update();
  EXPECT_EQ(ledger.usageOn("2025-03-14").total(), 407);
}

TEST_F(TokenLogsTest, TakesOnlyWholeLines) {
  const auto file = project("p") / "s.jsonl";
  const std::string first = assistantLine("msg_1", "req_1", sonnet, {1, 1, 0, 0}, "2025-03-14T10:00:00Z");
  const std::string second = assistantLine("msg_2", "req_2", sonnet, {2, 2, 0, 0}, "2025-03-14T10:00:01Z");
  append(file, first + second.substr(0, 120));
  update();
  EXPECT_EQ(ledger.usageOn("2025-03-14"), (TokenUsage{1, 1, 0, 0}));
  EXPECT_EQ(ledger.files().at(file.string()).offset, first.size());
  append(file, second.substr(120));
  update();
  EXPECT_EQ(ledger.usageOn("2025-03-14"), (TokenUsage{3, 3, 0, 0}));

  // A line longer than a read chunk waits while it is written, then counts once.
  const std::string huge = assistantLine("msg_3", "req_3", sonnet, {5, 5, 0, 0}, "2025-03-14T10:00:02Z",
                                         std::string(TokenLogs::chunkSize + 1'000'000, 'z'));
  append(file, huge.substr(0, TokenLogs::chunkSize + 500'000));
  update();
  EXPECT_EQ(ledger.usageOn("2025-03-14"), (TokenUsage{3, 3, 0, 0}));
  append(file, huge.substr(TokenLogs::chunkSize + 500'000) +
                   assistantLine("msg_4", "req_4", sonnet, {7, 7, 0, 0}, "2025-03-14T10:00:03Z"));
  update();
  EXPECT_EQ(ledger.usageOn("2025-03-14"), (TokenUsage{15, 15, 0, 0}));
  EXPECT_EQ(ledger.files().at(file.string()).offset, std::filesystem::file_size(file));
}

TEST_F(TokenLogsTest, PassesOverALineTooLongToHold) {
  // A run of zeros longer than longestLine, as a file extended by ftruncate leaves it: sparse,
  // so it costs no disk.
  const auto file = project("p") / "sparse.jsonl";
  const std::string first = assistantLine("msg_1", "req_1", sonnet, {1, 2, 0, 0}, "2025-03-14T10:00:00Z");
  append(file, first);
  ASSERT_EQ(::truncate(file.c_str(), static_cast<off_t>(first.size() + TokenLogs::longestLine + TokenLogs::chunkSize)), 0);
  append(file, "\n" + assistantLine("msg_2", "req_2", sonnet, {10, 20, 0, 0}, "2025-03-14T10:00:01Z"));
  update();
  EXPECT_EQ(ledger.usageOn("2025-03-14"), (TokenUsage{11, 22, 0, 0}));
  EXPECT_EQ(ledger.files().at(file.string()).offset, std::filesystem::file_size(file));
}

// Sets TZ for one test and puts the old value back.
struct ZoneForTest {
  std::optional<std::string> saved;
  ZoneForTest() {
    if (const char* value = getenv("TZ")) saved = value;
  }
  ~ZoneForTest() {
    if (saved) setenv("TZ", saved->c_str(), 1);
    else unsetenv("TZ");
    tzset();
  }
};

TEST_F(TokenLogsTest, BooksEachLineOnItsLocalDayInAZoneThatMayChangeWhileRunning) {
  // Two hours ahead of UTC, 22:00 UTC is the next day's midnight.
  const auto plusTwo = DayCalendar::fixed(2h);
  append(project("p") / "s.jsonl",
         assistantLine("msg_1", "req_1", sonnet, {1, 0, 0, 0}, "2025-03-14T21:59:59.999Z") +
             assistantLine("msg_2", "req_2", sonnet, {2, 0, 0, 0}, "2025-03-14T22:00:00.000Z") +
             assistantLine("msg_3", "req_3", sonnet, {4, 0, 0, 0}, "2025-03-15T00:30:00+03:00"));
  update(UsageTool::claude, plusTwo);
  EXPECT_EQ(ledger.usageOn("2025-03-14").input, 1 + 4);
  EXPECT_EQ(ledger.usageOn("2025-03-15").input, 2);
  EXPECT_EQ(TokenLogs::day(*parseISO8601("2025-03-14T22:00:00Z"), plusTwo), "2025-03-15");

  // The system's own zone, with summer time starting on 2025-03-30.
  ZoneForTest zone;
  setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
  tzset();
  const auto local = DayCalendar::local();
  const Date noon = *parseISO8601("2025-03-31T10:00:00Z");
  EXPECT_EQ(TokenLogs::days(3, noon, local), (std::vector<std::string>{"2025-03-29", "2025-03-30", "2025-03-31"}));
  EXPECT_EQ(TokenLogs::day(*parseISO8601("2025-03-30T22:00:00Z"), local), "2025-03-31");

  // Changed in the environment; nothing here calls tzset.
  const Date late = *parseISO8601("2025-03-14T23:30:00Z");
  setenv("TZ", "UTC0", 1);
  EXPECT_EQ(TokenLogs::day(late, local), "2025-03-14");
  setenv("TZ", "JST-9", 1);
  EXPECT_EQ(TokenLogs::day(late, local), "2025-03-15");
  append(folder / "tokyo" / "projects" / "p" / "s.jsonl",
         assistantLine("msg_1", "req_1", sonnet, {1, 0, 0, 0}, "2025-03-14T23:30:00Z"));
  TokenLedger tokyo;
  TokenLogs::update(tokyo, UsageTool::claude, {folder / "tokyo"}, longAgo, local);
  EXPECT_EQ(tokyo.usageOn("2025-03-15").input, 1);

}

TEST_F(TokenLogsTest, BooksCodexRunningTotalsByTheirGrowthAndTheLastTurnWhereTheyStartAgain) {
  auto lines = fixtureLines("codex/rollout-2025-03-14T11-00-00-basic.jsonl");
  ASSERT_EQ(lines.size(), 8u);
  const auto file = codexHome() / "sessions" / "2025" / "03" / "14" / "rollout-basic.jsonl";
  append(file, lines[0] + lines[1] + lines[2] + lines[3] + lines[4]);
  update(UsageTool::codex);
  EXPECT_EQ(ledger.usageOn("2025-03-14"), (TokenUsage{100, 0, 0, 0}));
  append(file, lines[5] + lines[6]);  // the same totals again, then 250
  update(UsageTool::codex);
  EXPECT_EQ(ledger.usageOn("2025-03-14"), (TokenUsage{250, 0, 0, 0}));
  // Input less its cached part is the input; the cached part is read from the cache.
  append(file, lines[7]);
  update(UsageTool::codex);
  EXPECT_EQ(ledger.usageOn("2025-03-14"), (TokenUsage{650, 60, 600, 0}));

  // Where the totals start again, the last turn is booked.
  const auto archived = folder / "restart" / "archived_sessions" / "rollout-restart.jsonl";
  append(archived, read(fixtures / "codex/rollout-2025-03-14T12-00-00-restart.jsonl"));
  TokenLedger restarted;
  TokenLogs::update(restarted, UsageTool::codex, {folder / "restart"}, longAgo, utc);
  auto models = restarted.byModel({"2025-03-14"});
  ASSERT_EQ(models.size(), 2u);
  EXPECT_EQ(models[0], (std::pair<std::string, TokenUsage>{"gpt-5", {4000, 300, 1000, 0}}));
  EXPECT_EQ(models[1], (std::pair<std::string, TokenUsage>{"gpt-5.1-codex-max", {600 + 100, 40 + 10, 200 + 100, 0}}));
}

TEST_F(TokenLogsTest, LeavesOldFilesClosedAndDropsWhatFellOutOfTheDays) {
  const auto now = std::chrono::system_clock::now();
  const auto old = project("p") / "old.jsonl";
  const auto recent = project("p") / "recent.jsonl";
  append(old, assistantLine("msg_1", "req_1", sonnet, {1, 0, 0, 0}, "2025-03-01T10:00:00Z"));
  append(recent, assistantLine("msg_2", "req_2", sonnet, {2, 0, 0, 0}, formatISO8601(now)));
  const auto setModified = [](const fs::path& file, Date date) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(date.time_since_epoch()).count();
    timespec times[2] = {{seconds, 0}, {seconds, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
  };
  setModified(old, now - 24h * 30);
  const Date since = TokenLogs::start(7, now, utc);
  auto first = TokenLogs::update(ledger, UsageTool::claude, {claudeHome()}, since, utc);
  EXPECT_EQ(first.filesRead, 1u);
  EXPECT_FALSE(ledger.files().count(old.string()));
  EXPECT_EQ(ledger.usage(TokenLogs::days(7, now, utc)).input, 2);

  // Read over a longer span, then back to seven days: the old file's entry goes again.
  TokenLogs::update(ledger, UsageTool::claude, {claudeHome()}, longAgo, utc);
  EXPECT_EQ(ledger.usageOn("2025-03-01").input, 1);
  TokenLogs::update(ledger, UsageTool::claude, {claudeHome()}, since, utc);
  EXPECT_FALSE(ledger.files().count(old.string()));
  // A deleted file's figures go with it.
  fs::remove(recent);
  auto last = TokenLogs::update(ledger, UsageTool::claude, {claudeHome()}, since, utc);
  EXPECT_EQ(last.filesRead, 0u);
  EXPECT_TRUE(ledger.files().empty());
}

TEST_F(TokenLogsTest, FindsEachLogOnceWhereverItLies) {
  // Enough project folders that the walk is shared between threads, logs at every depth,
  // and links: to a file (followed), to a folder and to the folder above (neither).
  std::set<std::string> expected;
  int64_t input = 0;
  const auto log = [&](const fs::path& file, int tokens) {
    append(file, assistantLine("msg_" + file.string(), "req", sonnet, {tokens, 0, 0, 0}, "2025-03-14T10:00:00Z"));
    expected.insert(file.string());
    input += tokens;
  };
  for (int i = 0; i < 40; ++i) log(project("-home-dev-p" + std::to_string(i)) / "s.jsonl", i + 1);
  log(project("-home-dev-p7") / "s" / "subagents" / "agent-1.jsonl", 100);
  log(claudeHome() / "projects" / "loose.jsonl", 200);
  append(project("-home-dev-p3") / "notes.txt", assistantLine("msg_txt", "req", sonnet, {9999, 0, 0, 0}, "2025-03-14T10:00:00Z"));
  const auto elsewhere = folder / "elsewhere";
  append(elsewhere / "kept.jsonl", assistantLine("msg_linked", "req", sonnet, {1000, 0, 0, 0}, "2025-03-14T10:00:00Z"));
  fs::create_symlink(elsewhere / "kept.jsonl", project("-home-dev-p1") / "linked.jsonl");
  expected.insert((project("-home-dev-p1") / "linked.jsonl").string());
  input += 1000;
  fs::create_directory_symlink(elsewhere, project("-home-dev-p2") / "linked-folder");
  fs::create_directory_symlink(claudeHome() / "projects", project("-home-dev-p4") / "loop");
  // A second home with few folders: the walk goes down a level before sharing.
  const auto second = folder / "second";
  log(second / "projects" / "a" / "b" / "c" / "deep.jsonl", 5000);

  auto first = TokenLogs::update(ledger, UsageTool::claude, {claudeHome(), second}, longAgo, utc);
  EXPECT_EQ(std::set<std::string>(first.seen.begin(), first.seen.end()), expected);
  EXPECT_EQ(ledger.usageOn("2025-03-14").input, input);
  auto again = TokenLogs::update(ledger, UsageTool::claude, {claudeHome(), second}, longAgo, utc);
  EXPECT_EQ(again.seen, first.seen);  // the same order each time
  EXPECT_EQ(again.filesRead, 0u);
}

TEST_F(TokenLogsTest, CountsModelFirstRepliesAndSubagentsOnceAlsoAsASession) {
  TokenLogs::update(ledger, UsageTool::claude, {fixtures / "claude2"}, longAgo, utc);
  auto models = ledger.byModel({"2025-11-20"});
  ASSERT_EQ(models.size(), 2u);
  EXPECT_EQ(models[0], (std::pair<std::string, TokenUsage>{sonnet, claude2Sonnet}));
  EXPECT_EQ(models[1], (std::pair<std::string, TokenUsage>{haiku, claude2Haiku}));

  // The same files as one agent session's; a missing file is no session.
  SessionLedger session;
  TokenLogs::updateSession(session, UsageTool::claude, {folder / "missing.jsonl"}, utc);
  EXPECT_FALSE(session.found());
  TokenLogs::updateSession(session, UsageTool::claude,
                           {fixtures / claude2Main, fixtures / claude2Agent, folder / "missing.jsonl"}, utc);
  EXPECT_TRUE(session.found());
  EXPECT_EQ(session.total(), claude2Sonnet + claude2Haiku);
  EXPECT_EQ(SessionLedger::fromJSON(session.toJSON()).value(), session);
}

TEST_F(TokenLogsTest, WalksAHomeReachedThroughALinkOnce) {
  const auto home = folder / "home";
  fs::create_directories(home / ".config");
  fs::copy(fixtures / "claude2", home / ".claude", fs::copy_options::recursive);
  fs::create_directory_symlink(home / ".claude", home / ".config" / "claude");
  fs::copy(fixtures / "codex2", home / ".codex", fs::copy_options::recursive);
  fs::create_directory_symlink(home / ".codex", home / "codex-again");
  const auto env = environment({{"HOME", home.string()}, {"CODEX_HOME", "~/.codex,~/codex-again"}});

  auto claude = TokenLogs::update(ledger, UsageTool::claude, env, longAgo, utc);
  EXPECT_EQ(claude.seen.size(), 2u);
  EXPECT_EQ(ledger.usageOn("2025-11-20"), claude2Sonnet + claude2Haiku);
  TokenLedger codex;
  EXPECT_EQ(TokenLogs::update(codex, UsageTool::codex, env, longAgo, utc).seen.size(), 2u);
  EXPECT_EQ(codex.usageOn("2025-11-20"), codex2Running20);
}

TEST_F(TokenLogsTest, AnArchivedCodexSessionCountsOnce) {
  fs::copy(fixtures / "codex2", codexHome(), fs::copy_options::recursive);
  const auto running = codexHome() / "sessions" / "2025" / "11" / "20" / codex2Running;
  const auto archived = codexHome() / "archived_sessions" / codex2Running;
  update(UsageTool::codex);
  EXPECT_EQ(ledger.usageOn("2025-11-20"), codex2Running20);
  EXPECT_EQ(ledger.usageOn("2025-11-19"), (TokenUsage{500, 20, 0, 0}));

  // Codex moves a finished session: the same log under another folder, not read again.
  fs::rename(running, archived);
  auto moved = update(UsageTool::codex);
  EXPECT_EQ(moved.filesRead, 0u);
  EXPECT_EQ(ledger.usageOn("2025-11-20"), codex2Running20);
  EXPECT_FALSE(ledger.files().count(running.string()));

  // Written on after the move, only the growth counts.
  append(archived,
         R"({"timestamp":"2025-11-20T10:09:05.000Z","type":"event_msg","payload":{"type":"token_count","info":{"total_token_usage":{"input_tokens":4700,"cached_input_tokens":1300,"output_tokens":260,"reasoning_output_tokens":0,"total_tokens":4960},"last_token_usage":{"input_tokens":500,"cached_input_tokens":100,"output_tokens":30,"reasoning_output_tokens":0,"total_tokens":530},"model_context_window":272000},"rate_limits":null}})"
         "\n");
  auto grown = update(UsageTool::codex);
  EXPECT_EQ(grown.filesRead, 1u);
  EXPECT_EQ(ledger.usageOn("2025-11-20"), (codex2Running20 + TokenUsage{400, 30, 100, 0}));

  // Moved again, into another day's folder: still the same log.
  const auto back = codexHome() / "sessions" / "2025" / "11" / "21" / codex2Running;
  fs::create_directories(back.parent_path());
  fs::rename(archived, back);
  EXPECT_EQ(update(UsageTool::codex).filesRead, 0u);
  EXPECT_EQ(ledger.usageOn("2025-11-20"), (codex2Running20 + TokenUsage{400, 30, 100, 0}));
  EXPECT_EQ(ledger.files().size(), 2u);

  // Gone, its figures go.
  fs::remove(back);
  update(UsageTool::codex);
  EXPECT_TRUE(ledger.usageOn("2025-11-20").isZero());
  EXPECT_EQ(ledger.files().size(), 1u);
}

TEST_F(TokenLogsTest, SumsStopAtTheLargestCount) {
  constexpr int64_t huge = 9'000'000'000'000'000'000;
  constexpr int64_t most = std::numeric_limits<int64_t>::max();
  append(project("p") / "s.jsonl",
         assistantLine("msg_1", "req_1", sonnet, {huge, huge, 0, 0}, "2025-03-14T10:00:00Z") +
             assistantLine("msg_2", "req_2", sonnet, {huge, 1, 0, 0}, "2025-03-14T11:00:00Z") +
             assistantLine("msg_3", "req_3", sonnet, {huge, 0, 0, 0}, "2025-03-15T11:00:00Z"));
  update();
  const TokenUsage day = ledger.usageOn("2025-03-14");
  EXPECT_EQ(day.input, most);
  EXPECT_EQ(day.output, huge + 1);
  EXPECT_EQ(day.total(), most);
}

}  // namespace
}  // namespace omnira
