#include "OmniraCore/foundation/Settings.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <cmath>
#include <fstream>
#include <sstream>

namespace omnira {

Result<Settings, Settings::Failure> Settings::read(const std::filesystem::path& file) {
  std::error_code ec;
  if (!std::filesystem::exists(file, ec)) return Settings();
  std::ifstream in(file, std::ios::binary);
  if (!in) return fail(Failure{fmt::format("Cannot read the settings file {}.", file.string())});
  std::stringstream text;
  text << in.rdbuf();
  auto json = nlohmann::json::parse(text.str(), nullptr, /*allow_exceptions=*/false);
  if (json.is_discarded())
    return fail(Failure{fmt::format("The settings file {} is not valid JSON.", file.string())});
  if (!json.is_object())
    return fail(Failure{fmt::format("The settings file {} does not hold a JSON object.", file.string())});
  return Settings(std::move(json));
}

Settings Settings::load(const std::filesystem::path& file) {
  auto settings = read(file);
  if (!settings) {
    spdlog::warn("{} Using the default settings; the file is left as it is.", settings.error().message);
    return Settings();
  }
  return std::move(settings).value();
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
