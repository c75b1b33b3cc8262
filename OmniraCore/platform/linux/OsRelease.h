#pragma once
// The distribution's name ("Debian GNU/Linux"), which names the system group.
// Read once at start from os-release; a missing name is the caller's to replace
// (with "Linux"): the monitor works without it.

#include <cerrno>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "OmniraCore/foundation/Result.h"

namespace omnira::platform {

struct OsReleaseFailure {
  enum class Kind {
    unreadable,  // neither etc/os-release nor usr/lib/os-release could be read
    noName,      // read, but without a NAME
  };
  Kind kind = Kind::unreadable;
  int error = 0;  // errno of the last read, for unreadable
};

// NAME's value from os-release text, with its shell quoting undone.
// https://www.freedesktop.org/software/systemd/man/latest/os-release.html
std::optional<std::string> parseOsReleaseName(std::string_view text);

// `root` is the file system root ("/" in production, a fixture tree in tests).
Result<std::string, OsReleaseFailure> readOperatingSystemName(const std::filesystem::path& root = "/");

}  // namespace omnira::platform
