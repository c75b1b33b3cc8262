#pragma once
// The person's settings: one JSON object in AppPaths::settingsFile().
// Reading never fails: a missing file or key gives the default, and a malformed file (or
// one nested deeper than kJSONDepthLimit) is logged and read as all defaults; an empty file
// counts as one without settings. A value a key does not take reads as that key's default,
// the others as they stand, and load() logs one sentence for each such value. The file
// is never rewritten here (SettingsFile changes it, and only a well-formed one), so a file
// the person broke by hand is left for them to mend.
// A plain value: load on one thread, then read or copy it anywhere.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/foundation/SettingsKeys.h"

namespace omnira {

class Settings {
 public:
  struct Failure {
    std::string message;  // a sentence naming the file and what is wrong with it
  };

  Settings() : values_(nlohmann::json::object()) {}

  // Strict read: the caller learns why a file could not be used.
  static Result<Settings, Failure> read(const std::filesystem::path& file);
  // Lenient read used at start: any failure is logged and gives defaults.
  static Settings load(const std::filesystem::path& file);

  // A phrase for each key of the table whose stored value is not used, with what the key
  // takes: "\"insightCPUMinutes\" is 1e+308, but it takes a number from 0.01 to 60; the default 10 is used".
  std::vector<std::string> unusedValues() const;

  // Keys of the settings table: the stored value as the key reads it (SettingSpec::reading),
  // else the table's default. Asking for a key as the wrong type does not compile.
  bool boolean(SettingKey<bool> key) const;
  int64_t integer(SettingKey<int64_t> key) const;
  double number(SettingKey<double> key) const;
  std::string string(SettingKey<std::string> key) const;
  nlohmann::json json(SettingKey<nlohmann::json> key) const;
  // Any key of the table, the same way; null for a key that is not in it.
  nlohmann::json value(std::string_view key) const;
  // What the file holds for a key, as it stands; nullptr when the key is absent.
  const nlohmann::json* stored(std::string_view key) const;

  // Raw reads with the caller's fallback, for callers that read a key their own way.
  bool boolean(const std::string& key, bool fallback) const;
  double number(const std::string& key, double fallback) const;
  int64_t integer(const std::string& key, int64_t fallback) const;
  std::string string(const std::string& key, const std::string& fallback) const;
  bool contains(const std::string& key) const { return values_.contains(key); }

  // Same file contents, unknown keys included.
  friend bool operator==(const Settings&, const Settings&) = default;

 private:
  explicit Settings(nlohmann::json values) : values_(std::move(values)) {}
  nlohmann::json values_;
};

}  // namespace omnira
