#pragma once
// The desktop apps installed for the person: every application entry in the
// applications/ folders of the XDG data dirs (Flatpak and Snap exports included),
// indexed by what a running process carries: its app unit's id, its Flatpak id, its
// executable.
//
// Desktop file ids follow the desktop-entry rules: the path below applications/ with
// "/" turned into "-" ("kde4/kate.desktop" is "kde4-kate.desktop"); of two files with
// one id, the one in the earlier data dir wins, and a Hidden one deletes the id.
//
// An entry's executables are what its Exec (and TryExec) start: the program looked up
// in the program dirs, with symlinks resolved, plus a few well-known renames (a
// browser's "-bin" executable, a launcher script beside or above the real binary).
// Entries that start an interpreter ("python3 x.py", "sh -c") name no executable,
// and Terminal entries are never matched by executable alone: their program run
// anywhere else is a command-line tool.
//
// Built once by scan() (no file is read afterwards); immutable, so any thread may read
// it. A missing or unreadable folder or file is skipped (logged at debug level).

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "OmniraCore/platform/linux/DesktopEntry.h"

namespace omnira::platform {

class DesktopEntries {
 public:
  // The real path of an existing file, symlinks resolved; nothing when there is none.
  using RealPath = std::function<std::optional<std::string>(const std::string& path)>;

  struct Source {
    std::vector<std::filesystem::path> dataDirs;     // each holds an applications/ folder; first wins
    std::vector<std::filesystem::path> programDirs;  // where Exec's program names are looked up (PATH)
    RealPath realPath;                               // empty: the file system
  };

  struct Installed {
    std::string id;    // desktop file id, "org.kde.konsole.desktop"
    std::string file;  // absolute path of the .desktop file as found (export symlinks kept)
    DesktopEntry entry;
    std::vector<std::string> executables;
    std::optional<std::string> flatpakID;
    std::optional<std::string> snapName;
  };

  static DesktopEntries scan(const Source& source);
  static RealPath fileSystemRealPath();

  // Paths an app's launcher may stand for, beside the launcher itself.
  static std::vector<std::string> renamedExecutables(std::string_view launcher);
  // "firefox" for "/snap/firefox/4173/usr/lib/firefox/firefox".
  static std::optional<std::string_view> snapOfPath(std::string_view path);

  const std::vector<Installed>& all() const { return entries_; }
  const Installed* withID(std::string_view desktopID) const;
  // An app unit's id: "<id>.desktop", then the same ignoring case, then StartupWMClass.
  const Installed* forAppUnit(std::string_view appID) const;
  const Installed* forFlatpak(std::string_view flatpakID) const;
  // Not Terminal entries; a path under /snap/<name>/ matches that snap's entry.
  const Installed* forExecutable(std::string_view path) const;
  // Whether `path` is what the entry starts (Terminal entries included).
  static bool starts(const Installed& installed, std::string_view path);

 private:
  using Index = std::unordered_map<std::string, size_t>;
  const Installed* find(const Index& index, const std::string& key) const;

  std::vector<Installed> entries_;
  Index byID_;
  Index byLowerStem_;
  Index byWMClass_;  // lower-cased
  Index byFlatpak_;
  Index byExecutable_;
  Index bySnap_;
};

}  // namespace omnira::platform
