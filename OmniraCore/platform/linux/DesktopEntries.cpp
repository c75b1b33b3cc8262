#include "OmniraCore/foundation/Parse.h"
#include "OmniraCore/platform/linux/DesktopEntries.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <set>
#include <system_error>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include <dirent.h>
#include <sys/stat.h>

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include "OmniraCore/platform/linux/FileText.h"

namespace omnira::platform {

namespace fs = std::filesystem;

namespace {

bool startsWith(std::string_view text, std::string_view prefix) { return text.substr(0, prefix.size()) == prefix; }
bool endsWith(std::string_view text, std::string_view suffix) {
  return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}


std::string_view lastComponent(std::string_view path) {
  const auto slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

std::string_view stem(std::string_view desktopID) {
  return endsWith(desktopID, ".desktop") ? desktopID.substr(0, desktopID.size() - 8) : desktopID;
}

// Desktop files of one applications/ folder as (desktop id, absolute path), sorted by
// id, so that the scan does not depend on the order the directory lists them in.
std::vector<std::pair<std::string, std::string>> listFolder(const fs::path& folder) {
  std::vector<std::pair<std::string, std::string>> found;
  std::error_code error;
  fs::recursive_directory_iterator it(folder, fs::directory_options::skip_permission_denied, error);
  if (error) {
    spdlog::debug("No desktop entries in {}: {}", folder.string(), error.message());
    return found;
  }
  for (const fs::recursive_directory_iterator end; it != end; it.increment(error)) {
    if (error) {
      spdlog::debug("Stopped listing {}: {}", folder.string(), error.message());
      break;
    }
    const auto& path = it->path();
    if (path.extension() != ".desktop" || it->is_directory(error)) continue;
    std::string id = path.lexically_relative(folder).string();
    std::replace(id.begin(), id.end(), '/', '-');
    found.emplace_back(std::move(id), path.string());
  }
  std::sort(found.begin(), found.end());
  return found;
}

struct Resolver {
  const DesktopEntries::Source& source;
  const DesktopEntries::RealPath& realPath;
  // On the file system a folder asked about often is listed once, so that looking a
  // program up costs no call per folder it is not in (a PATH of fifteen folders,
  // hundreds of entries); one asked about a few times is cheaper asked path by path,
  // as is a fake file system, which is never listed.
  static constexpr int kListAfter = 16;
  bool listFolders = false;
  struct Folder {
    int asked = 0;
    bool listed = false;
    std::optional<std::unordered_set<std::string>> names;  // nothing: could not be listed
  };
  mutable std::unordered_map<std::string, Folder> folders;

  // Whether `program` may be in `dir`: false only when the listing says it is not.
  bool mayHold(const fs::path& dir, const std::string& program) const {
    if (!listFolders) return true;
    Folder& folder = folders[dir.string()];
    if (!folder.listed) {
      if (++folder.asked < kListAfter) return true;
      folder.listed = true;
      folder.names = namesIn(dir);
    }
    return !folder.names || folder.names->contains(program);
  }

  static std::optional<std::unordered_set<std::string>> namesIn(const fs::path& dir) {
    DIR* folder = ::opendir(dir.c_str());
    if (!folder) {
      if (errno == ENOENT || errno == ENOTDIR) return std::unordered_set<std::string>{};  // holds nothing
      return std::nullopt;
    }
    std::unordered_set<std::string> names;
    errno = 0;
    while (const dirent* entry = ::readdir(folder)) names.emplace(entry->d_name);
    const bool complete = errno == 0;
    ::closedir(folder);
    if (!complete) return std::nullopt;  // a partial listing must not hide a program
    return names;
  }

  std::string real(const std::string& path) const {
    const auto slash = path.rfind('/');
    if (slash != std::string::npos && !mayHold(path.substr(0, slash), path.substr(slash + 1))) return path;
    return realPath(path).value_or(path);
  }

  struct Located {
    std::string written;  // the absolute path Exec names, found in the program dirs
    std::string real;
  };

  // A program as Exec writes it: an absolute path, or a name looked up in the program dirs.
  std::optional<Located> locate(const std::string& program) const {
    if (program.empty() || isSharedInterpreter(program)) return std::nullopt;
    if (program.front() == '/') return Located{program, real(program)};
    if (program.find('/') != std::string::npos) return std::nullopt;  // relative to an unknown directory
    for (const auto& dir : source.programDirs) {
      if (!mayHold(dir, program)) continue;
      auto written = (dir / program).string();
      if (auto found = realPath(written)) return Located{std::move(written), std::move(*found)};
    }
    return std::nullopt;
  }

  void addExecutables(const std::string& program, std::vector<std::string>& out) const {
    auto located = locate(program);
    if (!located) return;
    std::vector<std::string> candidates{located->real};
    // The launcher as written and its real path may each stand for a renamed binary.
    for (const auto* launcher : {&located->written, &located->real}) {
      for (auto& renamed : DesktopEntries::renamedExecutables(*launcher)) candidates.push_back(real(renamed));
    }
    for (auto& candidate : candidates) {
      if (std::find(out.begin(), out.end(), candidate) == out.end()) out.push_back(std::move(candidate));
    }
  }
};

}  // namespace

DesktopEntries::RealPath DesktopEntries::fileSystemRealPath() {
  return [](const std::string& path) -> std::optional<std::string> {
    // Most paths asked about (a program in each PATH folder, a renamed binary) do not
    // exist; one stat says so, where resolving walks and reads every component first.
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) return std::nullopt;
    std::error_code error;
    auto real = fs::canonical(path, error);
    if (error) return std::nullopt;
    return real.string();
  };
}

std::vector<std::string> DesktopEntries::renamedExecutables(std::string_view launcher) {
  // Launchers named apart from the binary they start, in the same folder.
  static constexpr std::array<std::pair<std::string_view, std::string_view>, 3> sameFolder = {{
      {"google-chrome", "chrome"},
      {"microsoft-edge", "msedge"},
      {"brave-browser", "brave"},
  }};
  const auto slash = launcher.rfind('/');
  if (slash == std::string_view::npos) return {};
  const std::string folder(launcher.substr(0, slash));
  const std::string name(launcher.substr(slash + 1));
  if (name.empty()) return {};

  std::vector<std::string> renamed;
  renamed.push_back(folder + "/" + name + "-bin");  // firefox → firefox-bin
  if (endsWith(folder, "/bin")) {
    // An app's script in <app>/bin/ that starts <app>/<name> (editors built on Electron)
    renamed.push_back(folder.substr(0, folder.size() - 4) + "/" + name);
  }
  if (folder == "/usr/bin" || folder == "/bin" || folder == "/usr/local/bin") {
    // /usr/bin/chromium, /usr/bin/firefox: scripts or links into the app's own folder
    for (const std::string_view lib : {"/usr/lib/", "/usr/lib64/"}) {
      renamed.push_back(fmt::format("{}{}/{}", lib, name, name));
      renamed.push_back(fmt::format("{}{}/{}-bin", lib, name, name));
    }
  }
  for (const auto& [prefix, binary] : sameFolder) {
    if (startsWith(name, prefix)) renamed.push_back(fmt::format("{}/{}", folder, binary));
  }
  return renamed;
}

std::optional<std::string_view> DesktopEntries::snapOfPath(std::string_view path) {
  constexpr std::string_view root = "/snap/";
  if (!startsWith(path, root)) return std::nullopt;
  path.remove_prefix(root.size());
  const auto slash = path.find('/');
  if (slash == 0 || slash == std::string_view::npos || path.substr(0, slash) == "bin") return std::nullopt;
  return path.substr(0, slash);
}

DesktopEntries DesktopEntries::scan(const Source& source) {
  const RealPath realPath = source.realPath ? source.realPath : fileSystemRealPath();
  const Resolver resolver{source, realPath, !source.realPath, {}};
  DesktopEntries result;
  std::set<std::string, std::less<>> claimed;  // ids decided by an earlier folder

  for (const auto& dataDir : source.dataDirs) {
    for (auto& [id, file] : listFolder(dataDir / "applications")) {
      if (claimed.contains(id)) continue;
      const auto text = readTextFile(file);
      if (!text) {
        spdlog::debug("Skipped desktop entry {}: cannot read it (errno {})", file, text.error().error);
        continue;
      }
      auto parsed = parseDesktopEntry(*text);
      if (!parsed) {
        spdlog::debug("Skipped desktop entry {}: not a valid entry (failure {})", file,
                      static_cast<int>(parsed.error().kind));
        continue;
      }
      claimed.insert(id);
      if (!parsed->isApplication()) continue;

      Installed installed{std::move(id), std::move(file), std::move(*parsed), {}, {}, {}};
      const DesktopEntry& entry = installed.entry;
      installed.flatpakID = entry.flatpakID;
      if (entry.exec) {
        if (auto arguments = splitExec(*entry.exec)) {
          auto target = launchTarget(*arguments);
          if (target.program) resolver.addExecutables(*target.program, installed.executables);
          if (!installed.flatpakID) installed.flatpakID = std::move(target.flatpakID);
          installed.snapName = std::move(target.snapName);
        } else {
          spdlog::debug("Desktop entry {} has a malformed Exec; matched by id only", installed.file);
        }
      }
      if (entry.tryExec) resolver.addExecutables(*entry.tryExec, installed.executables);
      result.entries_.push_back(std::move(installed));
    }
  }

  // Indexes; the first entry in scan order wins unless a better one is named below.
  for (size_t i = 0; i < result.entries_.size(); ++i) {
    const Installed& e = result.entries_[i];
    result.byID_.emplace(e.id, i);
    result.byLowerStem_.emplace(lowered(stem(e.id)), i);
    if (e.entry.startupWMClass) result.byWMClass_.emplace(lowered(*e.entry.startupWMClass), i);
    if (e.flatpakID) result.byFlatpak_.emplace(*e.flatpakID, i);
    if (e.entry.terminal) continue;
    if (e.snapName) {
      // Of a snap's several entries, the one named for the snap itself ("foo_foo.desktop").
      const auto [slot, inserted] = result.bySnap_.emplace(*e.snapName, i);
      if (!inserted && stem(e.id) == *e.snapName + "_" + *e.snapName) slot->second = i;
    }
    for (const auto& executable : e.executables) {
      // Of entries that start one binary: a shown one, then one named for the binary.
      const auto rank = [&](const Installed& candidate) {
        const bool named = lowered(stem(candidate.id)) == lowered(lastComponent(executable));
        return std::pair{candidate.entry.noDisplay, !named};
      };
      const auto [slot, inserted] = result.byExecutable_.emplace(executable, i);
      if (!inserted && rank(e) < rank(result.entries_[slot->second])) slot->second = i;
    }
  }
  spdlog::debug("Found {} desktop apps in {} data dirs", result.entries_.size(), source.dataDirs.size());
  return result;
}

const DesktopEntries::Installed* DesktopEntries::find(const Index& index, const std::string& key) const {
  const auto found = index.find(key);
  return found == index.end() ? nullptr : &entries_[found->second];
}

const DesktopEntries::Installed* DesktopEntries::withID(std::string_view desktopID) const {
  return find(byID_, std::string(desktopID));
}

const DesktopEntries::Installed* DesktopEntries::forAppUnit(std::string_view appID) const {
  if (const auto* exact = withID(std::string(appID) + ".desktop")) return exact;
  const auto lower = lowered(appID);
  if (const auto* caseless = find(byLowerStem_, lower)) return caseless;
  return find(byWMClass_, lower);
}

const DesktopEntries::Installed* DesktopEntries::forFlatpak(std::string_view flatpakID) const {
  if (const auto* exported = find(byFlatpak_, std::string(flatpakID))) return exported;
  return withID(std::string(flatpakID) + ".desktop");
}

const DesktopEntries::Installed* DesktopEntries::forExecutable(std::string_view path) const {
  if (const auto snap = snapOfPath(path)) {
    if (const auto* entry = find(bySnap_, std::string(*snap))) return entry;
  }
  return find(byExecutable_, std::string(path));
}

bool DesktopEntries::starts(const Installed& installed, std::string_view path) {
  if (installed.snapName && snapOfPath(path) == installed.snapName) return true;
  return std::find(installed.executables.begin(), installed.executables.end(), path) != installed.executables.end();
}

}  // namespace omnira::platform
