#include "OmniraCore/sampling/EnergyEstimate.h"

namespace omnira {

std::vector<ProcessSample> EnergyEstimate::sharing(double cpuWatts, double over, std::vector<ProcessSample> among) {
  double total = 0;
  for (const auto& sample : among) {
    if (sample.cpuPercent > 0) total += sample.cpuPercent;
  }
  // Written so that NaN in any input fails the test and leaves the samples alone.
  if (!(cpuWatts > 0) || !(over > 0) || !(total > 0)) return among;
  for (auto& sample : among) {
    if (!(sample.cpuPercent > 0)) continue;
    sample.powerWatts = cpuWatts * (sample.cpuPercent / total);
    sample.energyJoules = over * sample.powerWatts;
  }
  return among;
}

std::vector<ProcessSample> EnergyEstimate::fromCPUTime(std::vector<ProcessSample> samples) {
  for (auto& sample : samples) {
    if (sample.delta.cpuNanoseconds == 0) continue;
    sample.energyJoules = static_cast<double>(sample.delta.cpuNanoseconds) / 1e9 * wattsPerBusyCore;
    sample.powerWatts = sample.cpuPercent / 100 * wattsPerBusyCore;
  }
  return samples;
}

}  // namespace omnira
