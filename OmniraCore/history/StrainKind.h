#pragma once
// The parts of the machine that can be under strain. Raw values are the persisted and wire forms.

#include <array>
#include <optional>
#include <string_view>

namespace omnira {

enum class StrainKind { cpu, memory, gpu, neuralEngine, temperature, disk, battery };

inline constexpr std::array<StrainKind, 7> allStrainKinds = {
    StrainKind::cpu,         StrainKind::memory, StrainKind::gpu,    StrainKind::neuralEngine,
    StrainKind::temperature, StrainKind::disk,   StrainKind::battery};

inline std::string_view rawValue(StrainKind kind) {
  switch (kind) {
    case StrainKind::cpu: return "cpu";
    case StrainKind::memory: return "memory";
    case StrainKind::gpu: return "gpu";
    case StrainKind::neuralEngine: return "neuralEngine";
    case StrainKind::temperature: return "temperature";
    case StrainKind::disk: return "disk";
    case StrainKind::battery: return "battery";
  }
  return "cpu";
}

inline std::optional<StrainKind> strainKindFromRaw(std::string_view raw) {
  for (StrainKind kind : allStrainKinds)
    if (rawValue(kind) == raw) return kind;
  return std::nullopt;
}

}  // namespace omnira
