#include "OmniraCore/platform/linux/ThermalZones.h"

#include <algorithm>
#include <string>

#include "OmniraCore/foundation/Parse.h"
#include "OmniraCore/platform/linux/Hwmon.h"
#include "OmniraCore/platform/linux/SensorKinds.h"
#include "OmniraCore/platform/linux/SysfsAttributes.h"

namespace omnira::platform {

std::optional<TripType> parseTripType(std::string_view text) {
  text = trim(text);
  if (text == "critical") return TripType::critical;
  if (text == "hot") return TripType::hot;
  if (text == "passive") return TripType::passive;
  if (text == "active") return TripType::active;
  return std::nullopt;
}

namespace {

struct Zone {
  DirectoryHandle dir;
  std::string type;
  SensorKind kind = SensorKind::other;
  std::optional<double> hot;
  std::optional<double> critical;
  std::string source;
};

void lowest(std::optional<double>& slot, double value) {
  if (!slot || value < *slot) slot = value;
}

std::vector<std::pair<unsigned, std::string>> zoneEntries(const std::string& classPath) {
  std::vector<std::pair<unsigned, std::string>> entries;
  for (auto& name : listDirectory(classPath))
    if (auto n = numberAfter(name, "thermal_zone")) entries.emplace_back(*n, std::move(name));
  std::sort(entries.begin(), entries.end());
  return entries;
}

}  // namespace

struct ThermalZoneReader::State {
  std::string classPath;
  bool discovered = false;
  std::vector<std::pair<unsigned, std::string>> entries;
  std::vector<Zone> zones;

  void discover(std::vector<std::pair<unsigned, std::string>> fresh);
  bool readInto(std::vector<TemperatureReading>& out) const;
};

void ThermalZoneReader::State::discover(std::vector<std::pair<unsigned, std::string>> fresh) {
  zones.clear();
  entries = std::move(fresh);
  discovered = true;
  DirectoryHandle classDir = DirectoryHandle::open(classPath);
  if (!classDir.valid()) return;
  for (const auto& [number, entry] : entries) {
    Zone zone;
    zone.dir = DirectoryHandle::openAt(classDir.fd(), entry.c_str());
    if (!zone.dir.valid()) continue;
    auto type = readAttributeLineAt(zone.dir.fd(), "type");
    if (!type || type->empty() || *type == "INT3400 Thermal") continue;
    zone.type = std::move(*type);
    zone.kind = thermalZoneKind(zone.type);
    zone.source = "class/thermal/" + entry + "/temp";
    for (const auto& name : listDirectory(zone.dir.fd())) {
      if (!name.ends_with("_type")) continue;
      auto n = numberAfter(std::string_view(name).substr(0, name.size() - 5), "trip_point_");
      if (!n) continue;
      auto typeText = readAttributeLineAt(zone.dir.fd(), name.c_str());
      auto tempText = readAttributeLineAt(zone.dir.fd(), ("trip_point_" + std::to_string(*n) + "_temp").c_str());
      if (!typeText || !tempText) continue;
      auto trip = parseTripType(*typeText);
      auto celsius = parseMillidegrees(*tempText);
      if (!trip || !celsius || !plausibleLimitCelsius(*celsius)) continue;
      if (*trip == TripType::critical) lowest(zone.critical, *celsius);
      else if (*trip == TripType::hot || *trip == TripType::passive) lowest(zone.hot, *celsius);
    }
    zones.push_back(std::move(zone));
  }
}

bool ThermalZoneReader::State::readInto(std::vector<TemperatureReading>& out) const {
  bool vanished = false;
  char buffer[64];
  for (const auto& z : zones) {
    const auto read = readAttributeAt(z.dir.fd(), "temp", buffer, sizeof buffer);
    if (read.status == AttributeRead::Status::missing) vanished = true;
    if (read.status != AttributeRead::Status::ok) continue;
    auto celsius = parseMillidegrees(read.text);
    if (!celsius || !plausibleCelsius(*celsius, z.kind)) continue;
    out.push_back({z.type, z.type, z.kind, *celsius, z.hot, z.critical, z.source});
  }
  return vanished;
}

ThermalZoneReader::ThermalZoneReader(Roots roots) : state_(std::make_unique<State>()) {
  state_->classPath = (roots.sys / "class" / "thermal").string();
}

ThermalZoneReader::~ThermalZoneReader() = default;
ThermalZoneReader::ThermalZoneReader(ThermalZoneReader&&) noexcept = default;
ThermalZoneReader& ThermalZoneReader::operator=(ThermalZoneReader&&) noexcept = default;

void ThermalZoneReader::rediscover() { state_->discovered = false; }

std::vector<TemperatureReading> ThermalZoneReader::read() {
  auto entries = zoneEntries(state_->classPath);
  if (!state_->discovered || entries != state_->entries) state_->discover(std::move(entries));
  std::vector<TemperatureReading> out;
  if (state_->readInto(out)) {
    state_->discover(zoneEntries(state_->classPath));
    out.clear();
    state_->readInto(out);
  }
  return out;
}

}  // namespace omnira::platform
