#include "OmniraCore/foundation/Settings.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <cassert>
#include <cmath>

#include "OmniraCore/foundation/AtomicFile.h"
#include "OmniraCore/foundation/JSONText.h"
#include "OmniraCore/foundation/Parse.h"

namespace omnira {

Result<Settings, Settings::Failure> Settings::read(const std::filesystem::path& file) {
  // A settings file kept elsewhere may be linked here; FIFOs, devices and huge files are refused.
  auto text = AtomicFile::read(file, AtomicFile::settingsLimit, AtomicFile::Links::follow);
  if (!text) {
    if (text.error().missing) return Settings();
    return fail(Failure{fmt::format("The settings file could not be read: {}.", text.error().message)});
  }
  // `touch settings.json` makes a file without settings, not a broken one.
  if (trim(*text).empty()) return Settings();
  auto json = parseJSONText(*text);
  if (!json) return fail(Failure{fmt::format("The settings file {} {}.", file.string(), json.error().message)});
  if (!json->is_object())
    return fail(Failure{fmt::format("The settings file {} does not hold a JSON object.", file.string())});
  return Settings(std::move(*json));
}

Settings Settings::load(const std::filesystem::path& file) {
  auto settings = read(file);
  if (!settings) {
    spdlog::warn("{} Using the default settings; the file is left as it is.", settings.error().message);
    return Settings();
  }
  for (const auto& unused : settings->unusedValues()) spdlog::warn("The settings file {}: {}.", file.string(), unused);
  return std::move(settings).value();
}

std::vector<std::string> Settings::unusedValues() const {
  std::vector<std::string> unused;
  for (const auto& spec : SettingsKeys::all()) {
    const auto* value = stored(spec.key);
    if (!value || spec.reading(*value)) continue;
    unused.push_back(fmt::format("\"{}\" is {}, but it takes {}; the default {} is used", spec.key, jsonText(*value),
                                 spec.accepts(), jsonText(spec.defaultValue)));
  }
  return unused;
}

namespace {

// The table's own row for a key constant; a constant without a row is a programming error
// that the table's tests catch.
template <class T>
nlohmann::json tableValue(const Settings& settings, SettingKey<T> key, bool (nlohmann::json::*holds)() const noexcept) {
  auto value = settings.value(key.name);
  assert((value.*holds)() && "a key constant without its row in the settings table");
  (void)holds;  // only the assertion reads it
  return value;
}

}  // namespace

nlohmann::json Settings::value(std::string_view key) const {
  const SettingSpec* spec = SettingsKeys::find(key);
  if (!spec) return nullptr;
  if (const auto* value = stored(key)) {
    if (auto reading = spec->reading(*value)) return *std::move(reading);
  }
  return spec->defaultValue;
}

const nlohmann::json* Settings::stored(std::string_view key) const {
  auto it = values_.find(std::string(key));
  return it == values_.end() ? nullptr : &*it;
}

bool Settings::boolean(SettingKey<bool> key) const {
  auto value = tableValue(*this, key, &nlohmann::json::is_boolean);
  return value.is_boolean() && value.get<bool>();
}

int64_t Settings::integer(SettingKey<int64_t> key) const {
  auto value = tableValue(*this, key, &nlohmann::json::is_number_integer);
  return value.is_number_integer() ? value.get<int64_t>() : 0;
}

double Settings::number(SettingKey<double> key) const {
  auto value = tableValue(*this, key, &nlohmann::json::is_number);
  return value.is_number() ? value.get<double>() : 0;
}

std::string Settings::string(SettingKey<std::string> key) const {
  auto value = tableValue(*this, key, &nlohmann::json::is_string);
  return value.is_string() ? value.get<std::string>() : std::string();
}

nlohmann::json Settings::json(SettingKey<nlohmann::json> key) const {
  return tableValue(*this, key, &nlohmann::json::is_structured);
}

bool Settings::boolean(const std::string& key, bool fallback) const {
  auto it = values_.find(key);
  return it != values_.end() && it->is_boolean() ? it->get<bool>() : fallback;
}

double Settings::number(const std::string& key, double fallback) const {
  auto it = values_.find(key);
  if (it == values_.end() || !it->is_number()) return fallback;
  const double value = it->get<double>();
  return std::isfinite(value) ? value : fallback;
}

int64_t Settings::integer(const std::string& key, int64_t fallback) const {
  auto it = values_.find(key);
  if (it == values_.end()) return fallback;
  // is_number_integer() holds for unsigned values too, so unsigned goes first.
  if (it->is_number_unsigned()) {
    const auto value = it->get<uint64_t>();
    return value > static_cast<uint64_t>(INT64_MAX) ? fallback : static_cast<int64_t>(value);
  }
  if (it->is_number_integer()) return it->get<int64_t>();
  return fallback;
}

std::string Settings::string(const std::string& key, const std::string& fallback) const {
  auto it = values_.find(key);
  return it != values_.end() && it->is_string() ? it->get<std::string>() : fallback;
}

}  // namespace omnira
