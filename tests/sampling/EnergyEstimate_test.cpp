#include "OmniraCore/sampling/EnergyEstimate.h"

#include <cmath>

#include <gtest/gtest.h>

namespace omnira {
namespace {

std::vector<ProcessSample> withCPU(std::initializer_list<double> percents) {
  std::vector<ProcessSample> samples;
  int32_t pid = 1;
  for (double percent : percents) {
    ProcessSample s;
    s.pid = pid++;
    s.cpuPercent = percent;
    samples.push_back(s);
  }
  return samples;
}

TEST(EnergyEstimate, SharesMeasuredPowerByCPUOrLeavesSamplesAlone) {
  auto shared = EnergyEstimate::sharing(6.0, 2.0, withCPU({150, 50, 0}));
  EXPECT_DOUBLE_EQ(shared[0].powerWatts, 4.5);
  EXPECT_DOUBLE_EQ(shared[0].energyJoules, 9.0);
  EXPECT_EQ(shared[2].powerWatts, 0);
  EXPECT_EQ(shared[2].energyJoules, 0);

  // Without power, time or CPU the samples are left alone.
  auto measured = withCPU({10, 20});
  measured[0].powerWatts = 0.25;  // a figure from elsewhere must survive
  for (auto [watts, interval, samples] : {std::tuple{0.0, 2.0, measured},
                                          std::tuple{-1.0, 2.0, measured},
                                          std::tuple{5.0, 0.0, measured},
                                          std::tuple{std::nan(""), 2.0, measured},
                                          std::tuple{5.0, 2.0, withCPU({0, 0})},
                                          std::tuple{5.0, 2.0, std::vector<ProcessSample>{}}}) {
    auto out = EnergyEstimate::sharing(watts, interval, samples);
    ASSERT_EQ(out.size(), samples.size());
    for (size_t i = 0; i < out.size(); ++i) {
      EXPECT_EQ(out[i].powerWatts, samples[i].powerWatts);
      EXPECT_EQ(out[i].energyJoules, samples[i].energyJoules);
    }
  }
}

}  // namespace
}  // namespace omnira
