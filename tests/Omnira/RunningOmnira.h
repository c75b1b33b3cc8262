#pragma once
// The real `omnira run`, started by a test as a person would start it, against data and
// settings folders of its own under `root` (HOME is root/home), with its standard output
// and standard error kept in root/stdout and root/stderr.

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "OmniraCore/history/HistoryDatabase.h"

namespace omnira::testing {

class RunningOmnira {
 public:
  explicit RunningOmnira(const std::filesystem::path& root, const std::vector<std::string>& arguments = {"--headless", "--watching"}) {
    pid_ = ::fork();
    if (pid_ == 0) {
      ::setenv("HOME", (root / "home").c_str(), 1);
      ::setenv("XDG_DATA_HOME", (root / "data").c_str(), 1);
      ::setenv("XDG_CONFIG_HOME", (root / "config").c_str(), 1);
      const int out = ::open((root / "stdout").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
      const int err = ::open((root / "stderr").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
      ::dup2(out, STDOUT_FILENO);
      ::dup2(err, STDERR_FILENO);
      std::vector<char*> argv{const_cast<char*>(OMNIRA_CLI_PATH), const_cast<char*>("run")};
      for (const auto& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
      argv.push_back(nullptr);
      ::execv(OMNIRA_CLI_PATH, argv.data());
      ::_exit(127);
    }
  }
  ~RunningOmnira() {
    if (pid_ > 0) {
      ::kill(pid_, SIGKILL);
      ::waitpid(pid_, nullptr, 0);
    }
  }
  RunningOmnira(const RunningOmnira&) = delete;
  RunningOmnira& operator=(const RunningOmnira&) = delete;

  pid_t pid() const { return pid_; }
  // The exit status, or -1 when it ended otherwise or did not end within 30 s.
  int stop(int signal = SIGTERM) {
    ::kill(pid_, signal);
    return wait();
  }
  int wait() {
    for (int i = 0; i < 300; ++i) {
      int status = 0;
      if (::waitpid(pid_, &status, WNOHANG) == pid_) {
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return -1;
  }

 private:
  pid_t pid_ = -1;
};

inline std::string slurp(const std::filesystem::path& file) {
  std::ifstream in(file);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

// Seconds recorded in one of the history's machine tables, read as `omnira history` reads them.
inline double recordedSeconds(const std::filesystem::path& file,
                              HistoryDatabase::SystemTable table = HistoryDatabase::SystemTable::minutes) {
  if (!std::filesystem::exists(file)) return 0;
  auto db = HistoryDatabase::open(file);
  if (!db) return 0;
  double seconds = 0;
  if (auto rows = (*db)->system(table, 0, INT64_MAX))
    for (const auto& row : *rows) seconds += row.seconds;
  return seconds;
}

// Waits for the running application to have recorded more than `seconds`. The guard is
// generous: it catches an application that never writes, it does not measure speed.
inline bool waitForRecorded(const std::filesystem::path& file, double seconds,
                            HistoryDatabase::SystemTable table = HistoryDatabase::SystemTable::minutes) {
  const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(90);
  while (std::chrono::steady_clock::now() < until) {
    if (recordedSeconds(file, table) > seconds) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
  }
  return false;
}

}  // namespace omnira::testing
