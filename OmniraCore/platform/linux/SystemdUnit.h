#pragma once
// Which desktop app or session service a process runs under, from its control group.
// Desktop sessions start each app in a unit of the user's service manager named
//   app[-<launcher>]-<app id>[@<random>].service   or
//   app[-<launcher>]-<app id>-<random>.scope
// under app.slice (app-gnome-firefox-1234.scope, app-org.kde.konsole@12ab.service,
// app-flatpak-org.mozilla.firefox-5678.scope). Pure text rules; no file access.

#include <optional>
#include <string>
#include <string_view>

#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/platform/linux/ParseFailure.h"

namespace omnira::platform {

// https://man7.org/linux/man-pages/man7/cgroups.7.html (/proc/PID/cgroup)
// The path of the hierarchy systemd keeps its units in: the "name=systemd" line where
// there is one (legacy and hybrid hierarchies, where it is the authoritative one),
// else the unified "0::" line. Fails when neither is there.
Result<std::string_view, ParseFailure> systemdCgroupPath(std::string_view cgroupText);

struct SessionUnit {
  std::optional<std::string> appID;  // unescaped ("org.mozilla.firefox")
  // Runs under the user's service manager (user@UID.service) but in none of the
  // person's apps: session.slice, background.slice, init.scope, a plain service
  // such as app.slice/dbus.service.
  bool sessionService = false;
  friend bool operator==(const SessionUnit&, const SessionUnit&) = default;
};

// Reads the innermost unit below user@UID.service. Scopes under app.slice that are no
// app unit (a terminal's "vte-spawn-<uuid>.scope", "snap.<snap>.<app>-<uuid>.scope")
// were started on the person's behalf, so they are no session service either; a snap's
// scope gives the id of the snap's desktop entry, "<snap>_<app>".
SessionUnit sessionUnitOf(std::string_view cgroupPath);

// https://systemd.io/DESKTOP_ENVIRONMENTS/
// The app id of an app unit's name, or none for any other unit. Dashes inside the id
// are escaped, so the name is split at its dashes before it is unescaped; the
// launcher is a name without dots.
std::optional<std::string> appIDOfUnit(std::string_view unitName);

// https://www.freedesktop.org/software/systemd/man/latest/systemd.unit.html (string escaping)
// "\xNN" becomes the byte NN; a malformed escape ("\x2", "\xZZ", a trailing "\") stays as written.
std::string unescapeUnitName(std::string_view name);

}  // namespace omnira::platform
