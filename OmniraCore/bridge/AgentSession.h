#pragma once
// One coding agent's session running on this computer: the agent's own process with all it
// started, what that costs, and whether it works, waits for the person or idles.
// A plain value made by AgentSessions.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "OmniraCore/foundation/Date.h"

namespace omnira {

struct AgentSession {
  enum class Status { working, waitingForYou, idle };

  struct Started {
    enum class Kind { devServer, browser, toolServer, command };
    int32_t pid = 0;
    std::string name;
    Kind kind = Kind::command;
    std::vector<uint16_t> ports;
    friend bool operator==(const Started&, const Started&) = default;
  };

  std::string agent;      // "claude", "codex", "gemini", "aider", "opencode", ...
  std::string agentName;  // "Claude Code"
  int32_t pid = 0;
  std::optional<std::string> project;  // the project folder it works in, else its working directory
  Date startedAt{};
  uint64_t memoryBytes = 0;  // with everything it started
  double cpuPercent = 0;     // likewise, percent of one core
  size_t processCount = 0;
  std::vector<Started> started;
  std::optional<std::string> runningNow;  // the command it runs right now, if any
  Status status = Status::idle;
  double statusMinutes = 0;
  std::optional<std::string> title;      // the name the person gave the session
  std::optional<std::string> sessionID;

  nlohmann::ordered_json toJSON(Date now) const;
  friend bool operator==(const AgentSession&, const AgentSession&) = default;
};

std::string_view rawValue(AgentSession::Status status);      // "working", "waiting_for_you", "idle"
std::string_view rawValue(AgentSession::Started::Kind kind);  // "dev_server", "browser", "tool_server", "command"

}  // namespace omnira
