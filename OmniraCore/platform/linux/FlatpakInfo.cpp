#include "OmniraCore/platform/linux/FlatpakInfo.h"

#include "OmniraCore/foundation/Parse.h"

namespace omnira::platform {

std::optional<std::string> parseFlatpakAppID(std::string_view text) {
  bool inApplication = false;
  std::optional<std::string> id;
  forEachLine(text, [&](std::string_view line) {
    line = trim(line);
    if (id || line.empty() || line.front() == '#') return;
    if (line.front() == '[') {
      inApplication = line == "[Application]";
      return;
    }
    if (!inApplication) return;
    const auto equals = line.find('=');
    if (equals == std::string_view::npos || trim(line.substr(0, equals)) != "name") return;
    const auto value = trim(line.substr(equals + 1));
    if (!value.empty()) id = std::string(value);
  });
  return id;
}

}  // namespace omnira::platform
