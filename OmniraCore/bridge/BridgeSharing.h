#pragma once
// What the person lets assistants see, from the settings: system figures, apps, projects
// and ports, history (all on unless switched off), and whether project folders go out by
// their last name only. Checked before a tool runs; results are rewritten before they
// leave. A plain value; any thread.

#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace omnira {

class Settings;

struct BridgeSharing {
  bool system = true;
  bool apps = true;
  bool projects = true;
  bool history = true;
  bool folderNamesOnly = false;

  static BridgeSharing from(const Settings& settings);

  // The sentence that refuses `tool` with these arguments, when it would share what the
  // person switched off: the tool's own kind first, then a "port", "ports" or "project"
  // argument, then history (the history tool, top_apps over a span).
  std::optional<std::string> refusal(std::string_view tool, const nlohmann::ordered_json& arguments) const;
  // `result` with every project folder shortened to its last name when folderNamesOnly is on.
  nlohmann::ordered_json applied(nlohmann::ordered_json result) const;
};

}  // namespace omnira
