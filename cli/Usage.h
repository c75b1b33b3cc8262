#pragma once
// `omnira tokens` and `omnira limits`: the AI coding tools' token counts and plan limits,
// with or without the application running.
//
// Both read the usage-limits cache that a running Omnira keeps and never write it (the
// application owns it). `tokens` brings the cached ledgers up to date in memory from the
// Claude Code and Codex logs, so its figures are current either way. `limits` reads the
// sign-ins and Codex's own limits afresh from this computer, and takes what the providers
// last answered from the cache. The usage-limits settings apply: a tool turned off is not
// shown, and with the feature off only a sentence saying so is printed.
//
// Runs on the command's one thread. Exit status: 0 done (also with nothing to show), 2 for
// a bad --tool or --days value.

#include <cstdio>
#include <string>

#include "OmniraCore/foundation/AppPaths.h"
#include "OmniraCore/foundation/Date.h"

namespace omnira::cli {

struct TokensRequest {
  std::string days = "7";  // as typed; a whole number from 1 to 365
  std::string tool;        // empty for both, else "claude" or "codex"
  bool json = false;
};

struct LimitsRequest {
  bool json = false;
};

// `environment` locates the tools' homes (HOME, XDG_CONFIG_HOME, CLAUDE_CONFIG_DIR,
// CODEX_HOME). Prints to `out`, sentences about problems to `err`; returns the exit status.
int runTokens(const TokensRequest& request, const AppPaths& paths, const AppPaths::Environment& environment, Date now,
              std::FILE* out, std::FILE* err);
int runLimits(const LimitsRequest& request, const AppPaths& paths, const AppPaths::Environment& environment, Date now,
              std::FILE* out, std::FILE* err);

}  // namespace omnira::cli
