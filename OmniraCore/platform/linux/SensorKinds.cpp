#include "OmniraCore/platform/linux/SensorKinds.h"

#include <array>
#include <optional>
#include <string>
#include <utility>

#include "OmniraCore/foundation/Parse.h"

namespace omnira::platform {

namespace {

using Entry = std::pair<std::string_view, SensorKind>;

constexpr std::array chipNames{
    Entry{"coretemp", SensorKind::cpu},     Entry{"k10temp", SensorKind::cpu},
    Entry{"k8temp", SensorKind::cpu},       Entry{"zenpower", SensorKind::cpu},
    Entry{"x86_pkg_temp", SensorKind::cpu}, Entry{"cpu_thermal", SensorKind::cpu},
    Entry{"soc_thermal", SensorKind::cpu},  Entry{"via_cputemp", SensorKind::cpu},
    Entry{"nvme", SensorKind::storage},     Entry{"drivetemp", SensorKind::storage},
    Entry{"amdgpu", SensorKind::gpu},       Entry{"nouveau", SensorKind::gpu},
    Entry{"radeon", SensorKind::gpu},       Entry{"i915", SensorKind::gpu},
    Entry{"xe", SensorKind::gpu},           Entry{"gpu_thermal", SensorKind::gpu},
    Entry{"spd5118", SensorKind::memory},   Entry{"jc42", SensorKind::memory},
    Entry{"acpitz", SensorKind::board},
};

// Prefixes of names that carry an instance or model number.
constexpr std::array chipPrefixes{
    Entry{"pch_", SensorKind::board},   Entry{"BAT", SensorKind::battery}, Entry{"iwlwifi", SensorKind::other},
    Entry{"nct", SensorKind::board},    Entry{"it8", SensorKind::board},   Entry{"w83", SensorKind::board},
    Entry{"f71", SensorKind::board},
};

// Embedded controllers whose labels say what each sensor sits on.
constexpr std::array<std::string_view, 3> labelledChips{"thinkpad", "dell_smm", "macsmc_hwmon"};

constexpr std::array zoneTypes{
    Entry{"x86_pkg_temp", SensorKind::cpu}, Entry{"cpu-thermal", SensorKind::cpu},
    Entry{"cpu_thermal", SensorKind::cpu},  Entry{"soc_thermal", SensorKind::cpu},
    Entry{"soc-thermal", SensorKind::cpu},  Entry{"B0D4", SensorKind::cpu},
    Entry{"TCPU", SensorKind::cpu},         Entry{"TCPU_PCI", SensorKind::cpu},
    Entry{"acpitz", SensorKind::board},     Entry{"INT3400 Thermal", SensorKind::other},
};

constexpr std::array zonePrefixes{
    Entry{"pch_", SensorKind::board}, Entry{"iwlwifi", SensorKind::other}, Entry{"SEN", SensorKind::board},
    Entry{"BAT", SensorKind::battery},
};

template <size_t N>
std::optional<SensorKind> exact(const std::array<Entry, N>& table, std::string_view name) {
  for (const auto& [key, kind] : table)
    if (name == key) return kind;
  return std::nullopt;
}

template <size_t N>
std::optional<SensorKind> prefix(const std::array<Entry, N>& table, std::string_view name) {
  for (const auto& [key, kind] : table)
    if (name.starts_with(key)) return kind;
  return std::nullopt;
}

// Words in a free-text label or zone type; checked in this order so "GPU core" is a gpu.
std::optional<SensorKind> fromWords(std::string_view text) {
  const std::string low = lowered(text);
  auto has = [&](std::string_view word) { return low.find(word) != std::string::npos; };
  if (has("gpu")) return SensorKind::gpu;
  if (has("cpu") || has("core") || has("package") || has("soc")) return SensorKind::cpu;
  if (has("dimm") || has("memory") || has("ddr")) return SensorKind::memory;
  if (has("ssd") || has("nvme") || has("disk")) return SensorKind::storage;
  if (has("bat")) return SensorKind::battery;
  if (has("ambient")) return SensorKind::ambient;
  return std::nullopt;
}

SensorKind smcKey(std::string_view key) {
  if (key.size() < 2 || key[0] != 'T') return SensorKind::board;
  switch (key[1]) {
    case 'C': return SensorKind::cpu;
    case 'G': return SensorKind::gpu;
    case 'M': return SensorKind::memory;
    case 'H': return SensorKind::storage;
    case 'B': return SensorKind::battery;
    case 'A': return SensorKind::ambient;
    default: return SensorKind::board;
  }
}

}  // namespace

SensorKind sensorKind(std::string_view chip, std::string_view label) {
  if (chip == "applesmc") return smcKey(label);
  for (auto name : labelledChips)
    if (chip == name) return fromWords(label).value_or(SensorKind::board);
  if (auto kind = exact(chipNames, chip)) return *kind;
  if (auto kind = prefix(chipPrefixes, chip)) return *kind;
  return SensorKind::other;
}

SensorKind thermalZoneKind(std::string_view type) {
  if (auto kind = exact(zoneTypes, type)) return *kind;
  if (auto kind = prefix(zonePrefixes, type)) return *kind;
  return fromWords(type).value_or(SensorKind::other);
}

PowerReading::Kind hwmonPowerKind(std::string_view chip, std::string_view label) {
  if (chip == "amdgpu" || chip == "nouveau" || chip == "radeon" || chip == "i915" || chip == "xe")
    return PowerReading::Kind::gpu;
  if (lowered(label).find("system") != std::string::npos) return PowerReading::Kind::system;
  return PowerReading::Kind::other;
}

}  // namespace omnira::platform
