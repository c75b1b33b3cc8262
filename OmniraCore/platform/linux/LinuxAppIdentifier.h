#pragma once
// Which app a Linux process belongs to, decided from how it was launched before the
// grouper's path rules run. For one process, the first rule that applies:
//
//  1. a kernel thread: the system group;
//  2. a system user's process (uid below 1000, other than the person's own): system;
//  3. inside a Flatpak sandbox: that app's desktop entry (the whole sandbox is the app,
//     whatever runs in it);
//  4. in a desktop app unit: the entry "<unit's app id>.desktop" (else the same id
//     ignoring case, else the entry whose StartupWMClass it is). Not for a process
//     with a controlling terminal that runs something other than the entry's own
//     program: that is a command-line tool started in a terminal app (a shell, an
//     editor, node), which keeps its own "exec:" group;
//  5. its executable is what an entry's Exec starts (Terminal entries excepted, see
//     DesktopEntries): that entry, with or without a unit, so apps started by launchers
//     that make no unit, or from a shell, still find their app;
//  6. in one of the desktop session's own units, without a terminal: system; so is a
//     process of root's without a terminal or an app unit (a daemon the service manager
//     started), which matters when the monitor runs as root and root is the person;
//  7. an executable run from an anonymous memory file ("/memfd:..."), whose path is
//     made up: "name:" + the process name, as for a process without a path;
//  8. otherwise the path rules, with systemPathPrefixes() and foldInstallFolders().
//
// A desktop app's group id and bundle path are the absolute path of its .desktop file,
// its name the entry's Name.
//
// Threads: identify() may run on any thread at once, also while reload() swaps in a
// new scan; the scan is immutable and shared. Nothing here fails: an unreadable
// desktop file is skipped, and a process no rule knows goes to the path rules.

#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "OmniraCore/foundation/AppPaths.h"
#include "OmniraCore/platform/linux/DesktopEntries.h"
#include "OmniraCore/sampling/AppGrouper.h"
#include "OmniraCore/sampling/AppIdentifier.h"

namespace omnira::platform {

class LinuxAppIdentifier final : public AppIdentifier {
 public:
  // uids below this are system users (the distributions' UID_MIN)
  static constexpr uint32_t firstPersonUID = 1000;

  struct Config {
    DesktopEntries::Source desktop;
    uint32_t personUID = 0;  // the person whose apps these are (the monitor's own uid)

    // Data dirs: $XDG_DATA_HOME (~/.local/share), $XDG_DATA_DIRS (/usr/local/share:/usr/share),
    // then the Flatpak exports (~/.local/share/flatpak/exports/share,
    // /var/lib/flatpak/exports/share) and /var/lib/snapd/desktop where not named yet.
    // Program dirs: $PATH, then the usual bin folders, /snap/bin and ~/.local/bin.
    static Config fromEnvironment(const AppPaths::Environment& environment, uint32_t personUID);
  };

  explicit LinuxAppIdentifier(Config config);  // scans the desktop entries

  std::optional<Verdict> identify(const ProcessSample& sample) const override;
  void reload() override;

  std::shared_ptr<const DesktopEntries> entries() const;

  // Outside app bundles only these are the system's; /usr/bin is not, since the
  // person's own command-line tools live there.
  static std::vector<std::string> systemPathPrefixes();
  // Folds the folders that change with every update or launch, so ids outlive them:
  // /snap/<name>/<revision>/ and commit folders (40 or 64 hex digits: Flatpak
  // deployments, editors' remote servers; "Stable-<hash>" keeps its "Stable-") become
  // "*"; a Nix store entry "/nix/store/<hash>-<name>-<version>" keeps only its name
  // ("*-<name>-*"); an AppImage's mount folder ".mount_<random>", wherever the temporary
  // folder is, becomes ".mount_*". Also drops the " (deleted)" the kernel appends to a
  // replaced executable.
  static std::string foldInstallFolders(std::string_view path);
  // The grouper options that put this identifier and the rules above in place.
  static AppGrouper::Options grouperOptions(std::shared_ptr<LinuxAppIdentifier> identifier);

 private:
  const Config config_;
  mutable std::mutex mutex_;  // guards entries_ (the pointer, not the scan)
  std::shared_ptr<const DesktopEntries> entries_;
};

// The production grouper: `systemName` from readOperatingSystemName() (OsRelease.h),
// `config` from Config::fromEnvironment with the monitor's own uid.
std::unique_ptr<AppGrouper> makeLinuxAppGrouper(std::string systemName, LinuxAppIdentifier::Config config);

}  // namespace omnira::platform
