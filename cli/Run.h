#pragma once
// `omnira run`: hands over to the application program (omnira-app), which links Qt, so
// that this command itself never loads it. The application is looked for beside this
// program (a build tree), then in the libexec folder of the prefix this program is installed
// under, then where the build was configured to install it; $OMNIRA_APP overrides them all.

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace omnira::cli {

struct RunRequest {
  bool headless = false;
  bool watching = false;
  bool trayOnly = false;
};

// Where the application program is, or nothing with the places searched named in `searched`.
std::optional<std::filesystem::path> findApplication(std::vector<std::filesystem::path>* searched = nullptr);

// Replaces this process with the application; returns only when that failed, with the
// exit code after printing why to `err`.
int runApplication(const RunRequest& request, std::FILE* err);

}  // namespace omnira::cli
