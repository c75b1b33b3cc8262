#include "OmniraCore/platform/linux/LinuxAppIdentifier.h"

#include <algorithm>
#include <cctype>

namespace omnira::platform {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view deletedMark = " (deleted)";
constexpr std::string_view anonymousFilePrefix = "/memfd:";

std::string_view withoutDeletedMark(std::string_view path) {
  if (path.size() > deletedMark.size() && path.substr(path.size() - deletedMark.size()) == deletedMark) {
    path.remove_suffix(deletedMark.size());
  }
  return path;
}

bool isDigits(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool isCommitHash(std::string_view text) {
  return (text.size() == 40 || text.size() == 64) &&
         std::all_of(text.begin(), text.end(), [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); });
}

// "Stable-<hash>", "Insiders-<hash>": the letters name a release channel, kept apart.
std::optional<std::string_view> channelOfCommitFolder(std::string_view piece) {
  const auto dash = piece.find('-');
  if (dash == 0 || dash == std::string_view::npos || !isCommitHash(piece.substr(dash + 1))) return std::nullopt;
  const auto channel = piece.substr(0, dash);
  if (!std::all_of(channel.begin(), channel.end(), [](char c) { return std::isalpha(static_cast<unsigned char>(c)); }))
    return std::nullopt;
  return channel;
}

// Nix writes store hashes in its own base 32, which leaves out e, o, u and t.
bool isNixStoreHash(std::string_view text) {
  constexpr std::string_view digits = "0123456789abcdfghijklmnpqrsvwxyz";
  return text.size() == 32 && text.find_first_not_of(digits) == std::string_view::npos;
}

// "<hash>-nodejs-slim-20.11.0" becomes "*-nodejs-slim-*": the name ends where Nix says the
// version begins, at the first dash that a letter does not follow.
std::optional<std::string> foldedNixStoreEntry(std::string_view piece) {
  if (piece.size() < 34 || piece[32] != '-' || !isNixStoreHash(piece.substr(0, 32))) return std::nullopt;
  const auto name = piece.substr(33);
  for (size_t dash = name.find('-'); dash != std::string_view::npos; dash = name.find('-', dash + 1)) {
    if (dash + 1 < name.size() && !std::isalpha(static_cast<unsigned char>(name[dash + 1]))) {
      return "*-" + std::string(name.substr(0, dash)) + "-*";
    }
  }
  return "*-" + std::string(name);
}

// An AppImage mounts itself at ".mount_" + up to six letters of its file name + six random
// characters, anew at every launch.
bool isAppImageMount(std::string_view piece) {
  constexpr std::string_view prefix = ".mount_";
  return piece.starts_with(prefix) && piece.size() >= prefix.size() + 7 && piece.size() <= prefix.size() + 12;
}

void addAbsolute(std::vector<fs::path>& dirs, const fs::path& dir) {
  if (!dir.is_absolute()) return;
  auto normal = dir.lexically_normal();
  if (!normal.has_filename() && normal != normal.root_path()) normal = normal.parent_path();  // "a/b/" is "a/b"
  if (std::find(dirs.begin(), dirs.end(), normal) == dirs.end()) dirs.push_back(normal);
}

void addList(std::vector<fs::path>& dirs, std::string_view list) {
  while (!list.empty()) {
    const auto colon = list.find(':');
    addAbsolute(dirs, fs::path(list.substr(0, colon)));
    if (colon == std::string_view::npos) break;
    list.remove_prefix(colon + 1);
  }
}

AppGrouper::Descriptor appOf(const DesktopEntries::Installed& installed) {
  return {installed.file, installed.entry.name, GroupKind::app, installed.file};
}

}  // namespace

LinuxAppIdentifier::Config LinuxAppIdentifier::Config::fromEnvironment(const AppPaths::Environment& environment,
                                                                        uint32_t personUID) {
  const auto variable = [&](const char* name) {
    auto value = environment(name);
    return value && !value->empty() ? value : std::nullopt;
  };
  const auto home = variable("HOME");
  std::optional<fs::path> dataHome;
  if (const auto xdg = variable("XDG_DATA_HOME"); xdg && xdg->front() == '/') {
    dataHome = *xdg;
  } else if (home && home->front() == '/') {
    dataHome = fs::path(*home) / ".local/share";
  }

  Config config;
  config.personUID = personUID;
  auto& data = config.desktop.dataDirs;
  if (dataHome) addAbsolute(data, *dataHome);
  addList(data, variable("XDG_DATA_DIRS").value_or("/usr/local/share:/usr/share"));
  if (dataHome) addAbsolute(data, *dataHome / "flatpak/exports/share");
  addAbsolute(data, "/var/lib/flatpak/exports/share");
  addAbsolute(data, "/var/lib/snapd/desktop");

  auto& programs = config.desktop.programDirs;
  addList(programs, variable("PATH").value_or(""));
  addList(programs, "/usr/local/bin:/usr/bin:/bin:/usr/local/sbin:/usr/sbin:/sbin:/snap/bin");
  if (home && home->front() == '/') addAbsolute(programs, fs::path(*home) / ".local/bin");
  return config;
}

