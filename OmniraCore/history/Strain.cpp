#include "OmniraCore/history/Strain.h"

#include <algorithm>

namespace omnira {

std::set<StrainKind> Strain::kinds(const SystemSample& system, std::optional<double> celsius, double hotCelsius,
                                   std::optional<double> neuralEngineShare) {
  std::set<StrainKind> kinds;
  // A sum of two shares lands a rounding step off (0.6 + 0.3 < 0.9 in binary); the limit is inclusive.
  constexpr double roundingSlack = 1e-9;
  if (system.cpuUser + system.cpuSystem >= loadLimit - roundingSlack) kinds.insert(StrainKind::cpu);
  if (system.pressure != MemoryPressure::normal) kinds.insert(StrainKind::memory);
  if (system.gpuUtilization && *system.gpuUtilization >= loadLimit) kinds.insert(StrainKind::gpu);
  if (neuralEngineShare && *neuralEngineShare >= loadLimit) kinds.insert(StrainKind::neuralEngine);
  if (celsius && hotCelsius > 0 && *celsius >= hotCelsius) kinds.insert(StrainKind::temperature);
  if (system.diskTotal != 0) {
    // More available than total (seen on some file systems) counts as empty, not as a wrap-around.
    const uint64_t used = system.diskTotal - std::min(system.diskAvailable, system.diskTotal);
    if (static_cast<double>(used) / static_cast<double>(system.diskTotal) >= diskLimit)
      kinds.insert(StrainKind::disk);
  }
  if (system.battery && system.battery->level <= batteryLimit && !system.battery->charging)
    kinds.insert(StrainKind::battery);
  return kinds;
}

}  // namespace omnira
