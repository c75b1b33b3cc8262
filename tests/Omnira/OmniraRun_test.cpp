// The real application, run headless as a person would run it, against its own data and
// settings folders: one run walks through what a person and their agents do to it, and two
// more starts carry its charts on and stop it by the other signals.

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <future>
#include <thread>

#include "Omnira/BridgeHost.h"
#include "Omnira/LiveHistory.h"
#include "OmniraCore/bridge/BridgeSocket.h"
#include "OmniraCore/foundation/SystemText.h"
#include "OmniraCore/history/HistoryDatabase.h"
#include "OmniraCore/history/UsageLedger.h"
#include "OmniraCore/history/WorthALook.h"
#include "tests/Omnira/RunningOmnira.h"
#include "tests/cli/CommandRun.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::slurp;
using Child = testing::RunningOmnira;
using json = nlohmann::ordered_json;

// The loop has primed and ticked at its one-second cadence past `seconds` recorded.
bool waitForTicks(const fs::path& history, double seconds = 0) { return testing::waitForRecorded(history, seconds + 1.5); }

template <class Condition>
bool waitFor(Condition condition) {
  for (int i = 0; i < 300 && !condition(); ++i) std::this_thread::sleep_for(100ms);
  return condition();
}

// A copy of `sleep` at `program`, started under the name `name`; root's programs without a
// terminal count as the system's, so as root it runs as somebody else.
pid_t startCopyOfSleep(const fs::path& program, const char* name) {
  fs::create_directories(program.parent_path());
  fs::copy_file("/bin/sleep", program);
  const pid_t pid = ::fork();
  if (pid == 0) {
    if (::getuid() == 0 && (::setgid(65534) != 0 || ::setuid(65534) != 0)) ::_exit(126);
    ::execl(program.c_str(), name, "120", nullptr);
    ::_exit(127);
  }
  return pid;
}

// The history's hour rows, as `omnira history apps` reads them.
std::vector<HistoryDatabase::AppRow> hourRows(const fs::path& file) {
  auto db = HistoryDatabase::open(file);
  if (!db) return {};
  auto rows = (*db)->apps(HistoryDatabase::AppTable::hours, 0, INT64_MAX);
  return rows ? *rows : std::vector<HistoryDatabase::AppRow>{};
}

