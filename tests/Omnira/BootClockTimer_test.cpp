// The boot-clock timer as the sampling loop uses it: a real kernel timer in a real event loop.

#include "Omnira/BootClockTimer.h"

#include <QEventLoop>
#include <QTimer>

#include <gtest/gtest.h>

#include "tests/Omnira/QtTestApp.h"

namespace omnira {
namespace {

// Seconds on the boot clock at which the timer fired, or nothing when it did not fire
// within the guard (which only catches a timer that never fires).
std::optional<double> firing(BootClockTimer& timer) {
  std::optional<double> firedAt;
  QEventLoop loop;
  QObject::connect(&timer, &BootClockTimer::timeout, &loop, [&] {
    firedAt = BootClockTimer::now();
    loop.quit();
  });
  QTimer guard;
  guard.setSingleShot(true);
  QObject::connect(&guard, &QTimer::timeout, &loop, &QEventLoop::quit);
  guard.start(30'000);
  loop.exec();
  return firedAt;
}

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
    const auto fired = firing(timer);
    ASSERT_TRUE(fired) << "the timer never fired";
    EXPECT_GE(*fired, started + seconds) << "woke " << started + seconds - *fired << " s early";
    EXPECT_FALSE(timer.isActive());
  }
}

}  // namespace
}  // namespace omnira
