// CPU thermal throttle counters: the files, the reader and the step between two readings.

#include <gtest/gtest.h>

#include <filesystem>

#include "OmniraCore/platform/linux/ThrottleCounters.h"
#include "tests/platform/linux/TempTree.h"

namespace omnira::platform {
namespace {

TEST(ThrottleCounters, ParsesCounterFiles) {
  EXPECT_EQ(parseThrottleCounter("17\n"), 17u);
  EXPECT_EQ(parseThrottleCounter("18446744073709551615\n"), UINT64_MAX);
  for (const char* bad : {"", "\n", "-3\n", "x\n", "12 13\n", "18446744073709551616\n"})
    EXPECT_EQ(parseThrottleCounter(bad), std::nullopt) << bad;
}

TEST(ThrottleCounters, ReadsEachCPUOfTheThinkPad) {
  const auto counters = ThrottleCounterReader(fixtureRoots("sys-thinkpad")).read();
  EXPECT_EQ(counters, (std::vector<CPUThrottleCounters>{
                          {0, 3, 5, 120, 410},
                          {1, 0, 5, 0, 410},
                          {2, 12, 5, 2350, 410},
                          {3, 0, 5, 0, 410},
                      }));
  for (const char* tree : {"sys-ryzen", "sys-empty", "sys-intel-mac"})
    EXPECT_TRUE(ThrottleCounterReader(fixtureRoots(tree)).read().empty()) << tree;
}

TEST(ThrottleCounters, StepCountsThrottledCPUsAndTheLargestShareOfTheInterval) {
  const std::vector<CPUThrottleCounters> before{{0, 3, 5, 120, 410}, {1, 0, 5, 0, 410}, {2, 12, 5, 2350, 410}};
  // cpu0: 500 ms more core time; cpu1 nothing; cpu2 counters reset (offline and back).
  const std::vector<CPUThrottleCounters> after{{0, 4, 5, 620, 410}, {1, 0, 5, 0, 410}, {2, 1, 0, 30, 0}};
  EXPECT_EQ(throttleStep(before, after, 2.0), (ThrottleStep{1, 0.25}));

  // The package time counts for every CPU of the package; shares are capped at the whole interval.
  const std::vector<CPUThrottleCounters> hot{{0, 3, 6, 120, 4410}, {1, 0, 6, 0, 4410}, {2, 12, 6, 2350, 4410}};
  EXPECT_EQ(throttleStep(before, hot, 2.0), (ThrottleStep{3, 1.0}));

  // Counts without time files: CPUs counted, share absent. A CPU only in one reading adds nothing.
  const std::vector<CPUThrottleCounters> countsBefore{{0, 1, std::nullopt, std::nullopt, std::nullopt}};
  const std::vector<CPUThrottleCounters> countsAfter{{0, 2, std::nullopt, std::nullopt, std::nullopt},
                                                     {5, 9, std::nullopt, std::nullopt, std::nullopt}};
  EXPECT_EQ(throttleStep(countsBefore, countsAfter, 2.0), (ThrottleStep{1, std::nullopt}));

  EXPECT_EQ(throttleStep(before, before, 2.0), (ThrottleStep{0, 0.0}));
  EXPECT_EQ(throttleStep(before, after, 0.0), (ThrottleStep{1, std::nullopt}));
}

TEST(ThrottleTree, RereadsCountersAndNoticesCPUsGoingAway) {
  TempTree tree("sys-thinkpad");
  ThrottleCounterReader reader(tree.sys());
  const auto first = reader.read();
  ASSERT_EQ(first.size(), 4u);

  tree.write("devices/system/cpu/cpu1/thermal_throttle/core_throttle_count", "2\n");
  tree.write("devices/system/cpu/cpu1/thermal_throttle/core_throttle_total_time_ms", "900\n");
  tree.write("devices/system/cpu/cpu3/thermal_throttle/package_throttle_count", "garbled\n");
  auto second = reader.read();
  EXPECT_EQ(second[1], (CPUThrottleCounters{1, 2, 5, 900, 410}));
  EXPECT_EQ(second[3].packageCount, std::nullopt);
  EXPECT_EQ(throttleStep(first, second, 3.0), (ThrottleStep{1, 0.3}));

  std::filesystem::remove_all(tree.root() / "devices/system/cpu/cpu2/thermal_throttle");
  second = reader.read();
  ASSERT_EQ(second.size(), 3u);
  EXPECT_EQ(second[2].cpu, 3u);
}

}  // namespace
}  // namespace omnira::platform
