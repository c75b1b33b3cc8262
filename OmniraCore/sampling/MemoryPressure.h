#pragma once
// The kernel's memory pressure level; raw values are the persisted form.

#include <optional>
#include <string_view>

namespace omnira {

enum class MemoryPressure : int { normal = 1, warning = 2, critical = 4 };

inline std::optional<MemoryPressure> memoryPressureFromRaw(int raw) {
  switch (raw) {
    case 1: return MemoryPressure::normal;
    case 2: return MemoryPressure::warning;
    case 4: return MemoryPressure::critical;
    default: return std::nullopt;
  }
}

// The level as people and the history read it: "normal", "warning", "critical".
inline std::string_view memoryPressureName(MemoryPressure pressure) {
  switch (pressure) {
    case MemoryPressure::normal: return "normal";
    case MemoryPressure::warning: return "warning";
    case MemoryPressure::critical: return "critical";
  }
  return "normal";
}

// The available-memory level (percent of memory still available) as a pressure fraction.
inline double memoryPressureFraction(double availableLevel) {
  const double fraction = (100.0 - availableLevel) / 100.0;
  if (!(fraction > 0.0)) return 0.0;  // also catches NaN
  return fraction > 1.0 ? 1.0 : fraction;
}

}  // namespace omnira
