#pragma once
// `omnira settings`: lists, reads and changes the settings file that a running Omnira
// watches, so a change applies without a restart. Runs on the command's one thread.
// Exit status: 0 done, 2 for an unknown key or a value the key does not take, 1 when the
// file cannot be read or written; on any failure the file is left as it was.

#include <cstdio>
#include <string>

#include "OmniraCore/foundation/AppPaths.h"

namespace omnira::cli {

struct SettingsRequest {
  enum class Command { list, get, set, unset };
  Command command = Command::list;
  bool json = false;  // list: print JSON
  std::string key;
  std::string value;  // set: as typed, e.g. "on", "15", "[]"
};

// Prints to `out`, sentences about problems to `err`; returns the exit status.
int runSettings(const SettingsRequest& request, const AppPaths& paths, std::FILE* out, std::FILE* err);

}  // namespace omnira::cli
