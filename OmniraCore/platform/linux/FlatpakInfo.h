#pragma once
// /.flatpak-info inside a Flatpak sandbox (read as /proc/PID/root/.flatpak-info).

#include <optional>
#include <string>
#include <string_view>

namespace omnira::platform {

// https://docs.flatpak.org/en/latest/flatpak-command-reference.html (flatpak-metadata(5))
// The "name" key of the "[Application]" group: the app id ("org.mozilla.firefox").
// A file without it (a runtime-only sandbox) has none.
std::optional<std::string> parseFlatpakAppID(std::string_view text);

}  // namespace omnira::platform
