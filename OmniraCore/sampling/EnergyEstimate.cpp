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

}  // namespace omnira
