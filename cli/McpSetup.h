#pragma once
// `omnira mcp setup [claude|codex|gemini|all] [--remove]`: adds Omnira as an MCP server to
// each agent's own user configuration, or takes it out again, and says what it changed:
//   Claude Code  ~/.claude.json ($CLAUDE_CONFIG_DIR/.claude.json), "mcpServers"
//   Codex        ~/.codex/config.toml ($CODEX_HOME/config.toml), [mcp_servers.omnira]
//   Gemini CLI   ~/.gemini/settings.json, "mcpServers"
// Everything else in those files stays as it was: the JSON files keep every other key in
// its order, and config.toml is edited as text, only Omnira's own table. Files are written
// atomically with their own permissions, through a link to where it points; one that
// cannot be read as its format is left alone with a sentence. Running it twice changes
// nothing the second time.

#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "OmniraCore/foundation/AppPaths.h"
#include "OmniraCore/foundation/Result.h"

namespace omnira::cli {

struct McpSetupRequest {
  std::string agent = "all";  // "claude", "codex", "gemini" or "all"
  bool remove = false;
};

struct McpSetup {
  struct Failure {
    std::string message;
  };
  enum class Change { added, updated, unchanged, removed, absent };

  // Config file text → new text, for one agent; `entry` is the server's JSON object. Pure;
  // public for tests.
  static Result<std::string, Failure> editJSON(const std::string& text, const std::string& entry, bool remove,
                                               Change& change);
  static Result<std::string, Failure> editTOML(const std::string& text, const std::string& command, bool remove,
                                               Change& change);
};

// `command`: the absolute path of the omnira to run. Returns 0, 1 when a file could not be
// read or written, 2 for an unknown agent.
int runMcpSetup(const McpSetupRequest& request, const std::string& command, const AppPaths::Environment& environment,
                std::FILE* out, std::FILE* err);

}  // namespace omnira::cli
