// Agent sessions from a process table and a /proc tree of the test's own, with Claude Code's
// and Codex's session logs as they write them: what each session started, and whether it
// works, waits for the person or idles.

#include "OmniraCore/bridge/AgentSessions.h"

#include <unistd.h>

#include <gtest/gtest.h>
#include "tests/platform/linux/TempTree.h"

#include <filesystem>
#include <fstream>

namespace omnira {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

TEST(AgentSessions, KnowsAgentsByProgramOrScript) {
  EXPECT_EQ(AgentSessions::agentOf("claude", {})->name, "Claude Code");
  EXPECT_EQ(AgentSessions::agentOf("node", {"node", "--no-warnings", "/usr/lib/node_modules/@openai/codex/bin/codex.js"})->id,
            "codex");
  EXPECT_FALSE(AgentSessions::agentOf("node", {"node", "server.js", "claude"}));
  EXPECT_FALSE(AgentSessions::agentOf("vim", {"vim", "claude"}));
}

TEST(AgentSessions, LogsSayWhetherTheTurnIsOver) {
  const auto line = [](const std::string& type, const std::string& content, const char* at) {
    return R"({"type":")" + type + R"(","sessionId":"s-1","timestamp":")" + at + R"(","message":{"role":")" + type +
           R"(","content":)" + content + "}}\n";
  };
  const std::string prompt = line("user", R"("Fix the cart total.")", "2026-11-25T10:00:00Z");
  const std::string toolUse = line("assistant", R"([{"type":"tool_use","name":"Bash"}])", "2026-11-25T10:00:05Z");
  const std::string toolResult = line("user", R"([{"type":"tool_result","content":"ok"}])", "2026-11-25T10:00:09Z");
  const std::string done = line("assistant", R"([{"type":"text","text":"Done."}])", "2026-11-25T10:01:00Z");
  const std::string title = R"({"type":"custom-title","customTitle":"cart rounding","sessionId":"s-1"})" "\n";

  auto state = AgentSessions::readClaudeLog(prompt + toolUse + toolResult + done + title +
                                            R"({"type":"system","subtype":"stop_hook_summary"})" "\n");
  EXPECT_EQ(state.status, AgentSession::Status::waitingForYou);
  EXPECT_EQ(state.since, parseISO8601("2026-11-25T10:01:00Z"));
  EXPECT_EQ(state.title, "cart rounding");
  state = AgentSessions::readClaudeLog(prompt + toolUse);
  EXPECT_EQ(state.status, AgentSession::Status::working);
  EXPECT_TRUE(state.waitsOnATool);
  // A line cut short by a write in progress is passed over.
  EXPECT_EQ(AgentSessions::readClaudeLog(prompt + done + R"({"type":"user","mess)").status,
            AgentSession::Status::waitingForYou);
  EXPECT_FALSE(AgentSessions::readClaudeLog("").status);

  const std::string meta = R"({"timestamp":"2026-11-25T09:00:00Z","type":"session_meta","payload":{"id":"c-9","cwd":"/w"}})" "\n";
  const std::string asked = R"({"timestamp":"2026-11-25T09:00:01Z","type":"event_msg","payload":{"type":"user_message"}})" "\n";
  const std::string complete = R"({"timestamp":"2026-11-25T09:02:00Z","type":"event_msg","payload":{"type":"task_complete"}})" "\n";
  const std::string tokens = R"({"timestamp":"2026-11-25T09:02:01Z","type":"event_msg","payload":{"type":"token_count"}})" "\n";
  auto codex = AgentSessions::readCodexLog(meta + asked + complete + tokens);
  EXPECT_EQ(codex.status, AgentSession::Status::waitingForYou);
  EXPECT_EQ(codex.since, parseISO8601("2026-11-25T09:02:00Z"));
  EXPECT_EQ(AgentSessions::readCodexLog(meta + asked).status, AgentSession::Status::working);
}

ProcessSample proc(int32_t pid, const char* name, int32_t parent, double cpu, Date started) {
  ProcessSample p;
  p.pid = pid;
  p.parentPID = parent;
  p.name = name;
  p.cpuPercent = cpu;
  p.memoryBytes = 100'000'000;
  p.startedAt = started;
  return p;
}

TEST(AgentSessions, SessionsWithWhatTheyStartedAndTheirState) {
  const platform::TempTree tree;
  const fs::path& root = tree.root();
  const fs::path procRoot = root / "proc", home = root / "home" / ".claude", project = root / "src" / "shop";
  fs::create_directories(project);
  const Date now = std::chrono::system_clock::now();
  const auto processDir = [&](int pid, const std::vector<std::string>& argv, const fs::path& cwd) {
    fs::create_directories(procRoot / std::to_string(pid));
    std::ofstream cmdline(procRoot / std::to_string(pid) / "cmdline", std::ios::binary);
    for (const auto& a : argv) cmdline << a << '\0';
    fs::create_symlink(cwd, procRoot / std::to_string(pid) / "cwd");
  };
  processDir(100, {"claude"}, project);
  processDir(110, {"node", "/home/ada/.npm/_npx/1/node_modules/.bin/mcp-server-github"}, project);
  processDir(120, {"npm", "run", "dev"}, project);
  processDir(200, {"node", "/usr/lib/node_modules/@google/gemini-cli/dist/index.js"}, root);
  processDir(300, {"aider"}, project);
  // Claude Code's log for the folder: its turn ended a minute ago.
  std::string key = project.string();
  for (char& c : key)
    if (!std::isalnum(static_cast<unsigned char>(c))) c = '-';
  fs::create_directories(home / "projects" / key);
  std::ofstream(home / "projects" / key / "s-1.jsonl")
      << R"({"type":"assistant","sessionId":"s-1","timestamp":")" << formatISO8601(now - 1min)
      << R"(","message":{"role":"assistant","content":[{"type":"text","text":"Done."}]}})" << "\n";

  auto server = proc(121, "node", 120, 4.0, now - 20min);
  server.listeningPorts = {5173};
  const std::vector<AppGroup> groups = {AppGroup(
      "x", "x", GroupKind::other, std::nullopt,
      {proc(100, "claude", 1, 1.0, now - 1h), proc(110, "node", 100, 0.0, now - 59min), proc(120, "npm", 100, 0.0, now - 20min),
       server, proc(130, "bash", 100, 0.0, now - 1min), proc(131, "cargo", 130, 90.0, now - 50s),
       proc(200, "node", 1, 0.0, now - 2h), proc(300, "aider", 1, 0.0, now - 3h)})};
  AgentSessions::Config config;
  config.procRoot = procRoot;
  config.claudeHomes = {home};
  AgentSessions agents(config);
  const auto sessions = agents.sessions(groups, now);
  ASSERT_EQ(sessions.size(), 3u);

  EXPECT_EQ(sessions[0].status, AgentSession::Status::idle);  // aider
  EXPECT_EQ(sessions[1].project, root.string());                // gemini, started in the root

  const auto& claude = sessions[2];
  EXPECT_EQ(claude.processCount, 6u);
  ASSERT_EQ(claude.started.size(), 2u);
  EXPECT_EQ(claude.started[0].kind, AgentSession::Started::Kind::toolServer);
  EXPECT_EQ(claude.runningNow, "cargo");  // no command line in the tree: its name
  // The log says the turn is over, a minute ago, though a build it started still runs.
  EXPECT_EQ(claude.status, AgentSession::Status::waitingForYou);
  EXPECT_NEAR(claude.statusMinutes, 1.0, 0.05);
  const auto json = claude.toJSON(now);
}

}  // namespace
}  // namespace omnira
