#include "OmniraCore/foundation/SettingsKeys.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "OmniraCore/foundation/JSONText.h"
#include "OmniraCore/foundation/Parse.h"
#include "OmniraCore/foundation/Settings.h"
#include "OmniraCore/history/AppLimit.h"

namespace omnira {

namespace {

using Type = SettingSpec::Type;
using nlohmann::json;

std::optional<std::string> checkAppLimits(const json& value) {
  if (!value.is_array()) return "it is not an array";
  for (size_t i = 0; i < value.size(); ++i) {
    auto limit = AppLimit::fromJSON(nlohmann::ordered_json(value[i]));
    if (!limit) return fmt::format("item {}: {}", i + 1, limit.error().message);
  }
  return std::nullopt;
}

std::optional<std::string> checkMutedApps(const json& value) {
  if (!value.is_object()) return "it is not an object";
  for (const auto& [app, until] : value.items()) {
    if (until.is_null()) continue;
    if (!until.is_string() || !parseISO8601(until.get<std::string>()))
      return fmt::format("\"{}\" is neither null nor an ISO 8601 date", app);
  }
  return std::nullopt;
}

std::optional<std::string> checkFolders(const json& value) {
  if (!value.is_array()) return "it is not a list";
  for (size_t i = 0; i < value.size(); ++i)
    if (!value[i].is_string() || !value[i].get<std::string>().starts_with('/'))
      return fmt::format("item {} is not a folder's full path", i + 1);
  return std::nullopt;
}

std::optional<std::string> checkAddress(const json& value) {
  if (!value.is_string()) return "it is not text";
  const auto address = value.get<std::string>();
  const auto colon = address.rfind(':');
  if (colon == std::string::npos || colon == 0 || !parseNumber<uint16_t>(std::string_view(address).substr(colon + 1)))
    return fmt::format("\"{}\" has no port after a colon", address);
  return std::nullopt;
}

// It travels in an HTTP header: printable ASCII without spaces.
std::optional<std::string> checkToken(const json& value) {
  if (!value.is_string()) return "it is not text";
  for (const char c : value.get<std::string>())
    if (c <= ' ' || c > '~') return "it may hold only printable ASCII characters without spaces";
  return std::nullopt;
}

SettingSpec boolean(std::string_view key, bool fallback, std::string_view description) {
  SettingSpec spec{.key = key, .type = Type::boolean, .defaultValue = fallback};
  spec.description = description;
  return spec;
}

// Every threshold has bounds: a value of 1e308 minutes once made each app's series grow
// without end. Outside them a stored value reads as the default.
SettingSpec rangedNumber(std::string_view key, int64_t fallback, double minimum, double maximum,
                         std::string_view description) {
  SettingSpec spec{.key = key, .type = Type::number, .defaultValue = fallback, .minimum = minimum, .maximum = maximum};
  spec.description = description;
  return spec;
}

std::vector<SettingSpec> buildTable() {
  std::vector<SettingSpec> table;
  // Fractions are fine: 2.5 s is a cadence a person may well want.
  table.push_back({.key = "refreshSeconds",
                   .type = Type::number,
                   .defaultValue = 1,
                   .minimum = 1,
                   .maximum = 10,
                   .clamps = true,
                   .description = "Seconds between samples while a window shows live figures."});
  table.push_back(boolean("showsSystemInLists", false, "List the system group with the apps."));
  table.push_back({.key = "historySpan",
                   .type = Type::choice,
                   .defaultValue = 5,
                   .choices = {5, 15, 30},
                   .description = "How far back the charts reach: 5, 15 or 30 minutes."});
  table.push_back({.key = "historyDays",
                   .type = Type::choice,
                   .defaultValue = 30,
                   .choices = {30, 90, 180, 365},
                   .description = "How many days of history are kept on disk."});
  table.push_back({.key = "temperatureUnit",
                   .type = Type::choice,
                   .defaultValue = "celsius",
                   .choices = {"celsius", "fahrenheit"},
                   .description = "How temperatures are shown."});
  table.push_back({.key = "menuBarReadout",
                   .type = Type::choice,
                   .defaultValue = "cpu",
                   .choices = {"cpu", "memory", "pressure"},
                   .description = "What the status icon shows live."});
  table.push_back(boolean("menuBarShowsGraph", false, "Draw the status icon's readout as a small graph, not a figure."));
  table.push_back(boolean("insightNotifications", true,
                          "Post each new insight as a notification too; it always appears under Worth a Look."));
  table.push_back(rangedNumber("insightCPUPercent", 50, 1, 10000,
                               "CPU percent (100 = one core) that a background app must average to be noted."));
  table.push_back(rangedNumber("insightCPUMinutes", 10, 0.01, 60, "Minutes over which that CPU average is taken."));
  table.push_back(rangedNumber("insightMemoryGrowthGB", 1, 0.1, 1024,
                               "Gigabytes by which an app's memory must grow to be noted."));
  table.push_back(rangedNumber("insightDiskBurstGB", 5, 0.1, 1024,
                               "Gigabytes an app must write to disk within ten minutes to be noted."));
  table.push_back(rangedNumber("insightNetworkBurstGB", 1, 0.1, 1024,
                               "Gigabytes an app must receive and send within ten minutes to be noted."));
  table.push_back(rangedNumber("insightHotCelsius", 90, 30, 120, "Temperature in °C from which the computer runs hot."));
  table.push_back(rangedNumber("insightHotMinutes", 3, 0.01, 60, "Minutes the computer must stay hot to be noted."));
  table.push_back({.key = "insightAppLimits",
                   .type = Type::json,
                   .defaultValue = json::array(),
                   .check = checkAppLimits,
                   .shape = "a JSON array of app limits",
                   .description = "Per-app CPU and memory limits."});
  table.push_back({.key = "insightMutedApps",
                   .type = Type::json,
                   .defaultValue = json::object(),
                   .check = checkMutedApps,
                   .shape = "a JSON object from app id to an ISO 8601 date, or null for good",
                   .description = "Apps whose insights are muted, until a date or for good."});
  table.push_back(boolean("usageLimitsEnabled", true, "Show how much of their plans the AI coding tools have left."));
  table.push_back(boolean("usageLimitsClaude", true, "Ask Claude."));
  table.push_back(boolean("usageLimitsCodex", true, "Ask Codex."));
  table.push_back(boolean("usageLimitsCopilot", true, "Ask GitHub Copilot."));
  table.push_back(boolean("usageLimitsCursor", true, "Ask Cursor."));
  table.push_back(boolean("usageLimitsGrok", true, "Ask Grok."));
  table.push_back(boolean("usageLimitsOllama", true, "Ask Ollama."));
  table.push_back(boolean("usageLimitsAntigravity", true, "Ask Antigravity."));
  table.push_back(boolean("usageLimitsOpenCode", true, "Ask OpenCode."));
  table.push_back(boolean("usageLimitsClaudeApp", false, "Also read the Claude desktop app's sign-in for Claude."));
  table.push_back(boolean("bridgeEnabled", false,
                          "Let coding agents on this computer ask Omnira through its socket (omnira mcp)."));
  table.push_back(boolean("bridgeSharesSystem", true, "Share the computer's figures with assistants."));
  table.push_back(boolean("bridgeSharesApps", true, "Share apps and processes with assistants."));
  table.push_back(boolean("bridgeSharesProjects", true, "Share project folders, ports and containers with assistants."));
  table.push_back(boolean("bridgeSharesHistory", true, "Share the history with assistants."));
  table.push_back(boolean("bridgeFolderNamesOnly", false,
                          "Give assistants project folders by their last name only, not their whole path."));
  table.push_back(boolean("bridgeActionsEnabled", true, "Let assistants ask you to quit apps and processes."));
  table.push_back({.key = "bridgeAllowedProjects",
                   .type = Type::json,
                   .defaultValue = json::array(),
                   .check = checkFolders,
                   .shape = "a list of project folders, like [\"/home/ada/src/shop\"]",
                   .description = "Project folders where assistants' safe quit requests are carried out without asking."});
  table.push_back(boolean("metricsEnabled", false, "Serve the figures to Prometheus at http://<metricsAddress>/metrics."));
  table.push_back({.key = "metricsAddress",
                   .type = Type::json,
                   .defaultValue = "127.0.0.1:9464",
                   .check = checkAddress,
                   .shape = "an address and port, like 127.0.0.1:9464",
                   .description = "Where the metrics endpoint listens; any address but loopback needs metricsToken."});
  table.push_back({.key = "metricsToken",
                   .type = Type::json,
                   .defaultValue = "",
                   .check = checkToken,
                   .shape = "a bearer token (printable ASCII, no spaces)",
                   .description = "The bearer token every scrape must send; empty asks none."});
  table.push_back({.key = "metricsMaxApps",
                   .type = Type::integer,
                   .defaultValue = 50,
                   .minimum = 1,
                   .maximum = 1000,
                   .description = "How many apps get series of their own; the rest are added into app=\"other\"."});
  table.push_back(boolean("metricsProjectPaths", false, "Label projects by their full path, not only the folder's name."));
  return table;
}

std::string joinChoices(const std::vector<json>& choices) {
  std::string text;
  for (size_t i = 0; i < choices.size(); ++i) {
    if (i > 0) text += i + 1 == choices.size() ? " or " : ", ";
    text += choices[i].is_string() ? choices[i].get<std::string>() : jsonText(choices[i]);
  }
  return text;
}

// A bound as the file would hold it: 10, not 10.0.
json wholeOrNot(double number) {
  if (std::trunc(number) == number) return static_cast<int64_t>(number);
  return number;
}

bool numericChoices(const SettingSpec& spec) { return !spec.choices.empty() && spec.choices.front().is_number(); }


}  // namespace

std::string SettingSpec::accepts() const {
  switch (type) {
    case Type::boolean: return "true or false";
    case Type::integer: return fmt::format("a whole number from {} to {}", minimum, maximum);
    case Type::number:
      if (ranged()) return fmt::format("a number from {} to {}", minimum, maximum);
      return "a positive number";
    case Type::choice: return joinChoices(choices);
    case Type::json: return std::string(shape);
  }
  return {};
}

std::optional<std::string> SettingSpec::refusal(const json& value) const {
  bool allowed = false;
  switch (type) {
    case Type::boolean: allowed = value.is_boolean(); break;
    case Type::integer:
      // The parser keeps every non-negative whole number unsigned.
      if (value.is_number_unsigned()) {
        const auto whole = static_cast<double>(value.get<uint64_t>());
        allowed = whole <= maximum && whole >= minimum;
      } else if (value.is_number_integer()) {
        const auto whole = static_cast<double>(value.get<int64_t>());
        allowed = whole >= minimum && whole <= maximum;
      }
      break;
    case Type::number: {
      if (!value.is_number()) break;
      const double number = value.get<double>();
      allowed = std::isfinite(number) && number > 0 && (!ranged() || (number >= minimum && number <= maximum));
      break;
    }
    case Type::choice: allowed = std::find(choices.begin(), choices.end(), value) != choices.end(); break;
    case Type::json:
      if (auto reason = check ? check(value) : std::nullopt) return fmt::format("\"{}\" takes {}; {}.", key, shape, *reason);
      allowed = true;
      break;
  }
  if (allowed) return std::nullopt;
  return fmt::format("\"{}\" takes {}, not {}.", key, accepts(), jsonText(value));
}

Result<json, std::string> SettingSpec::parse(std::string_view text) const {
  const auto refuse = [&] { return fail(fmt::format("\"{}\" takes {}, not \"{}\".", key, accepts(), text)); };
  json value;
  switch (type) {
    case Type::boolean: {
      const std::string word = lowered(text);
      if (word == "true" || word == "on") value = true;
      else if (word == "false" || word == "off") value = false;
      else return refuse();
      break;
    }
    case Type::integer: {
      auto number = parseNumber<int64_t>(text);
      if (!number) return refuse();
      value = *number;
      break;
    }
    case Type::number: {
      // Whole numbers stay whole in the file, as a person would write them.
      if (auto whole = parseNumber<int64_t>(text)) value = *whole;
      else if (auto number = parseNumber<double>(text)) value = *number;
      else return refuse();
      break;
    }
    case Type::choice: {
      if (numericChoices(*this)) {
        auto number = parseNumber<int64_t>(text);
        if (!number) return refuse();
        value = *number;
      } else {
        value = std::string(text);
      }
      break;
    }
    case Type::json: {
      auto parsed = parseJSONText(text);
      // A key that holds text takes it as typed, without JSON's quotes.
      if (defaultValue.is_string() && (!parsed || !parsed->is_string())) {
        value = std::string(text);
      } else {
        if (!parsed) return fail(fmt::format("\"{}\" takes {}; \"{}\" {}.", key, shape, text, parsed.error().message));
        value = std::move(*parsed);
      }
      break;
    }
  }
  if (auto reason = refusal(value)) return fail(std::move(*reason));
  return value;
}

std::optional<json> SettingSpec::reading(const json& stored) const {
  switch (type) {
    case Type::integer: {
      if (!stored.is_number_integer()) return std::nullopt;
      const auto low = static_cast<int64_t>(minimum), high = static_cast<int64_t>(maximum);
      if (stored.is_number_unsigned() && stored.get<uint64_t>() > static_cast<uint64_t>(high)) return high;
      return std::clamp(stored.get<int64_t>(), low, high);
    }
    case Type::number: {
      if (!clamps || !ranged() || !stored.is_number() || !std::isfinite(stored.get<double>())) break;
      const double number = stored.get<double>();
      if (number < minimum) return wholeOrNot(minimum);
      if (number > maximum) return wholeOrNot(maximum);
      return stored;
    }
    case Type::choice: {
      if (!numericChoices(*this) || !stored.is_number()) break;
      const double wanted = stored.get<double>();
      if (!std::isfinite(wanted)) return std::nullopt;
      const json* nearest = &choices.front();
      for (const auto& choice : choices) {
        if (std::abs(wanted - choice.get<double>()) < std::abs(wanted - nearest->get<double>())) nearest = &choice;
      }
      return *nearest;
    }
    default: break;
  }
  if (refusal(stored)) return std::nullopt;
  return stored;
}

namespace SettingsKeys {

std::span<const SettingSpec> all() {
  static const std::vector<SettingSpec> table = buildTable();
  return table;
}

const SettingSpec* find(std::string_view key) {
  for (const auto& spec : all())
    if (spec.key == key) return &spec;
  return nullptr;
}

std::string unknownKeySentence(std::string_view key) {
  const std::string folded = lowered(key);
  for (const auto& spec : all()) {
    if (lowered(spec.key) == folded) return fmt::format("There is no setting \"{}\"; did you mean \"{}\"?", key, spec.key);
  }
  return fmt::format("There is no setting \"{}\".", key);
}

std::vector<AppLimit> appLimits(const Settings& settings) {
  std::vector<AppLimit> limits;
  const auto stored = settings.json(insightAppLimits);
  for (const auto& item : stored) {
    // The getter has checked every item already.
    if (auto limit = AppLimit::fromJSON(nlohmann::ordered_json(item))) limits.push_back(std::move(limit).value());
  }
  return limits;
}

std::map<std::string, std::optional<Date>> mutedApps(const Settings& settings) {
  std::map<std::string, std::optional<Date>> muted;
  const auto stored = settings.json(insightMutedApps);  // items() refers to it, so it must outlive the loop
  for (const auto& [app, until] : stored.items()) {
    muted[app] = until.is_string() ? parseISO8601(until.get<std::string>()) : std::nullopt;
  }
  return muted;
}

}  // namespace SettingsKeys
}  // namespace omnira
