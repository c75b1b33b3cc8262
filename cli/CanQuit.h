#pragma once
// `omnira can-quit (--pid N | --pids N,M | --port N | --project P | NAME) [--json]`:
// whether something can be quit without costing the person anything.

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "OmniraCore/containers/QuitCheck.h"
#include "OmniraCore/foundation/AppPaths.h"

namespace omnira::cli {

struct CanQuitRequest {
  std::optional<int32_t> pid;
  std::vector<int32_t> pids;
  std::optional<uint16_t> port;
  std::optional<std::string> project;
  std::optional<std::string> name;
  bool json = false;
  // Filled by the caller: a process of any user listens on `port`.
  bool portListened = false;

  // A sentence when the request does not name exactly one target.
  std::optional<std::string> mistake() const;
};

// The pid of the Omnira running for this user, from its lock file; nothing when none runs.
std::optional<int32_t> runningOmnira(const AppPaths& paths);

// Judges the target and prints the verdicts. Returns 0, or 1 when the target is not running.
int printCanQuit(const QuitCheck& check, const CanQuitRequest& request, std::FILE* out, std::FILE* err);

}  // namespace omnira::cli
