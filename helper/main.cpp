// omnira-helper: the small root service that reads what the person's own user may not
// (RAPL energy counters, other users' processes' disk and proportional memory figures) and
// sets fan speeds, for the one user it was installed for. Started by systemd; installed
// and removed through `omnira helper install|uninstall`, which run it with --install or
// --uninstall under pkexec.

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <spdlog/spdlog.h>

#include "OmniraCore/foundation/AtomicFile.h"
#include "OmniraCore/foundation/Log.h"
#include "OmniraCore/foundation/Parse.h"
#include "helper/HelperServer.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kUnit = "omnira-helper.service";

// "uid=1000"; blank lines and lines starting with '#' are skipped.
std::optional<uid_t> allowedUserIn(const std::string& text) {
  std::optional<uid_t> uid;
  omnira::forEachLine(text, [&](std::string_view line) {
    line = omnira::trim(line);
    if (line.empty() || line.front() == '#' || !line.starts_with("uid=")) return;
    uid = omnira::parseNumber<uid_t>(omnira::trim(line.substr(4)));
  });
  return uid;
}

// Runs a program with its arguments (no shell) and returns its exit status.
int runProgram(const std::vector<std::string>& arguments) {
  std::vector<char*> argv;
  for (const auto& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  const pid_t child = ::fork();
  if (child < 0) return -1;
  if (child == 0) {
    ::execvp(argv[0], argv.data());
    ::_exit(127);
  }
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool unitInstalled() {
  for (const char* folder : {"/etc/systemd/system", "/run/systemd/system", "/usr/local/lib/systemd/system",
                             "/usr/lib/systemd/system", "/lib/systemd/system"}) {
    std::error_code ignored;
    if (fs::exists(fs::path(folder) / kUnit, ignored)) return true;
  }
  return false;
}

int install(uid_t user, const fs::path& config) {
  if (::geteuid() != 0) {
    fmt::print(stderr, "omnira-helper: installing needs root; run it with sudo or pkexec.\n");
    return 1;
  }
  if (!unitInstalled()) {
    fmt::print(stderr,
               "omnira-helper: the service file {} is not installed; install Omnira with `sudo cmake --install` "
               "first.\n",
               kUnit);
    return 1;
  }
  if (auto written = omnira::AtomicFile::write(config, fmt::format("uid={}\n", user), 0644); !written) {
    fmt::print(stderr, "omnira-helper: {}\n", written.error().message);
    return 1;
  }
  // restart rather than start: a helper already running must read the new user.
  for (const std::vector<std::string>& command :
       {std::vector<std::string>{"systemctl", "daemon-reload"}, {"systemctl", "enable", kUnit},
        {"systemctl", "restart", kUnit}}) {
    if (const int status = runProgram(command); status != 0) {
      fmt::print(stderr, "omnira-helper: `{}` failed (exit status {}).\n", fmt::join(command, " "), status);
      return 1;
    }
  }
  fmt::print("The helper is installed and running for uid {}.\n", user);
  return 0;
}

int uninstall(const fs::path& config) {
  if (::geteuid() != 0) {
    fmt::print(stderr, "omnira-helper: removing needs root; run it with sudo or pkexec.\n");
    return 1;
  }
  // Stopping sends SIGTERM, on which the helper puts every fan back.
  const int stopped = runProgram({"systemctl", "disable", "--now", kUnit});
  std::error_code error;
  fs::remove(config, error);
  if (error) {
    fmt::print(stderr, "omnira-helper: {} cannot be removed: {}.\n", config.string(), error.message());
    return 1;
  }
  if (stopped != 0) {
    fmt::print(stderr, "omnira-helper: `systemctl disable --now {}` failed (exit status {}).\n", kUnit, stopped);
    return 1;
  }
  fmt::print("The helper is stopped and removed.\n");
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Omnira's privileged helper: energy counters, other users' process figures and fan control."};
  app.set_version_flag("-V,--version", std::string("omnira-helper ") + OMNIRA_VERSION);
  omnira::helper::HelperServer::Options options;
  std::optional<uid_t> allowUID;
  std::string config = "/etc/omnira/helper.conf";
  std::string root = "/";
  std::string state = options.state.string();
  bool installing = false, uninstalling = false;
  std::optional<uid_t> user;
  app.add_option("--socket", options.socket, "Where to listen (default /run/omnira-helper.sock)");
  app.add_option("--allow-uid", allowUID, "The user to serve (default: from the configuration file)");
  app.add_option("--config", config, "The configuration file, one line uid=UID (default /etc/omnira/helper.conf)");
  app.add_option("--root", root, "Where sys and proc are found (default /)");
  app.add_option("--state", state, "Where changed fans are remembered (default /var/lib/omnira-helper/fans.json)");
  auto* installFlag = app.add_flag("--install", installing, "Write the configuration and enable the service");
  auto* uninstallFlag = app.add_flag("--uninstall", uninstalling, "Stop and disable the service, remove the configuration");
  auto* userOption = app.add_option("--user", user, "With --install: the user to serve");
  installFlag->excludes(uninstallFlag);
  userOption->needs(installFlag);
  CLI11_PARSE(app, argc, argv);

  if (installing) {
    if (!user) {
      fmt::print(stderr, "omnira-helper: --install needs --user UID.\n");
      return 2;
    }
    return install(*user, config);
  }
  if (uninstalling) return uninstall(config);

  omnira::setUpStandardErrorLogging("omnira-helper", spdlog::level::info);
  if (allowUID) {
    options.allowedUID = *allowUID;
  } else {
    auto text = omnira::AtomicFile::read(config);
    const auto uid = text ? allowedUserIn(*text) : std::nullopt;
    if (!uid) {
      spdlog::error("No user to serve: {} holds no line uid=UID and no --allow-uid was given.", config);
      return 1;
    }
    options.allowedUID = *uid;
  }
  options.roots.sys = fs::path(root) / "sys";
  options.roots.proc = fs::path(root) / "proc";
  options.state = state;

  // The loop reads these from a signal descriptor; a client gone mid-reply must not kill it.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGTERM);
  sigaddset(&stopSignals, SIGINT);
  ::sigprocmask(SIG_BLOCK, &stopSignals, nullptr);
  ::signal(SIGPIPE, SIG_IGN);

  omnira::helper::HelperServer server(options);
  if (auto started = server.start(); !started) {
    spdlog::error("{}", started.error());
    return 1;
  }
  return server.run();
}
