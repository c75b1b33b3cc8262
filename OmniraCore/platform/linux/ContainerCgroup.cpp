#include "OmniraCore/platform/linux/ContainerCgroup.h"

#include <algorithm>
#include <array>
#include <utility>

#include "OmniraCore/foundation/Parse.h"

namespace omnira::platform {

namespace {

constexpr size_t kIDLength = 64;

bool isID(std::string_view text) {
  return text.size() == kIDLength &&
         std::all_of(text.begin(), text.end(), [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); });
}

// "<prefix><id>.scope" → the id.
std::optional<std::string_view> scopeID(std::string_view component, std::string_view prefix) {
  constexpr std::string_view suffix = ".scope";
  if (!component.starts_with(prefix) || !component.ends_with(suffix)) return std::nullopt;
  const auto id = component.substr(prefix.size(), component.size() - prefix.size() - suffix.size());
  return isID(id) ? std::optional(id) : std::nullopt;
}

std::optional<ContainerCgroup> containerOfPath(std::string_view path) {
  static constexpr std::array<std::pair<std::string_view, std::string_view>, 4> scopes = {{
      {"docker-", "docker"},
      {"libpod-", "podman"},
      {"cri-containerd-", "containerd"},
      {"crio-", "cri-o"},
  }};
  std::string_view parent;
  while (!path.empty()) {
    const auto slash = path.find('/');
    const auto component = path.substr(0, slash);
    for (const auto& [prefix, engine] : scopes) {
      if (auto id = scopeID(component, prefix)) return ContainerCgroup{std::string(engine), std::string(*id)};
    }
    if (parent == "docker" && isID(component)) return ContainerCgroup{"docker", std::string(component)};
    parent = component;
    if (slash == std::string_view::npos) break;
    path.remove_prefix(slash + 1);
  }
  return std::nullopt;
}

}  // namespace

std::optional<ContainerCgroup> containerOfCgroups(std::string_view cgroupText) {
  std::optional<ContainerCgroup> found;
  forEachLine(cgroupText, [&](std::string_view line) {
    if (found) return;
    // "hierarchy-ID:controllers:path"; the path may itself hold colons.
    const auto first = line.find(':');
    if (first == std::string_view::npos) return;
    const auto second = line.find(':', first + 1);
    if (second == std::string_view::npos) return;
    found = containerOfPath(line.substr(second + 1));
  });
  return found;
}

}  // namespace omnira::platform
