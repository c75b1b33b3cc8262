#include "OmniraCore/sensors/TemperatureSummary.h"

#include <array>
#include <functional>
#include <set>
#include <string_view>

namespace omnira {

std::vector<TemperatureReading> temperatures(const std::vector<TemperatureReading>& hwmon,
                                             const std::vector<TemperatureReading>& zones) {
  std::set<SensorKind> covered;
  for (const auto& r : hwmon) covered.insert(r.kind);
  std::vector<TemperatureReading> all = hwmon;
  for (const auto& z : zones)
    if (!covered.contains(z.kind)) all.push_back(z);
  return all;
}

namespace {

using Match = std::function<bool(const TemperatureReading&)>;

bool chipLabel(const TemperatureReading& r, std::string_view chip, std::string_view label) {
  return r.chip == chip && r.name == label;
}

const TemperatureReading* hottestWhere(const std::vector<TemperatureReading>& readings, const Match& match) {
  const TemperatureReading* best = nullptr;
  for (const auto& r : readings)
    if (match(r) && (!best || r.celsius > best->celsius)) best = &r;
  return best;
}

}  // namespace

const TemperatureReading* cpuReading(const std::vector<TemperatureReading>& readings) {
  static const std::array<Match, 8> tiers{
      [](const TemperatureReading& r) { return r.chip == "coretemp" && r.name.starts_with("Package id "); },
      [](const TemperatureReading& r) { return chipLabel(r, "k10temp", "Tdie") || chipLabel(r, "zenpower", "Tdie"); },
      [](const TemperatureReading& r) { return chipLabel(r, "k10temp", "Tctl") || chipLabel(r, "zenpower", "Tctl"); },
      [](const TemperatureReading& r) { return chipLabel(r, "applesmc", "TCXC"); },
      [](const TemperatureReading& r) { return chipLabel(r, "applesmc", "TC0D"); },
      [](const TemperatureReading& r) { return chipLabel(r, "applesmc", "TC0P"); },
      [](const TemperatureReading& r) { return r.chip == "x86_pkg_temp"; },
      [](const TemperatureReading& r) { return r.kind == SensorKind::cpu; },
  };
  for (const auto& tier : tiers)
    if (const auto* r = hottestWhere(readings, tier)) return r;
  return nullptr;
}

std::optional<double> cpuCelsius(const std::vector<TemperatureReading>& readings) {
  if (const auto* r = cpuReading(readings)) return r->celsius;
  return std::nullopt;
}

const TemperatureReading* hottestReading(const std::vector<TemperatureReading>& readings) {
  return hottestWhere(readings, [](const TemperatureReading&) { return true; });
}

std::optional<double> hottestCelsius(const std::vector<TemperatureReading>& readings) {
  if (const auto* r = hottestReading(readings)) return r->celsius;
  return std::nullopt;
}

}  // namespace omnira
