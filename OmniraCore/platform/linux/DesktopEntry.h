#pragma once
// One .desktop file's [Desktop Entry] group, and the launch command its Exec key names.
// Pure functions over text; no file is read here (DesktopEntries does that).
//
// Only the keys app identification needs are kept. Localized keys ("Name[de]") are
// ignored: the plain Name is what the group shows whatever the locale, so the name
// stays the same in the history. Other groups ([Desktop Action ...]) are skipped.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OmniraCore/foundation/Result.h"

namespace omnira::platform {

struct DesktopEntry {
  std::string type;  // "Application", "Link", "Directory"
  std::string name;
  std::optional<std::string> exec;
  std::optional<std::string> tryExec;
  std::optional<std::string> icon;
  std::optional<std::string> startupWMClass;
  std::optional<std::string> flatpakID;  // X-Flatpak
  bool noDisplay = false;  // installed, but not shown in menus: still an app
  bool hidden = false;     // deleted: also masks entries of the same id in later folders
  bool terminal = false;   // runs inside a terminal: a command-line tool's entry

  bool isApplication() const { return type == "Application" && !hidden; }
};

struct DesktopEntryFailure {
  enum class Kind {
    noEntryGroup,  // no [Desktop Entry] group: not a desktop entry
    missingType,
    missingName,
  };
  Kind kind = Kind::noEntryGroup;
};

// Lines without "=" and keys outside the entry group are skipped; the first of a
// repeated key counts. A Hidden entry needs no Type or Name (it only deletes).
// https://specifications.freedesktop.org/desktop-entry-spec/latest/
Result<DesktopEntry, DesktopEntryFailure> parseDesktopEntry(std::string_view text);

struct ExecFailure {
  enum class Kind {
    empty,
    unterminatedQuote,
  };
  Kind kind = Kind::empty;
};

// Splits an Exec value (string escapes already undone by parseDesktopEntry) into
// arguments by the desktop-entry quoting rules; field codes outside quotes (%f %U %i
// ...) are dropped, "%%" is a "%".
Result<std::vector<std::string>, ExecFailure> splitExec(std::string_view exec);

// What a launch command starts, past the launchers in front of it.
struct LaunchTarget {
  std::optional<std::string> program;    // as written: a name looked up in PATH, or a path
  std::optional<std::string> flatpakID;  // "flatpak run [options] <id>"
  std::optional<std::string> snapName;   // "/snap/bin/<snap>[.<app>]", "snap run <snap>[.<app>]"
  friend bool operator==(const LaunchTarget&, const LaunchTarget&) = default;
};

// Skips "env [options] [VAR=value ...]"; recognises Flatpak and Snap launchers.
LaunchTarget launchTarget(const std::vector<std::string>& arguments);

// Interpreters and launchers run many unrelated apps, so an entry that starts one
// does not name an app's executable ("python3 foo.py", "sh -c ...", "electron app.asar").
bool isSharedInterpreter(std::string_view program);

}  // namespace omnira::platform