TEST(OmniraRun, OneRunServesAgentsGroupsNewAppsKeepsNamesAsBytesAndSavesEverythingOnStop) {
  const auto home = fs::temp_directory_path() / ("omnira-run-" + std::to_string(::getpid()));
  const auto data = home / "data" / "Omnira";
  fs::remove_all(home);
  fs::create_directories(home / "config" / "Omnira");
  fs::create_directories(data);
  std::ofstream(home / "config" / "Omnira" / "settings.json")
      << R"({"refreshSeconds": 1, "bridgeEnabled": true, "usageLimitsEnabled": true, "usageLimitsClaude": true})";
  // Saved files damaged by hand: logged and started afresh, never a failed start.
  std::ofstream(data / "live.json") << "{\"savedAt\": 12";
  std::ofstream(data / "insights.json") << "not json";
  std::ofstream(data / "usage.json") << "[1, 2";

  // Names are bytes: any local user can start a program whose path and name are not UTF-8,
  // and a coding tool's log may be named in Latin-1 and hold such bytes.
  const pid_t odd = startCopyOfSleep(home / "bin\xff" / "sl\xff\xfe", "/\xff");
  const auto claude = home / "claude";
  const auto log = claude / "projects" / "caf\xe9" / "caf\xe9.jsonl";
  fs::create_directories(log.parent_path());
  std::ofstream(log) << R"({"type":"assistant","timestamp":")" << formatISO8601(std::chrono::system_clock::now())
                     << R"(","requestId":"req_\xff","message":{"model":"claude-)" << "\xff\xfe" << R"(","id":"msg_)"
                     << "\xc3"
                     << R"(","usage":{"input_tokens":10,"output_tokens":20,"cache_read_input_tokens":0,"cache_creation_input_tokens":0}}})"
                     << "\n";
  ::setenv("CLAUDE_CONFIG_DIR", claude.c_str(), 1);
  // A program of its own, running before its app is installed.
  const pid_t tool = startCopyOfSleep(home / "bin" / "omnira-fixture-tool", "omnira-fixture-tool");
  const auto entry = home / "data" / "applications" / "omnira-fixture-tool.desktop";
  const auto grouped = [&] {
    for (const auto& row : hourRows(data / "history.sqlite"))
      if (row.appId == entry.string()) return true;
    return false;
  };
  const fs::path socket = data / "bridge.sock";
  const auto omnira = [&](const std::string& arguments) { return testing::runCommandIn(home, arguments, true); };

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

    // 125 questions at once from as many clients: 120 are answered in the minute.
    ASSERT_TRUE(waitFor([&] { return fs::exists(socket); })) << slurp(home / "stderr");
    std::vector<std::future<Result<json, BridgeSocket::Failure>>> asked;
    for (int i = 0; i < 125; ++i)
      asked.push_back(std::async(std::launch::async, [&] { return BridgeSocket::ask({{"tool", "ports"}}, socket.string(), 10s); }));
    int answered = 0, refused = 0;
    for (auto& reply : asked) {
      auto got = reply.get();
      ASSERT_TRUE(got.ok()) << got.error().message.value_or("nothing listens");
      answered += (*got)["ok"] == true;
      refused += (*got)["error"] == BridgeHost::kTooMany;
    }
    EXPECT_EQ(answered, 120);
    EXPECT_EQ(refused, 5);
    // Switched off through the settings: the socket goes, and a client hears nobody is there.
    ASSERT_EQ(omnira("settings set bridgeEnabled false").status, 0);
    ASSERT_TRUE(waitFor([&] { return !fs::exists(socket); }));
    const auto off = omnira("ask ports");
    EXPECT_EQ(off.status, 1);
    EXPECT_NE(off.out.find("omnira settings set bridgeEnabled true"), std::string::npos) << off.out;
    ASSERT_EQ(omnira("settings set bridgeEnabled true").status, 0);
    ASSERT_TRUE(waitFor([&] { return fs::exists(socket); }));

    // An app installed while it runs groups its program from then on.
    EXPECT_FALSE(grouped());
    fs::create_directories(entry.parent_path());
    std::ofstream(entry) << "[Desktop Entry]\nType=Application\nName=Fixture Tool\nExec=" << (home / "bin" / "omnira-fixture-tool").string() << " %F\n";
    EXPECT_TRUE(waitFor([&] { return grouped(); })) << slurp(home / "stderr");
    EXPECT_TRUE(waitFor([&] { return fs::exists(data / "usage-limits.json"); })) << slurp(home / "stderr");

    // Stopping takes the socket away too.
    EXPECT_EQ(app.stop(SIGTERM), 0) << slurp(home / "stderr");
    firstStop = std::chrono::system_clock::now();
    EXPECT_FALSE(fs::exists(socket));
  }
  ::unsetenv("CLAUDE_CONFIG_DIR");
  EXPECT_EQ(slurp(home / "stdout"), "");  // quiet without a terminal

  auto live = LiveHistory::load(data / "live.json");
  ASSERT_TRUE(live) << live.error().message;
  ASSERT_FALSE(live->systemHistory.empty());
  auto ledger = UsageLedger::load(data / "usage.json");
  ASSERT_TRUE(ledger) << ledger.error().message;
  EXPECT_GT(ledger->day(UsageLedger::dayKey(std::chrono::system_clock::now())).seconds, 0);
  EXPECT_FALSE(fs::exists(data / "history.sqlite-wal") && fs::file_size(data / "history.sqlite-wal") > 0);  // checkpointed

  // Every file it wrote and every JSON the command prints stays valid, odd names included
  // (the odd program still runs for the snapshot).
  const std::string replacement = "\xef\xbf\xbd";
  for (const char* file : {"live.json", "usage.json", "insights.json", "usage-limits.json"}) {
    const auto text = slurp(data / file);
    EXPECT_TRUE(isUTF8(text)) << file;
    EXPECT_FALSE(nlohmann::json::parse(text, nullptr, false).is_discarded()) << file;
  }
  EXPECT_TRUE(std::any_of(live->groupHistory.begin(), live->groupHistory.end(),
                          [&](const auto& group) { return group.first.find(replacement) != std::string::npos; }));
  bool oddRow = false;
  for (const auto& row : hourRows(data / "history.sqlite")) {
    EXPECT_TRUE(isUTF8(row.appId) && isUTF8(row.name)) << row.appId;
    oddRow |= row.appId.find(replacement) != std::string::npos;
  }
  EXPECT_TRUE(oddRow);
  for (const std::string command : {"snapshot --json --all", "history apps --json", "tokens --json"}) {
    const auto run = testing::runCommandIn(home, command, false);
    EXPECT_EQ(run.status, 0) << command;
    EXPECT_TRUE(isUTF8(run.out)) << command;
    EXPECT_FALSE(nlohmann::json::parse(run.out, nullptr, false).is_discarded()) << command << ": " << run.out;
    if (command.starts_with("snapshot")) {
      EXPECT_NE(run.out.find(replacement), std::string::npos);
    }
  }

  for (const pid_t child : {odd, tool}) {
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
  }

  // A start after the stop carries the charts on; SIGINT, and the terminal it ran in closing
  // (SIGHUP), save and stop as SIGTERM does.
  for (const int signal : {SIGINT, SIGHUP}) {
    const size_t before = live->systemHistory.size();
    {
      Child again(home, {"--headless", "--watching"});
      ASSERT_TRUE(waitForTicks(data / "history.sqlite", testing::recordedSeconds(data / "history.sqlite")))
          << slurp(home / "stderr");
      EXPECT_EQ(again.stop(signal), 0) << strsignal(signal) << ": " << slurp(home / "stderr");
    }
    live = LiveHistory::load(data / "live.json");
    ASSERT_TRUE(live);
    EXPECT_GT(live->systemHistory.size(), before);
    EXPECT_LT(live->systemHistory.front().timestamp, firstStop);
  }
  fs::remove_all(home);
}

}  // namespace
}  // namespace omnira
