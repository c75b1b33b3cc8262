#pragma once
// Runs a shell command line, as a person would type it, and keeps what it printed.

#include <sys/wait.h>

#include <cstdio>
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

}  // namespace omnira::testing
