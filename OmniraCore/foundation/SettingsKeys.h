#pragma once
// Every setting Omnira reads, in one table: key, type, default, what it accepts and a line
// for people. Settings' typed getters take their defaults from here, `omnira settings`
// lists and checks against it, and SettingsFile refuses what it does not allow.
// The table is built once and never changes; read it from any thread.

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/foundation/Result.h"

namespace omnira {

class Settings;
struct AppLimit;

// A key that reads as T: bool, int64_t, double, std::string or nlohmann::json. Settings'
// getters take it, so asking for a key as the wrong type does not compile.
template <class T>
struct SettingKey {
  std::string_view name;
};

struct SettingSpec {
  enum class Type { boolean, integer, number, choice, json };
  // Why a JSON value is not allowed, as a phrase ("item 2: \"figure\" is not memory or cpu").
  using Check = std::optional<std::string> (*)(const nlohmann::json& value);

  std::string_view key;
  Type type = Type::boolean;
  nlohmann::json defaultValue;
  double minimum = 0, maximum = 0;      // integer, and number when maximum is set: the inclusive range
  // A stored number outside the range reads as the nearest end of it; otherwise it reads as
  // the default.
  bool clamps = false;
  std::vector<nlohmann::json> choices;  // choice: all texts or all whole numbers, in the order shown
  Check check = nullptr;                // json
  std::string_view shape;               // json: what the value is, for people
  std::string_view description;

  bool ranged() const { return maximum > minimum; }

  // What the key takes, for people: "a whole number from 1 to 10", "5, 15 or 30".
  std::string accepts() const;

  // A value that a person typed, checked strictly; the failure is a sentence naming the key.
  Result<nlohmann::json, std::string> parse(std::string_view text) const;
  // The same check for a value that is already JSON.
  std::optional<std::string> refusal(const nlohmann::json& value) const;

  // How a stored value reads, leniently, since people edit the file by hand: an integer, or a
  // number that `clamps`, is clamped into its range, a number becomes the nearest numeric
  // choice; anything else that the key does not allow reads as nothing, and the caller uses
  // the default.
  std::optional<nlohmann::json> reading(const nlohmann::json& stored) const;
};

namespace SettingsKeys {

inline constexpr SettingKey<double> refreshSeconds{"refreshSeconds"};
inline constexpr SettingKey<bool> showsSystemInLists{"showsSystemInLists"};
inline constexpr SettingKey<int64_t> historySpan{"historySpan"};  // minutes
inline constexpr SettingKey<int64_t> historyDays{"historyDays"};
inline constexpr SettingKey<std::string> temperatureUnit{"temperatureUnit"};  // "celsius" or "fahrenheit"

inline constexpr SettingKey<bool> insightNotifications{"insightNotifications"};
inline constexpr SettingKey<double> insightCPUPercent{"insightCPUPercent"};
inline constexpr SettingKey<double> insightCPUMinutes{"insightCPUMinutes"};
inline constexpr SettingKey<double> insightMemoryGrowthGB{"insightMemoryGrowthGB"};
inline constexpr SettingKey<double> insightDiskBurstGB{"insightDiskBurstGB"};
inline constexpr SettingKey<double> insightNetworkBurstGB{"insightNetworkBurstGB"};
inline constexpr SettingKey<double> insightHotCelsius{"insightHotCelsius"};
inline constexpr SettingKey<double> insightHotMinutes{"insightHotMinutes"};
inline constexpr SettingKey<nlohmann::json> insightAppLimits{"insightAppLimits"};
inline constexpr SettingKey<nlohmann::json> insightMutedApps{"insightMutedApps"};

inline constexpr SettingKey<bool> usageLimitsEnabled{"usageLimitsEnabled"};
inline constexpr SettingKey<bool> usageLimitsClaude{"usageLimitsClaude"};
inline constexpr SettingKey<bool> usageLimitsCodex{"usageLimitsCodex"};
inline constexpr SettingKey<bool> usageLimitsCopilot{"usageLimitsCopilot"};
inline constexpr SettingKey<bool> usageLimitsCursor{"usageLimitsCursor"};
inline constexpr SettingKey<bool> usageLimitsGrok{"usageLimitsGrok"};
inline constexpr SettingKey<bool> usageLimitsOllama{"usageLimitsOllama"};
inline constexpr SettingKey<bool> usageLimitsAntigravity{"usageLimitsAntigravity"};
inline constexpr SettingKey<bool> usageLimitsOpenCode{"usageLimitsOpenCode"};
inline constexpr SettingKey<bool> usageLimitsClaudeApp{"usageLimitsClaudeApp"};

inline constexpr SettingKey<bool> bridgeEnabled{"bridgeEnabled"};
inline constexpr SettingKey<bool> bridgeSharesSystem{"bridgeSharesSystem"};
inline constexpr SettingKey<bool> bridgeSharesApps{"bridgeSharesApps"};
inline constexpr SettingKey<bool> bridgeSharesProjects{"bridgeSharesProjects"};
inline constexpr SettingKey<bool> bridgeSharesHistory{"bridgeSharesHistory"};
inline constexpr SettingKey<bool> bridgeFolderNamesOnly{"bridgeFolderNamesOnly"};
inline constexpr SettingKey<bool> bridgeActionsEnabled{"bridgeActionsEnabled"};
inline constexpr SettingKey<nlohmann::json> bridgeAllowedProjects{"bridgeAllowedProjects"};

// The whole table, in the order `omnira settings list` shows it.
std::span<const SettingSpec> all();
// The row of a key; nothing for a key Omnira does not read.
const SettingSpec* find(std::string_view key);
// A sentence for a key that is no setting, with the likely one when only the case differs.
std::string unknownKeySentence(std::string_view key);

// The decoded JSON settings, as the insight engine takes them.
std::vector<AppLimit> appLimits(const Settings& settings);
std::map<std::string, std::optional<Date>> mutedApps(const Settings& settings);

}  // namespace SettingsKeys
}  // namespace omnira
