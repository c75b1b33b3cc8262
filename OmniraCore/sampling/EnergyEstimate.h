#pragma once
// Power per process where the kernel counts none: a measured processor power shared out
// by each process's part of the CPU time, or, with no measured power either, an
// estimate from CPU time alone. Pure functions over plain values.

#include <vector>

#include "OmniraCore/sampling/ProcessSample.h"

namespace omnira {

struct EnergyEstimate {
  // When cpuWatts, the interval (seconds) and the summed cpuPercent are all above 0,
  // each process with CPU above 0 gets powerWatts = cpuWatts × its share and
  // energyJoules = interval × powerWatts. Otherwise the samples come back unchanged.
  static std::vector<ProcessSample> sharing(double cpuWatts, double over, std::vector<ProcessSample> among);

  // An estimate, not a measurement: what one core draws while fully busy. Processors'
  // rated power (TDP) over their cores gives it: 15 to 28 W over 4 to 8 cores for a
  // laptop, 65 W over 6 to 8 for a desktop, so 3 to 10 W; idle and uncore power are
  // left out. Good enough to rank apps by energy; not to read a battery's life from.
  static constexpr double wattsPerBusyCore = 5.0;

  // Each process with CPU time in its delta gets energyJoules = its CPU seconds ×
  // wattsPerBusyCore and powerWatts = cpuPercent / 100 × wattsPerBusyCore; a process
  // without (seen for the first time, or idle) keeps what it has.
  static std::vector<ProcessSample> fromCPUTime(std::vector<ProcessSample> samples);
};

}  // namespace omnira
