#pragma once
// Runs a shell command line, as a person would type it, and keeps what it printed.

#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <string>

namespace omnira::testing {

struct CommandRun {
  int status = -1;  // exit status; -1 when it did not exit normally
  std::string out;
};

inline CommandRun runShell(const std::string& command) {
  CommandRun result;
  FILE* pipe = ::popen(command.c_str(), "r");
  if (!pipe) return result;
  char buffer[65536];
  size_t n;
  while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) result.out.append(buffer, n);
  const int status = ::pclose(pipe);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result;
}

// The command with a home of its own under `root` (HOME, XDG_CONFIG_HOME, XDG_DATA_HOME) and no
// standard input; standard error too with `both`, else thrown away.
inline CommandRun runCommandIn(const std::filesystem::path& root, const std::string& arguments, bool both) {
  return runShell("HOME='" + (root / "home").string() + "' XDG_CONFIG_HOME='" + (root / "config").string() +
                  "' XDG_DATA_HOME='" + (root / "data").string() + "' " + OMNIRA_CLI_PATH + " " + arguments +
                  " </dev/null" + (both ? " 2>&1" : " 2>/dev/null"));
}

}  // namespace omnira::testing
