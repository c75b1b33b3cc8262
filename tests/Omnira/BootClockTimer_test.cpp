// The boot-clock timer as the sampling loop uses it: a real kernel timer in a real event loop.

#include "Omnira/BootClockTimer.h"

#include <gtest/gtest.h>

#include "tests/Omnira/QtTestApp.h"

namespace omnira {
namespace {

TEST(BootClockTimer, ComesLateWithinTheToleranceButNeverEarly) {
  testing::qtTestApp();
  // A tolerance as wide as the sleep: a round second lies both before and after the time
  // asked for, and only the later one may be taken.
  for (const auto& [seconds, tolerance] : {std::pair{1.0, 1.0}, std::pair{0.3, 0.25}}) {
    BootClockTimer timer;
    ASSERT_EQ(timer.failure(), "");
    const double started = BootClockTimer::now();
    timer.start(seconds, tolerance);
    EXPECT_GE(timer.deadline(), started + seconds);
    EXPECT_LE(timer.deadline(), BootClockTimer::now() + seconds + tolerance);
    std::optional<double> fired;
    QObject::connect(&timer, &BootClockTimer::timeout, [&] { fired = BootClockTimer::now(); });
    ASSERT_TRUE(testing::pumpUntil([&] { return fired.has_value(); }, 30'000)) << "the timer never fired";
    EXPECT_GE(*fired, started + seconds) << "woke " << started + seconds - *fired << " s early";
    EXPECT_FALSE(timer.isActive());
  }
}

}  // namespace
}  // namespace omnira
