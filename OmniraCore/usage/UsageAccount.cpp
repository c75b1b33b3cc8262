#include "OmniraCore/usage/UsageAccount.h"

#include <functional>

#include "OmniraCore/usage/UsageJSON.h"

namespace omnira {

std::optional<UsageWindow> UsageAccount::lead() const {
  if (windows.empty()) return std::nullopt;
  const UsageWindow* kept = &windows.front();
  for (const UsageWindow& window : windows) {
    const int rank = leadRank(window.kind()), keptRank = leadRank(kept->kind());
    if (rank > keptRank || (rank == keptRank && window.used() > kept->used())) kept = &window;
  }
  return *kept;
}

nlohmann::json UsageAccount::toJSON() const {
  nlohmann::json windowsJSON = nlohmann::json::array();
  for (const auto& window : windows) windowsJSON.push_back(window.toJSON());
  nlohmann::json json = {{"id", id},
                         {"tool", rawValue(tool)},
                         {"label", label},
                         {"windows", std::move(windowsJSON)},
                         {"fetchedAt", formatISO8601(fetchedAt)},
                         {"source", rawValue(source)}};
  if (plan) json["plan"] = *plan;
  return json;
}

Result<UsageAccount, UsageDecodeFailure> UsageAccount::fromJSON(const nlohmann::json& json) {
  using namespace usage_json;
  if (!json.is_object()) return fail(UsageDecodeFailure{"an account is not an object"});
  UsageAccount account;
  std::string sourceText;
  for (auto failure : {readString(json, "id", account.id), readString(json, "label", account.label),
                       readOptionalString(json, "plan", account.plan), readDate(json, "fetchedAt", account.fetchedAt),
                       readString(json, "source", sourceText)})
    if (failure) return fail(*failure);
  if (!json.contains("tool")) return fail(wrong("tool", "is missing"));
  auto tool = usageToolFromJSON(json["tool"]);
  if (!tool) return fail(tool.error());
  account.tool = *tool;
  auto source = usageAccountSourceFromRaw(sourceText);
  if (!source) return fail(UsageDecodeFailure{"\"source\" is not a known source: " + sourceText});
  account.source = *source;
  auto windowsJSON = json.find("windows");
  if (windowsJSON == json.end() || !windowsJSON->is_array()) return fail(wrong("windows", "is missing or not a list"));
  for (const auto& windowJSON : *windowsJSON) {
    auto window = UsageWindow::fromJSON(windowJSON);
    if (!window) return fail(window.error());
    account.windows.push_back(std::move(*window));
  }
  return account;
}

std::string_view rawValue(UsageAccount::Source source) {
  return source == UsageAccount::Source::toolFiles ? "toolFiles" : "vendor";
}

std::optional<UsageAccount::Source> usageAccountSourceFromRaw(std::string_view raw) {
  if (raw == "vendor") return UsageAccount::Source::vendor;
  if (raw == "toolFiles") return UsageAccount::Source::toolFiles;
  return std::nullopt;
}

}  // namespace omnira

size_t std::hash<omnira::UsageAccount>::operator()(const omnira::UsageAccount& account) const noexcept {
  using omnira::usage_json::mix;
  size_t seed = std::hash<std::string>()(account.id);
  mix(seed, static_cast<size_t>(account.tool));
  mix(seed, std::hash<std::string>()(account.label));
  mix(seed, account.plan ? std::hash<std::string>()(*account.plan) : 0);
  for (const auto& window : account.windows) mix(seed, std::hash<omnira::UsageWindow>()(window));
  mix(seed, std::hash<int64_t>()(account.fetchedAt.time_since_epoch().count()));
  mix(seed, static_cast<size_t>(account.source));
  return seed;
}
