#pragma once
// Which parts of the machine are at or near their limit in one reading. Pure; no state.

#include <optional>
#include <set>

#include "OmniraCore/history/StrainKind.h"
#include "OmniraCore/sampling/SystemSample.h"

namespace omnira {

struct Strain {
  static constexpr double loadLimit = 0.9;     // busy share of CPU, GPU and Neural Engine
  static constexpr double diskLimit = 0.9;     // used share of the start-up volume
  static constexpr double batteryLimit = 0.2;  // level at or below which a discharging battery strains

  // `celsius` is the sensor the person chose to show; a `hotCelsius` of 0 or less turns the
  // temperature test off. The sample carries no Neural Engine busy share, so the sensors' reading
  // comes separately; absent, the Neural Engine is never strained.
  static std::set<StrainKind> kinds(const SystemSample& system, std::optional<double> celsius, double hotCelsius,
                                    std::optional<double> neuralEngineShare = std::nullopt);
};

}  // namespace omnira
