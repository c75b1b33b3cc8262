#include "OmniraCore/foundation/AppPaths.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <fmt/format.h>

#include "OmniraCore/foundation/AtomicFile.h"

namespace omnira {

namespace {

std::optional<std::filesystem::path> absoluteVariable(const AppPaths::Environment& env, const char* name) {
  auto value = env(name);
  if (!value || value->empty() || (*value)[0] != '/') return std::nullopt;
  return std::filesystem::path(*value);
}

std::string userName(uid_t uid) {
  std::vector<char> buffer(16384);
  passwd entry{};
  passwd* found = nullptr;
  if (getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found) == 0 && found && found->pw_name)
    return found->pw_name;
  return fmt::format("user {}", uid);
}

AppPaths::Failure refusal(const std::filesystem::path& folder, const std::string& why) {
  return AppPaths::Failure{fmt::format("Omnira will not keep its files in {}: {}.", folder.string(), why)};
}

// Each existing folder above `folder`: another user's, or one anyone may write in without
// the sticky bit, could swap our folder for one of theirs.
Result<void, AppPaths::Failure> checkAbove(const std::filesystem::path& folder, const std::filesystem::path& shown) {
  const uid_t self = ::geteuid();
  for (auto above = folder.parent_path(); !above.empty(); above = above.parent_path()) {
    struct stat info {};
    if (::stat(above.c_str(), &info) == 0) {
      if (info.st_uid != 0 && info.st_uid != self)
        return fail(refusal(shown, fmt::format("{} above it belongs to {}", above.string(), userName(info.st_uid))));
      if ((info.st_mode & S_IWOTH) && !(info.st_mode & S_ISVTX))
        return fail(refusal(shown, fmt::format("anyone can change {} above it", above.string())));
    }
    if (above == above.root_path()) break;
  }
  return {};
}

}  // namespace

Result<void, AppPaths::Failure> AppPaths::checkFolder(const std::filesystem::path& folder) {
  struct stat info {};
  if (::stat(folder.c_str(), &info) != 0)
    return fail(Failure{fmt::format("Omnira cannot use its folder {}: {}.", folder.string(), std::strerror(errno))});
  if (!S_ISDIR(info.st_mode)) return fail(refusal(folder, "it is not a folder"));
  const uid_t self = ::geteuid();
  if (info.st_uid != self)
    return fail(refusal(folder, fmt::format("it belongs to {} and Omnira runs as {}", userName(info.st_uid),
                                            userName(self))));
  if (info.st_mode & (S_IWGRP | S_IWOTH))
    return fail(refusal(folder, fmt::format("other users can write in it; make it yours alone with chmod 700 {}",
                                            folder.string())));
  if (auto above = checkAbove(folder, folder); !above) return above;
  // A linked folder (dotfiles) is judged where it really is, too.
  std::error_code error;
  const auto real = std::filesystem::canonical(folder, error);
  if (!error && real != folder)
    if (auto above = checkAbove(real, folder); !above) return above;
  return {};
}

Result<void, AppPaths::Failure> AppPaths::prepareFolders() const {
  for (const auto& folder : {data_, config_}) {
    // Checked before anything is made there.
    if (auto above = checkAbove(folder, folder); !above) return above;
    if (auto made = AtomicFile::makeFolders(folder); !made) return fail(Failure{fmt::format("Omnira {}.", made.error().message)});
    if (auto checked = checkFolder(folder); !checked) return checked;
    // What Omnira keeps (per-app history, token use, sessions) is for its user alone.
    const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
      struct stat info {};
      if (::fstat(fd, &info) == 0 && (info.st_mode & 077) != 0) (void)::fchmod(fd, info.st_mode & 0700);
      ::close(fd);
    }
    AtomicFile::removeStale(folder);
  }
  return {};
}

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
