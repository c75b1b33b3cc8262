#include "cli/Run.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fmt/format.h>

namespace omnira::cli {

std::optional<std::filesystem::path> findApplication(std::vector<std::filesystem::path>* searched) {
  std::vector<std::filesystem::path> candidates;
  if (const char* chosen = std::getenv("OMNIRA_APP"); chosen && *chosen) candidates.emplace_back(chosen);
  std::error_code error;
  const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
  if (!error) {
    candidates.push_back(self.parent_path() / "omnira-app");  // the build tree
    // An install under any prefix: <prefix>/bin/omnira and <prefix>/libexec/omnira/omnira-app.
    candidates.push_back(self.parent_path().parent_path() / "libexec" / "omnira" / "omnira-app");
  }
  candidates.emplace_back(std::filesystem::path(OMNIRA_LIBEXEC_DIR) / "omnira" / "omnira-app");
  for (const auto& candidate : candidates) {
    if (searched) searched->push_back(candidate);
    if (::access(candidate.c_str(), X_OK) == 0) return candidate;
  }
  return std::nullopt;
}

int runApplication(const RunRequest& request, std::FILE* err) {
  std::vector<std::filesystem::path> searched;
  auto application = findApplication(&searched);
  if (!application) {
    std::string places;
    for (const auto& path : searched) places += fmt::format("\n  {}", path.string());
    fmt::print(err, "The Omnira application is not installed; looked for it at:{}\n", places);
    return 1;
  }
  std::vector<std::string> arguments{application->string()};
  if (request.headless) arguments.emplace_back("--headless");
  if (request.watching) arguments.emplace_back("--watching");
  if (request.trayOnly) arguments.emplace_back("--tray-only");
  std::vector<char*> argv;
  for (auto& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  ::execv(application->c_str(), argv.data());
  fmt::print(err, "Cannot start {}: {}\n", application->string(), std::strerror(errno));
  return 1;
}

}  // namespace omnira::cli
