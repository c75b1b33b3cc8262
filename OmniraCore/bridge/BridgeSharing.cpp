#include "OmniraCore/bridge/BridgeSharing.h"

#include <array>

#include "OmniraCore/foundation/Settings.h"
#include "OmniraCore/foundation/SettingsKeys.h"

namespace omnira {

namespace {

using json = nlohmann::ordered_json;

constexpr std::array<std::string_view, 9> kAppTools = {"top_apps", "app_details", "find_process",
                                                       "whats_wrong", "can_quit", "agents",
                                                       "quit", "quit_app", "stop_process"};
constexpr std::array<std::string_view, 3> kProjectTools = {"projects", "ports", "containers"};
// The keys under which results name a project folder.
constexpr std::array<std::string_view, 5> kFolderKeys = {"project", "projects", "path", "project_folder",
                                                         "compose_folder"};

template <size_t N>
bool among(const std::array<std::string_view, N>& names, std::string_view name) {
  for (const auto n : names)
    if (n == name) return true;
  return false;
}

std::string refusalText(std::string_view what) {
  return "The person has turned off sharing " + std::string(what) +
         " with assistants, in Omnira → Settings → Integrations. Don't work around it; tell them if you need it.";
}

std::string lastName(const std::string& path) {
  if (path.find('/') == std::string::npos) return path;
  std::string_view trimmed = path;
  while (trimmed.size() > 1 && trimmed.back() == '/') trimmed.remove_suffix(1);
  const auto slash = trimmed.rfind('/');
  return std::string(slash == std::string_view::npos ? trimmed : trimmed.substr(slash + 1));
}

void shorten(json& value) {
  if (value.is_array()) {
    for (auto& item : value) shorten(item);
    return;
  }
  if (!value.is_object()) return;
  for (auto& [key, member] : value.items()) {
    if (among(kFolderKeys, key)) {
      if (member.is_string()) member = lastName(member.get<std::string>());
      else if (member.is_array())
        for (auto& item : member)
          if (item.is_string()) item = lastName(item.get<std::string>());
    }
    shorten(member);
  }
}

}  // namespace

BridgeSharing BridgeSharing::from(const Settings& settings) {
  return {settings.boolean(SettingsKeys::bridgeSharesSystem), settings.boolean(SettingsKeys::bridgeSharesApps),
          settings.boolean(SettingsKeys::bridgeSharesProjects), settings.boolean(SettingsKeys::bridgeSharesHistory),
          settings.boolean(SettingsKeys::bridgeFolderNamesOnly)};
}

std::optional<std::string> BridgeSharing::refusal(std::string_view tool, const json& arguments) const {
  if (tool == "system_status" && !system) return refusalText("system figures");
  if (among(kAppTools, tool) && !apps) return refusalText("apps");
  if (among(kProjectTools, tool) && !projects) return refusalText("projects and ports");
  const bool namesPortOrProject =
      arguments.is_object() && (arguments.contains("port") || arguments.contains("ports") || arguments.contains("project"));
  if (namesPortOrProject && !projects) return refusalText("projects and ports");
  const auto period = arguments.is_object() ? arguments.find("period") : arguments.end();
  const bool overASpan = tool == "top_apps" && period != arguments.end() && *period != "now";
  if ((tool == "history" || overASpan) && !history) return refusalText("history");
  return std::nullopt;
}

json BridgeSharing::applied(json result) const {
  if (folderNamesOnly) shorten(result);
  return result;
}

}  // namespace omnira
