#pragma once
// `omnira actions [--json]`: the agents' quit requests and what came of them, from the
// action log; `omnira actions clear [--yes]` empties it, asking first on a terminal.

#include <cstdio>

#include "OmniraCore/foundation/AppPaths.h"

namespace omnira::cli {

struct ActionsRequest {
  bool json = false;
  bool clear = false;
  bool yes = false;
};

// Returns 0; 1 when the log cannot be read or written, or clear has no terminal to ask on.
int runActions(const ActionsRequest& request, const AppPaths& paths, std::FILE* out, std::FILE* err);

}  // namespace omnira::cli
