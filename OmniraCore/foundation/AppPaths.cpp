#include "OmniraCore/foundation/AppPaths.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

namespace omnira {

namespace {

std::optional<std::filesystem::path> absoluteVariable(const AppPaths::Environment& env, const char* name) {
  auto value = env(name);
  if (!value || value->empty() || (*value)[0] != '/') return std::nullopt;
  return std::filesystem::path(*value);
}

}  // namespace

Result<AppPaths, AppPaths::Failure> AppPaths::fromEnvironment(const Environment& environment) {
  std::optional<std::filesystem::path> home = absoluteVariable(environment, "HOME");
  auto data = absoluteVariable(environment, "XDG_DATA_HOME");
  auto config = absoluteVariable(environment, "XDG_CONFIG_HOME");
  if ((!data || !config) && !home) {
    return fail(Failure{"Cannot tell where to keep Omnira's files: HOME is not set and "
                        "XDG_DATA_HOME or XDG_CONFIG_HOME is missing."});
  }
  if (!data) data = *home / ".local" / "share";
  if (!config) config = *home / ".config";
  auto downloads = absoluteVariable(environment, "XDG_DOWNLOAD_DIR");
  if (!downloads) downloads = home ? *home / "Downloads" : *data / "Omnira" / "Exports";
  return AppPaths(*data / "Omnira", *config / "Omnira", *downloads);
}

Result<AppPaths, AppPaths::Failure> AppPaths::fromProcessEnvironment() {
  return fromEnvironment([](const std::string& name) -> std::optional<std::string> {
    if (const char* value = std::getenv(name.c_str())) return std::string(value);
    if (name == "HOME") {
      // A service started without HOME still has a home in the password database.
      std::vector<char> buffer(16384);
      passwd entry{};
      passwd* found = nullptr;
      if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found && found->pw_dir)
        return std::string(found->pw_dir);
    }
    return std::nullopt;
  });
}

}  // namespace omnira