LinuxAppIdentifier::LinuxAppIdentifier(Config config)
    : config_(std::move(config)), entries_(std::make_shared<const DesktopEntries>(DesktopEntries::scan(config_.desktop))) {}

std::shared_ptr<const DesktopEntries> LinuxAppIdentifier::entries() const {
  std::lock_guard lock(mutex_);
  return entries_;
}

void LinuxAppIdentifier::reload() {
  auto scanned = std::make_shared<const DesktopEntries>(DesktopEntries::scan(config_.desktop));
  std::lock_guard lock(mutex_);
  entries_ = std::move(scanned);
}

std::optional<AppIdentifier::Verdict> LinuxAppIdentifier::identify(const ProcessSample& sample) const {
  if (sample.kernelThread) return System{};
  // A container's processes are the container, whoever they run as inside it.
  if (sample.containerID) {
    const auto colon = sample.containerID->find(':');
    const auto id = sample.containerID->substr(colon == std::string::npos ? 0 : colon + 1);
    return AppGrouper::Descriptor{"container:" + *sample.containerID, "Container " + id.substr(0, 12),
                                  GroupKind::other, std::nullopt};
  }
  if (sample.uid < firstPersonUID && sample.uid != config_.personUID) return System{};

  const auto apps = entries();
  const std::optional<std::string_view> executable =
      sample.path ? std::optional(withoutDeletedMark(*sample.path)) : std::nullopt;
  if (sample.flatpakAppID) {
    if (const auto* app = apps->forFlatpak(*sample.flatpakAppID)) return appOf(*app);
  }
  if (sample.appUnitID) {
    if (const auto* app = apps->forAppUnit(*sample.appUnitID)) {
      if (!sample.hasTerminal || (executable && DesktopEntries::starts(*app, *executable))) return appOf(*app);
    }
  }
  if (executable) {
    if (const auto* app = apps->forExecutable(*executable)) return appOf(*app);
  }
  if (sample.sessionService && !sample.hasTerminal) return System{};
  // Run as root, root is the person, yet what the service manager started for the machine
  // (no terminal, no app unit) is still the system's, not a tool of root's own.
  const bool machineDaemon = sample.uid == 0 && !sample.hasTerminal && !sample.appUnitID && !sample.flatpakAppID;
  if (machineDaemon) return System{};
  // An executable run from an anonymous memory file has a made-up, often random path.
  if (executable && executable->starts_with(anonymousFilePrefix)) {
    if (sample.name.empty()) return System{};
    return AppGrouper::Descriptor{"name:" + sample.name, sample.name, GroupKind::other, std::nullopt};
  }
  return std::nullopt;
}

std::vector<std::string> LinuxAppIdentifier::systemPathPrefixes() {
  return {"/usr/libexec/", "/usr/lib/systemd/", "/lib/systemd/", "/usr/sbin/", "/sbin/"};
}

std::string LinuxAppIdentifier::foldInstallFolders(std::string_view path) {
  path = withoutDeletedMark(path);
  std::string out;
  out.reserve(path.size());
  size_t index = 0;
  bool inSnap = false;
  bool inNix = false;
  while (true) {
    const auto slash = path.find('/');
    const bool last = slash == std::string_view::npos;
    const auto piece = path.substr(0, slash);
    // The executable's own name is never folded, only the folders above it.
    if (!last && index == 1) inSnap = piece == "snap";
    if (!last && index == 1) inNix = piece == "nix";
    if (!last && index == 2) inNix = inNix && piece == "store";
    const auto nixEntry = !last && inNix && index == 3 ? foldedNixStoreEntry(piece) : std::nullopt;
    if (last) {
      out += piece;
    } else if (inSnap && index == 3 && (isDigits(piece) || (piece.size() > 1 && piece[0] == 'x' && isDigits(piece.substr(1))))) {
      out += '*';
    } else if (nixEntry) {
      out += *nixEntry;
    } else if (isAppImageMount(piece)) {
      out += ".mount_*";
    } else if (isCommitHash(piece)) {
      out += '*';
    } else if (const auto channel = channelOfCommitFolder(piece)) {
      out += *channel;
      out += "-*";
    } else {
      out += piece;
    }
    if (last) break;
    out += '/';
    path.remove_prefix(slash + 1);
    ++index;
  }
  return out;
}

AppGrouper::Options LinuxAppIdentifier::grouperOptions(std::shared_ptr<LinuxAppIdentifier> identifier) {
  AppGrouper::Options options;
  options.systemPathPrefixes = systemPathPrefixes();
  options.foldInstallFolders = &LinuxAppIdentifier::foldInstallFolders;
  options.identifier = std::move(identifier);
  return options;
}

std::unique_ptr<AppGrouper> makeLinuxAppGrouper(std::string systemName, LinuxAppIdentifier::Config config) {
  auto identifier = std::make_shared<LinuxAppIdentifier>(std::move(config));
  return std::make_unique<AppGrouper>(std::move(systemName), LinuxAppIdentifier::grouperOptions(std::move(identifier)));
}

}  // namespace omnira::platform
