#include "OmniraCore/platform/linux/SystemdUnit.h"

#include <vector>

#include "OmniraCore/foundation/Parse.h"

namespace omnira::platform {

namespace {

std::vector<std::string_view> components(std::string_view path) {
  std::vector<std::string_view> parts;
  while (!path.empty()) {
    const auto slash = path.find('/');
    auto part = path.substr(0, slash);
    if (!part.empty()) parts.push_back(part);
    if (slash == std::string_view::npos) break;
    path.remove_prefix(slash + 1);
  }
  return parts;
}

bool isUserManager(std::string_view unit) {
  if (!unit.starts_with("user@") || !unit.ends_with(".service")) return false;
  auto uid = unit.substr(5, unit.size() - 5 - 8);
  return parseNumber<uint32_t>(uid).has_value();
}

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// "snap.firefox.firefox-0b5c….scope" → "firefox_firefox".
std::optional<std::string> snapAppID(std::string_view unit) {
  if (!unit.starts_with("snap.") || !unit.ends_with(".scope")) return std::nullopt;
  auto name = unit.substr(5, unit.size() - 5 - 6);
  const auto dash = name.rfind('-');
  if (dash != std::string_view::npos) name = name.substr(0, dash);
  const auto dot = name.find('.');
  if (dot == std::string_view::npos || dot == 0 || dot + 1 == name.size()) return std::nullopt;
  return unescapeUnitName(name.substr(0, dot)) + "_" + unescapeUnitName(name.substr(dot + 1));
}

}  // namespace

Result<std::string_view, ParseFailure> systemdCgroupPath(std::string_view cgroupText) {
  std::optional<std::string_view> unified, named;
  forEachLine(cgroupText, [&](std::string_view line) {
    const auto first = line.find(':');
    if (first == std::string_view::npos) return;
    const auto second = line.find(':', first + 1);
    if (second == std::string_view::npos) return;
    const auto id = line.substr(0, first);
    const auto controllers = line.substr(first + 1, second - first - 1);
    const auto path = line.substr(second + 1);
    if (id == "0" && controllers.empty()) unified = path;
    if (controllers == "name=systemd") named = path;
  });
  if (named) return *named;
  if (unified) return *unified;
  return fail(ParseFailure{"cgroup: no systemd or unified hierarchy line"});
}

SessionUnit sessionUnitOf(std::string_view cgroupPath) {
  const auto parts = components(cgroupPath);
  size_t i = 0;
  while (i < parts.size() && !isUserManager(parts[i])) ++i;
  if (i == parts.size()) return {};
  bool underAppSlice = false;
  std::string_view unit;
  for (++i; i < parts.size(); ++i) {
    if (!parts[i].ends_with(".slice")) {
      unit = parts[i];
      break;
    }
    if (parts[i] == "app.slice") underAppSlice = true;
  }
  if (unit.empty()) return {};  // a slice itself holds no processes
  SessionUnit result;
  if (underAppSlice) {
    result.appID = appIDOfUnit(unit);
    if (!result.appID) result.appID = snapAppID(unit);
    if (result.appID) return result;
    if (unit.ends_with(".scope")) return result;
  }
  result.sessionService = true;
  return result;
}

std::optional<std::string> appIDOfUnit(std::string_view unit) {
  bool scope = false;
  if (unit.ends_with(".scope")) {
    scope = true;
    unit.remove_suffix(6);
  } else if (unit.ends_with(".service")) {
    unit.remove_suffix(8);
    const auto at = unit.find('@');
    if (at != std::string_view::npos) unit = unit.substr(0, at);
  } else {
    return std::nullopt;
  }
  if (!unit.starts_with("app-")) return std::nullopt;
  unit.remove_prefix(4);

  std::vector<std::string_view> parts;
  while (true) {
    const auto dash = unit.find('-');
    parts.push_back(unit.substr(0, dash));
    if (dash == std::string_view::npos) break;
    unit.remove_prefix(dash + 1);
  }
  if (scope) {
    if (parts.size() < 2) return std::nullopt;  // a scope's name ends in its random part
    parts.pop_back();
  }
  // Left: [launcher] id, where an unescaped dash inside the id leaves more parts.
  size_t first = 0;
  if (parts.size() >= 2 && parts[0].find('.') == std::string_view::npos && !parts[0].empty()) first = 1;
  std::string escaped;
  for (size_t i = first; i < parts.size(); ++i) {
    if (i > first) escaped += '-';
    escaped += parts[i];
  }
  if (escaped.empty()) return std::nullopt;
  auto id = unescapeUnitName(escaped);
  if (id.empty()) return std::nullopt;
  return id;
}

std::string unescapeUnitName(std::string_view name) {
  std::string out;
  out.reserve(name.size());
  for (size_t i = 0; i < name.size();) {
    if (name[i] == '\\' && i + 3 < name.size() && name[i + 1] == 'x') {
      const int high = hexDigit(name[i + 2]), low = hexDigit(name[i + 3]);
      if (high >= 0 && low >= 0) {
        out += static_cast<char>(high * 16 + low);
        i += 4;
        continue;
      }
    }
    out += name[i];
    ++i;
  }
  return out;
}

}  // namespace omnira::platform
