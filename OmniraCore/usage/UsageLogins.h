#pragma once
// Where the coding tools keep their files on this computer ("homes"). Only where to look;
// whether a sign-in is there is UsageLogin's business.
//   Claude Code: $CLAUDE_CONFIG_DIR (one folder or several separated by commas), otherwise
//     ~/.claude and $XDG_CONFIG_HOME/claude (default ~/.config/claude).
//   Codex: $CODEX_HOME (also a comma list), otherwise ~/.codex.
// A "~" at the start of a listed folder stands for HOME; relative folders are ignored.
// The homes are listed whether or not they exist. Stateless; call from any thread.

#include <filesystem>
#include <vector>

#include "OmniraCore/foundation/AppPaths.h"

namespace omnira {

struct UsageLogins {
  static std::vector<std::filesystem::path> claudeHomes(const AppPaths::Environment& environment);
  static std::vector<std::filesystem::path> codexHomes(const AppPaths::Environment& environment);
};

}  // namespace omnira
