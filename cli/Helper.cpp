#include "cli/Helper.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "OmniraCore/foundation/Parse.h"
#include "OmniraCore/foundation/SafeText.h"

namespace omnira::cli {

namespace fs = std::filesystem;

namespace {

std::optional<fs::path> inPath(const char* program) {
  const char* path = std::getenv("PATH");
  std::string_view folders = path && *path ? path : "/usr/bin:/bin";
  while (!folders.empty()) {
    const auto colon = folders.find(':');
    const fs::path candidate = fs::path(std::string(folders.substr(0, colon))) / program;
    if (!candidate.empty() && ::access(candidate.c_str(), X_OK) == 0) return candidate;
    if (colon == std::string_view::npos) break;
    folders.remove_prefix(colon + 1);
  }
  return std::nullopt;
}

// Who the helper is for: the person, also when they ran this command through sudo.
uid_t person() {
  if (::getuid() == 0)
    if (const char* sudo = std::getenv("SUDO_UID"))
      if (auto uid = parseNumber<uid_t>(sudo)) return *uid;
  return ::getuid();
}

int run(const std::vector<std::string>& arguments, std::FILE* err) {
  std::vector<char*> argv;
  for (const auto& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  std::fflush(nullptr);
  const pid_t child = ::fork();
  if (child < 0) {
    fmt::print(err, "Cannot start {}: {}\n", arguments.front(), std::strerror(errno));
    return 1;
  }
  if (child == 0) {
    ::execv(argv[0], argv.data());
    ::_exit(127);
  }
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

}  // namespace

std::optional<fs::path> findHelper(std::vector<fs::path>* searched) {
  std::vector<fs::path> candidates;
  std::error_code error;
  const auto self = fs::read_symlink("/proc/self/exe", error);
  // An install under any prefix: <prefix>/bin/omnira and <prefix>/libexec/omnira-helper.
  if (!error) candidates.push_back(self.parent_path().parent_path() / "libexec" / "omnira-helper");
  candidates.emplace_back(fs::path(OMNIRA_LIBEXEC_DIR) / "omnira-helper");
  if (!error) candidates.push_back(self.parent_path() / "omnira-helper");  // the build tree
  for (const auto& candidate : candidates) {
    if (searched) searched->push_back(candidate);
    if (::access(candidate.c_str(), X_OK) == 0) return candidate;
  }
  return std::nullopt;
}

std::string helperStatus(HelperClient& client, uid_t person, bool* answering) {
  if (answering) *answering = false;
  auto hello = client.hello();
  if (hello) {
    if (hello->uid != person && person != 0)
      return fmt::format(
          "The helper is installed and running, but it serves uid {}, not you (uid {}); `omnira helper install` "
          "sets it up for you.",
          hello->uid, person);
    if (answering) *answering = true;
    return fmt::format("The helper is installed, running and answering (version {}, serving uid {}).", hello->version,
                       hello->uid);
  }
  using Kind = HelperClient::Failure::Kind;
  switch (hello.error().kind) {
    case Kind::notInstalled: return "The helper is not installed; `omnira helper install` installs it.";
    case Kind::notRunning:
      return fmt::format("The helper is installed but not running ({}); `sudo systemctl start omnira-helper` starts it.",
                         hello.error().message);
    case Kind::refused:
      return "The helper is running but refused this user: it serves only the user it was installed for.";
    case Kind::badReply: return fmt::format("The helper is running but did not answer properly: {}", hello.error().message);
  }
  return hello.error().message;
}

int runHelper(const HelperCommandRequest& request, std::FILE* out, std::FILE* err) {
  if (request.command == HelperCommandRequest::Command::status) {
    HelperClient::Options options;
    options.socket = request.socket;
    HelperClient client(options);
    bool answering = false;
    fmt::print(out, "{}\n", terminalText(helperStatus(client, person(), &answering)));
    return answering ? 0 : 1;
  }

  std::vector<fs::path> searched;
  const auto helper = findHelper(&searched);
  if (!helper) {
    std::string places;
    for (const auto& path : searched) places += fmt::format("\n  {}", path.string());
    fmt::print(err, "The helper program is not installed; looked for it at:{}\n", places);
    return 1;
  }
  std::vector<std::string> arguments{helper->string()};
  if (request.command == HelperCommandRequest::Command::install) {
    arguments.insert(arguments.end(), {"--install", "--user", std::to_string(person())});
  } else {
    arguments.emplace_back("--uninstall");
  }
  if (::geteuid() == 0) return run(arguments, err);

  const auto pkexec = inPath("pkexec");
  if (!pkexec) {
    std::string command;
    for (const auto& argument : arguments) command += " " + argument;
    fmt::print(err,
               "pkexec is not installed (it comes with polkit), so Omnira cannot ask for an administrator's password "
               "itself. Run this instead:\n  sudo{}\n",
               command);
    return 1;
  }
  arguments.insert(arguments.begin(), pkexec->string());
  const int status = run(arguments, err);
  // pkexec's own codes: 126 the person dismissed the dialog or failed to authenticate, 127 no agent.
  if (status == 126) fmt::print(err, "The helper was left as it was: authentication was dismissed or failed.\n");
  if (status == 127)
    fmt::print(err, "polkit found no way to ask for a password here. Run this instead:\n  sudo {}\n",
               fmt::join(arguments.begin() + 1, arguments.end(), " "));
  return status == 0 ? 0 : 1;
}

}  // namespace omnira::cli
