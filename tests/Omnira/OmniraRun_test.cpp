// The real application, run headless as a person would run it, against its own data and
// settings folders.

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

#include "Omnira/LiveHistory.h"
#include "OmniraCore/history/WorthALook.h"
#include "OmniraCore/history/HistoryDatabase.h"
#include "OmniraCore/foundation/SystemText.h"
#include "OmniraCore/history/UsageLedger.h"
#include "tests/Omnira/RunningOmnira.h"
#include "tests/cli/CommandRun.h"

namespace omnira {
namespace {

using namespace std::chrono_literals;

using testing::slurp;
using Child = testing::RunningOmnira;

// The loop has primed and ticked at its one-second cadence past `seconds` recorded.
bool waitForTicks(const std::filesystem::path& history, double seconds = 0) {
  return testing::waitForRecorded(history, seconds + 1.5);
}

TEST(OmniraRun, RunsHeadlessKeepsOneInstanceAndSavesEverythingOnStop) {
  const auto home = std::filesystem::temp_directory_path() / ("omnira-run-" + std::to_string(::getpid()));
  std::filesystem::remove_all(home);
  std::filesystem::create_directories(home / "config" / "Omnira");
  std::filesystem::create_directories(home / "data" / "Omnira");
  std::ofstream(home / "config" / "Omnira" / "settings.json") << R"({"refreshSeconds": 1})";
  const auto data = home / "data" / "Omnira";
  // Saved files damaged by hand: logged and started afresh, never a failed start.
  std::ofstream(data / "live.json") << "{\"savedAt\": 12";
  std::ofstream(data / "insights.json") << "not json";
  std::ofstream(data / "usage.json") << "[1, 2";

  Date firstStop{};
  {
    Child app(home, {"--headless", "--watching"});
    ASSERT_TRUE(waitForTicks(data / "history.sqlite")) << slurp(home / "stderr");

    // A second start for the same user refuses and names the first.
    Child second(home, {"--headless"});
    EXPECT_EQ(second.wait(), 1);
    EXPECT_NE(slurp(home / "stderr").find("Omnira is already running (process " + std::to_string(app.pid()) + ")."),
              std::string::npos)
        << slurp(home / "stderr");

    EXPECT_EQ(app.stop(SIGTERM), 0) << slurp(home / "stderr");
    firstStop = std::chrono::system_clock::now();
  }
  EXPECT_EQ(slurp(home / "stdout"), "");  // quiet without a terminal

  auto live = LiveHistory::load(data / "live.json");
  ASSERT_TRUE(live) << live.error().message;
  ASSERT_FALSE(live->systemHistory.empty());
  EXPECT_FALSE(live->groupHistory.empty());
  EXPECT_TRUE(WorthALook::load(data / "insights.json"));
  auto ledger = UsageLedger::load(data / "usage.json");
  ASSERT_TRUE(ledger) << ledger.error().message;
  EXPECT_GT(ledger->day(UsageLedger::dayKey(std::chrono::system_clock::now())).seconds, 0);
  EXPECT_FALSE(std::filesystem::exists(home / "data" / "Omnira" / "history.sqlite-wal") &&
               std::filesystem::file_size(data / "history.sqlite-wal") > 0);  // checkpointed
  const size_t firstRun = live->systemHistory.size();
  const double recorded = testing::recordedSeconds(data / "history.sqlite");
  EXPECT_GT(recorded, 0);

  // A start after the stop carries the charts on and stops cleanly on SIGINT too.
  {
    Child again(home, {"--headless", "--watching"});
    ASSERT_TRUE(waitForTicks(data / "history.sqlite", recorded)) << slurp(home / "stderr");
    EXPECT_EQ(again.stop(SIGINT), 0) << slurp(home / "stderr");
  }
  live = LiveHistory::load(data / "live.json");
  ASSERT_TRUE(live);
  EXPECT_GT(live->systemHistory.size(), firstRun);
  EXPECT_LT(live->systemHistory.front().timestamp, firstStop);

  // The terminal it ran in closed (SIGHUP): it saves and stops as on SIGTERM.
  const size_t secondRun = live->systemHistory.size();
  {
    Child hungUp(home, {"--headless", "--watching"});
    ASSERT_TRUE(waitForTicks(data / "history.sqlite", testing::recordedSeconds(data / "history.sqlite")))
        << slurp(home / "stderr");
    EXPECT_EQ(hungUp.stop(SIGHUP), 0) << slurp(home / "stderr");
  }
  live = LiveHistory::load(data / "live.json");
  ASSERT_TRUE(live);
  EXPECT_GT(live->systemHistory.size(), secondRun);
  std::filesystem::remove_all(home);
}

// Whether the history's hour rows name the app.
bool recordedApp(const std::filesystem::path& file, const std::string& appId) {
  if (!std::filesystem::exists(file)) return false;
  auto db = HistoryDatabase::open(file);
  if (!db) return false;
  auto rows = (*db)->apps(HistoryDatabase::AppTable::hours, 0, INT64_MAX);
  if (!rows) return false;
  for (const auto& row : *rows)
    if (row.appId == appId) return true;
  return false;
}

TEST(OmniraRun, GroupsAnAppInstalledWhileItRuns) {
  namespace fs = std::filesystem;
  const auto home = fs::temp_directory_path() / ("omnira-run-apps-" + std::to_string(::getpid()));
  fs::remove_all(home);
  fs::create_directories(home / "config" / "Omnira");
  fs::create_directories(home / "bin");
  std::ofstream(home / "config" / "Omnira" / "settings.json") << R"({"refreshSeconds": 1})";
  const auto history = home / "data" / "Omnira" / "history.sqlite";
  // A program of its own, running before its app is installed.
  const auto program = home / "bin" / "omnira-fixture-tool";
  fs::copy_file("/bin/sleep", program);
  const pid_t tool = ::fork();
  if (tool == 0) {
    ::execl(program.c_str(), program.c_str(), "120", nullptr);
    ::_exit(127);
  }
  const auto entry = home / "data" / "applications" / "omnira-fixture-tool.desktop";

  Child app(home, {"--headless", "--watching"});
  EXPECT_TRUE(waitForTicks(history)) << slurp(home / "stderr");
  EXPECT_FALSE(recordedApp(history, entry.string()));
  fs::create_directories(entry.parent_path());
  std::ofstream(entry) << "[Desktop Entry]\nType=Application\nName=Fixture Tool\nExec=" << program.string() << " %F\n";
  bool grouped = false;
  for (int i = 0; i < 150 && !grouped; ++i) {
    std::this_thread::sleep_for(200ms);
    grouped = recordedApp(history, entry.string());
  }
  EXPECT_TRUE(grouped) << slurp(home / "stderr");
  EXPECT_EQ(app.stop(SIGTERM), 0);
  ::kill(tool, SIGKILL);
  ::waitpid(tool, nullptr, 0);
  fs::remove_all(home);
}

// Names are bytes: any local user can start a program whose path and name are not UTF-8,
// and a coding tool's log may be named in Latin-1 and hold such bytes. Every file the
// application writes and every JSON the command prints stays valid, and nothing aborts.
TEST(OmniraRun, StaysUpWithNamesThatAreNotUTF8) {
  namespace fs = std::filesystem;
  const auto home = fs::temp_directory_path() / ("omnira-run-bytes-" + std::to_string(::getpid()));
  fs::remove_all(home);
  fs::create_directories(home / "config" / "Omnira");
  std::ofstream(home / "config" / "Omnira" / "settings.json")
      << R"({"refreshSeconds": 1, "usageLimitsEnabled": true, "usageLimitsClaude": true})";
  const auto data = home / "data" / "Omnira";

  const auto folder = home / "bin\xff";
  fs::create_directories(folder);
  const auto program = folder / "sl\xff\xfe";
  fs::copy_file("/bin/sleep", program);
  const pid_t odd = ::fork();
  if (odd == 0) {
    // Root's own programs without a terminal count as the system's: this one is somebody's.
    if (::getuid() == 0 && (::setgid(65534) != 0 || ::setuid(65534) != 0)) ::_exit(126);
    ::execl(program.c_str(), "/\xff", "120", nullptr);
    ::_exit(127);
  }

  const auto claude = home / "claude";
  const auto log = claude / "projects" / "caf\xe9" / "caf\xe9.jsonl";
  fs::create_directories(log.parent_path());
  const auto now = formatISO8601(std::chrono::system_clock::now());
  std::ofstream(log) << R"({"type":"assistant","timestamp":")" << now
                     << R"(","requestId":"req_\xff","message":{"model":"claude-)"
                     << "\xff\xfe" << R"(","id":"msg_)" << "\xc3"
                     << R"(","usage":{"input_tokens":10,"output_tokens":20,"cache_read_input_tokens":0,"cache_creation_input_tokens":0}}})"
                     << "\n";
  ::setenv("CLAUDE_CONFIG_DIR", claude.c_str(), 1);

  {
    Child app(home, {"--headless", "--watching"});
    ASSERT_TRUE(waitForTicks(data / "history.sqlite", 2)) << slurp(home / "stderr");
    for (int i = 0; i < 100 && !fs::exists(data / "usage-limits.json"); ++i) std::this_thread::sleep_for(100ms);
    EXPECT_TRUE(fs::exists(data / "usage-limits.json")) << slurp(home / "stderr");
    std::this_thread::sleep_for(1500ms);  // a few more ticks and saves with the odd names
    EXPECT_EQ(app.stop(SIGTERM), 0) << slurp(home / "stderr");
  }

  const std::string replacement = "\xef\xbf\xbd";
  for (const char* file : {"live.json", "usage.json", "insights.json", "usage-limits.json"}) {
    const auto text = slurp(data / file);
    EXPECT_TRUE(isUTF8(text)) << file;
    EXPECT_FALSE(nlohmann::json::parse(text, nullptr, false).is_discarded()) << file;
  }
  auto live = LiveHistory::load(data / "live.json");
  ASSERT_TRUE(live) << live.error().message;
  bool oddGroup = false;
  for (const auto& [id, points] : live->groupHistory) oddGroup |= id.find(replacement) != std::string::npos;
  EXPECT_TRUE(oddGroup);

  auto db = HistoryDatabase::open(data / "history.sqlite");
  ASSERT_TRUE(db);
  auto rows = (*db)->apps(HistoryDatabase::AppTable::hours, 0, INT64_MAX);
  ASSERT_TRUE(rows);
  bool oddRow = false;
  for (const auto& row : *rows) {
    EXPECT_TRUE(isUTF8(row.appId) && isUTF8(row.name)) << row.appId;
    oddRow |= row.appId.find(replacement) != std::string::npos;
  }
  EXPECT_TRUE(oddRow);

  const std::string env = "XDG_DATA_HOME='" + (home / "data").string() + "' XDG_CONFIG_HOME='" +
                          (home / "config").string() + "' ";
  for (const std::string command : {"snapshot --json --all", "history apps --json", "tokens --json"}) {
    const auto run = testing::runShell(env + OMNIRA_CLI_PATH + " " + command + " 2>/dev/null");
    EXPECT_EQ(run.status, 0) << command;
    EXPECT_TRUE(isUTF8(run.out)) << command;
    EXPECT_FALSE(nlohmann::json::parse(run.out, nullptr, false).is_discarded()) << command << ": " << run.out;
    if (command.starts_with("snapshot")) {
      EXPECT_NE(run.out.find(replacement), std::string::npos);
    }
  }

  ::unsetenv("CLAUDE_CONFIG_DIR");
  ::kill(odd, SIGKILL);
  ::waitpid(odd, nullptr, 0);
  fs::remove_all(home);
}

}  // namespace
}  // namespace omnira
