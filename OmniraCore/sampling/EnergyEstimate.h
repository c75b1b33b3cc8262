#pragma once
// Power per process where the kernel counts none: a measured processor power shared out
// by each process's part of the CPU time. A pure function over plain values.

#include <vector>

#include "OmniraCore/sampling/ProcessSample.h"

namespace omnira {

struct EnergyEstimate {
  // When cpuWatts, the interval (seconds) and the summed cpuPercent are all above 0,
  // each process with CPU above 0 gets powerWatts = cpuWatts × its share and
  // energyJoules = interval × powerWatts. Otherwise the samples come back unchanged.
  static std::vector<ProcessSample> sharing(double cpuWatts, double over, std::vector<ProcessSample> among);
};

}  // namespace omnira
