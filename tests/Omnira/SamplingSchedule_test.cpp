#include "Omnira/SamplingSchedule.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace omnira {
namespace {

using Kind = SamplingLoop::Step::Kind;
using namespace std::chrono_literals;

TEST(SamplingSchedule, IntervalFollowsViewersPowerAndTheClampedSetting) {
  // Someone watching: "refreshSeconds" clamped 1...10; unset and 0 read as 1.
  EXPECT_EQ(SamplingSchedule::interval(1, std::nullopt, false), (SamplingSchedule::Interval{1, 0.1}));
  EXPECT_EQ(SamplingSchedule::interval(2, 25.0, true), (SamplingSchedule::Interval{10, 1}));
  EXPECT_EQ(SamplingSchedule::interval(1, 3.0, false), (SamplingSchedule::Interval{3, 0.3}));
  // Nobody watching: the setting does not matter, the power source does.
  EXPECT_EQ(SamplingSchedule::interval(0, 1.0, false), (SamplingSchedule::Interval{5, 1}));
  EXPECT_EQ(SamplingSchedule::interval(0, 1.0, true), (SamplingSchedule::Interval{10, 2}));
}

TEST(SamplingSchedule, NobodyWatchingSamplesProcessesOnEverySixthTick) {
  SamplingLoop loop(false);
  SamplingLoop::Conditions quiet{0, std::nullopt, false};
  EXPECT_EQ(loop.next(quiet).kind, Kind::prime);
  EXPECT_EQ(loop.next(quiet), (SamplingLoop::Step{Kind::sleep, 1, 0}));
  // The first tick after priming always takes processes.
  EXPECT_EQ(loop.next(quiet), (SamplingLoop::Step{Kind::tick, 0, 0, true}));
  std::vector<int64_t> withProcesses;
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(loop.next(quiet), (SamplingLoop::Step{Kind::sleep, 5, 1}));
    const auto tick = loop.next(quiet);
    ASSERT_EQ(tick.kind, Kind::tick);
    if (tick.includeProcesses) withProcesses.push_back(loop.tickCount());
  }
  EXPECT_EQ(withProcesses, (std::vector<int64_t>{6, 12, 18}));

  // A viewer appearing takes processes every tick at its own cadence.
  SamplingLoop::Conditions watched{1, 2.0, false};
  EXPECT_EQ(loop.next(watched), (SamplingLoop::Step{Kind::sleep, 2, 0.2}));
  EXPECT_TRUE(loop.next(watched).includeProcesses);
}

TEST(SamplingSchedule, PrimedLoopTicksAtOnceAndCancelledLoopEnds) {
  SamplingLoop primed(true);
  SamplingLoop::Conditions quiet{};
  EXPECT_EQ(primed.next(quiet), (SamplingLoop::Step{Kind::tick, 0, 0, true}));
  EXPECT_EQ(primed.next(quiet).kind, Kind::sleep);
  primed.cancel();  // during the sleep
  EXPECT_EQ(primed.next(quiet).kind, Kind::end);
  EXPECT_EQ(primed.next(quiet).kind, Kind::end);
  EXPECT_EQ(primed.tickCount(), 1);

  SamplingLoop priming(false);
  EXPECT_EQ(priming.next(quiet).kind, Kind::prime);
  priming.cancel();  // during the baseline's second
  EXPECT_EQ(priming.next(quiet).kind, Kind::end);
}

TEST(SamplingSchedule, DetailThrottles) {
  const Date now{std::chrono::seconds(1'800'000'000)};
  ProcessDetails network;
  network.network = true;
  // Network details asked for 2 s after the last are left out; the project scan is due.
  auto details = SamplingSchedule::details(network, now, now - 2s, now - 119s, false);
  EXPECT_FALSE(details.network);
  EXPECT_FALSE(details.projects);
  details = SamplingSchedule::details(network, now, now - 3500ms, now - 120s, false);
  EXPECT_TRUE(details.network);
  EXPECT_TRUE(details.projects);
  // Nobody asks: forced after 60 s on mains, 120 s on battery; the first sample has both.
  EXPECT_TRUE(SamplingSchedule::details({}, now, now - 60s, now, false).network);
  EXPECT_FALSE(SamplingSchedule::details({}, now, now - 60s, now, true).network);
  const auto first = SamplingSchedule::details({}, now, std::nullopt, std::nullopt, false);
  EXPECT_TRUE(first.network && first.projects);

  EXPECT_FALSE(SamplingSchedule::publishesLedger(now - 14s, now));
  EXPECT_TRUE(SamplingSchedule::publishesLedger(now - 15s, now));
  EXPECT_TRUE(SamplingSchedule::savesLedger(now - 120s, now, false));
  EXPECT_TRUE(SamplingSchedule::savesLedger(std::nullopt, now, true));
}

TEST(SamplingSchedule, CoalescedDeadlineStaysInTheWindowOnTheCoarsestGrid) {
  EXPECT_DOUBLE_EQ(SamplingSchedule::coalescedDeadline(105.3, 1), 106);
  EXPECT_DOUBLE_EQ(SamplingSchedule::coalescedDeadline(105.3, 0.2), 105.5);
  for (double target = 0; target < 50; target += 0.37) {
    for (double tolerance : {0.1, 0.2, 1.0, 2.0}) {
      const double deadline = SamplingSchedule::coalescedDeadline(target, tolerance);
      EXPECT_GE(deadline, target);
      EXPECT_LE(deadline, target + tolerance + 1e-9);
    }
  }
}

}  // namespace
}  // namespace omnira
