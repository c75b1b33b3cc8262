#pragma once
// The one compact line `omnira run` prints per tick on a terminal:
//   "14:02:05  CPU 12%  Memory 5.2/23.5 GB  Pressure normal  Top Firefox 8.3%"
// with the parts under strain at the end: "  Strain: memory since 14:02".
// Pure: formats what the store published.

#include <optional>
#include <string>
#include <vector>

#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/history/WorthALook.h"
#include "OmniraCore/sampling/AppGroup.h"
#include "OmniraCore/sampling/SystemSample.h"

namespace omnira {

struct TickLine {
  // The busiest app by CPU, or nothing before the first process sample.
  static std::optional<AppGroup> topApp(const std::vector<AppGroup>& groups);
  static std::string format(const SystemSample& system, const std::vector<AppGroup>& groups,
                            const StrainSince& strain, Date at);
};

}  // namespace omnira
