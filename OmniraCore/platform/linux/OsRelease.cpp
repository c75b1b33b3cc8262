#include "OmniraCore/platform/linux/OsRelease.h"

#include "OmniraCore/foundation/Parse.h"
#include "OmniraCore/platform/linux/FileText.h"

namespace omnira::platform {

namespace {

// os-release values are shell words: '...' literal, "..." with \ escapes, or bare with \ escapes.
std::string unquote(std::string_view value) {
  std::string out;
  char quote = 0;
  for (size_t i = 0; i < value.size(); ++i) {
    const char c = value[i];
    if (quote == '\'') {
      if (c == '\'') quote = 0;
      else out += c;
    } else if (c == '\\' && i + 1 < value.size()) {
      out += value[++i];
    } else if (quote == '"' && c == '"') {
      quote = 0;
    } else if (!quote && (c == '"' || c == '\'')) {
      quote = c;
    } else {
      out += c;
    }
  }
  return out;
}

}  // namespace

std::optional<std::string> parseOsReleaseName(std::string_view text) {
  std::optional<std::string> name;
  forEachLine(text, [&](std::string_view raw) {
    const auto line = trim(raw);
    if (name || line.substr(0, 5) != "NAME=") return;
    auto value = unquote(line.substr(5));
    if (!value.empty()) name = std::move(value);
  });
  return name;
}

Result<std::string, OsReleaseFailure> readOperatingSystemName(const std::filesystem::path& root) {
  int error = 0;
  for (const char* relative : {"etc/os-release", "usr/lib/os-release"}) {
    auto text = readTextFile(root / relative, 64 * 1024);
    if (!text) {
      error = text.error().error;
      continue;
    }
    if (auto name = parseOsReleaseName(*text)) return std::move(*name);
    return fail(OsReleaseFailure{OsReleaseFailure::Kind::noName, 0});
  }
  return fail(OsReleaseFailure{OsReleaseFailure::Kind::unreadable, error});
}

}  // namespace omnira::platform
