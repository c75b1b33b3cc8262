#pragma once
// The coding agents' sessions running now, found in one tick's process table: a process of
// a known agent (Claude Code, Codex, Gemini CLI, Aider, OpenCode, ...) whose parent is not
// the same agent is a session, and everything below it is what the session started.
//
// Whether a session works or waits for the person comes from the agent's own session log
// where it writes one: Claude Code's ~/.claude/projects/<folder>/<session>.jsonl (the turn
// ended, or a tool waits for permission, with nothing running) and Codex's
// ~/.codex/sessions/…/rollout-….jsonl (the task completed). Other agents are working while
// what they run uses the CPU, idle otherwise, and how long comes from the ticks seen.
//
// Readers of /proc take their root as a parameter; log folders come from UsageLogins.
// Ownership: one object per caller, kept across calls for the idle times; one thread at a
// time (the application's main thread, or the command). Nothing here fails: an unreadable
// file is a session without that detail.

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OmniraCore/bridge/AgentSession.h"
#include "OmniraCore/foundation/AppPaths.h"
#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/sampling/AppGroup.h"

namespace omnira {

class AgentSessions {
 public:
  struct Agent {
    std::string_view id;    // "claude"
    std::string_view name;  // "Claude Code"
  };
  // The agents known, by the program name their process runs as (or its script's name).
  static const std::vector<Agent>& known();
  // The agent a process is, from its name and command line; nothing for any other process.
  static std::optional<Agent> agentOf(std::string_view name, const std::vector<std::string>& arguments);

  struct Config {
    std::filesystem::path procRoot = "/proc";
    std::vector<std::filesystem::path> claudeHomes;  // UsageLogins::claudeHomes
    std::vector<std::filesystem::path> codexHomes;   // UsageLogins::codexHomes
    static Config fromEnvironment(const AppPaths::Environment& environment);
  };

  // Above this share of one core over the session's processes, a session without a log
  // to say otherwise is working.
  static constexpr double kWorkingCPUPercent = 2.0;

  explicit AgentSessions(Config config);

  std::vector<AgentSession> sessions(const std::vector<AppGroup>& groups, Date now);

  // Log readers, public for tests of the logs' lines. `tail`: the end of a session log.
  struct LogState {
    std::optional<AgentSession::Status> status;  // absent: the log does not say
    std::optional<Date> since;                   // when its last entry was written
    std::optional<std::string> title;
    std::optional<std::string> sessionID;
    bool waitsOnATool = false;  // a tool call without its result yet
  };
  static LogState readClaudeLog(std::string_view tail);
  static LogState readCodexLog(std::string_view tail);

 private:
  std::vector<std::string> arguments(int32_t pid) const;
  std::optional<std::string> workingDirectory(int32_t pid) const;
  std::optional<std::filesystem::path> claudeLog(const std::string& folder, Date startedAt) const;
  std::optional<std::filesystem::path> codexLog(const std::string& folder, Date startedAt, Date now) const;

  Config config_;
  std::map<std::pair<int32_t, Date>, Date> lastBusy_;  // by pid and start time
};

}  // namespace omnira
