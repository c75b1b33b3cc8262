#pragma once
// Idle child processes that a benchmark starts and ends itself, so a run measures a
// machine with a known number of extra processes. Each child is `sleep`, exec'd, so it
// has its own executable path and a small footprint like a real idle daemon.

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

extern char** environ;

namespace omnira::bench {

class IdleProcesses {
 public:
  // `folders`: working directories given in turn, as processes of several projects have.
  explicit IdleProcesses(int count, const std::vector<std::string>& folders = {}) {
    char sleep[] = "sleep";
    char aDay[] = "86400";
    char* argv[] = {sleep, aDay, nullptr};
    for (int i = 0; i < count; ++i) {
      posix_spawn_file_actions_t actions;
      posix_spawn_file_actions_init(&actions);
      if (!folders.empty())
        posix_spawn_file_actions_addchdir_np(&actions, folders[static_cast<size_t>(i) % folders.size()].c_str());
      pid_t pid = 0;
      if (posix_spawnp(&pid, "sleep", &actions, nullptr, argv, environ) == 0) pids_.push_back(pid);
      posix_spawn_file_actions_destroy(&actions);
    }
  }
  ~IdleProcesses() {
    for (pid_t pid : pids_) ::kill(pid, SIGKILL);
    for (pid_t pid : pids_) ::waitpid(pid, nullptr, 0);
  }
  IdleProcesses(const IdleProcesses&) = delete;
  IdleProcesses& operator=(const IdleProcesses&) = delete;
  size_t size() const { return pids_.size(); }

 private:
  std::vector<pid_t> pids_;
};

}  // namespace omnira::bench
