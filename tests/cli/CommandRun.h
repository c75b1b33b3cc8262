#pragma once
// Runs a shell command line, as a person would type it, and keeps what it printed.

#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

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

// The command with a home of its own under `root` (HOME, XDG_CONFIG_HOME, XDG_DATA_HOME, and
// XDG_DOWNLOAD_DIR as root/downloads), any `environment` given as NAME='value' words, and no
// standard input; standard error too with `both`, else thrown away.
inline CommandRun runCommandIn(const std::filesystem::path& root, const std::string& arguments, bool both,
                               const std::string& environment = "") {
  return runShell(environment + " HOME='" + (root / "home").string() + "' XDG_CONFIG_HOME='" +
                  (root / "config").string() + "' XDG_DATA_HOME='" + (root / "data").string() +
                  "' XDG_DOWNLOAD_DIR='" + (root / "downloads").string() + "' " + OMNIRA_CLI_PATH + " " + arguments +
                  " </dev/null" + (both ? " 2>&1" : " 2>/dev/null"));
}

// A test with a home of its own for the command, made empty before and removed after.
struct CommandHome : ::testing::Test {
  std::filesystem::path root =
      std::filesystem::temp_directory_path() /
      ("omnira-" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()) + "-" +
       std::to_string(::getpid()));
  void SetUp() override {
    std::filesystem::remove_all(root);
    std::filesystem::create_directories(root / "home");
  }
  void TearDown() override { std::filesystem::remove_all(root); }
  CommandRun run(const std::string& arguments, bool both = true) { return runCommandIn(root, arguments, both); }
};

}  // namespace omnira::testing
