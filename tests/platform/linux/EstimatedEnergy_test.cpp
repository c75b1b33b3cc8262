// A busy real process has power and energy, estimated from its CPU time since the kernel
// counts no energy per process: sorting apps by energy must not sort zeros. (The ledger and
// the history keep a group's energy: UsageLedger_test, HistoryDatabase_test.)

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include "OmniraCore/platform/linux/LibProc.h"
#include "OmniraCore/sampling/ProcessSampler.h"
#include "tests/platform/linux/TempTree.h"

namespace omnira::platform {
namespace {

TEST(EstimatedEnergy, ABusyProcessUsesEnergyAndAnIdleOneNone) {
  const pid_t busy = ::fork();
  ASSERT_GE(busy, 0);
  if (busy == 0) {
    volatile uint64_t spins = 0;
    while (true) spins = spins + 1;
  }
  const pid_t idle = ::fork();
  ASSERT_GE(idle, 0);
  if (idle == 0) {
    while (true) ::pause();
  }

  ProcessSampler sampler(std::make_unique<LibProc>());
  (void)sampler.sample();
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  auto samples = sampler.sample();
  ::kill(busy, SIGKILL);
  ::kill(idle, SIGKILL);
  ::waitpid(busy, nullptr, 0);
  ::waitpid(idle, nullptr, 0);

  const auto* busySample = findPID(samples, busy);
  const auto* idleSample = findPID(samples, idle);
  ASSERT_NE(busySample, nullptr);
  ASSERT_NE(idleSample, nullptr);
  ASSERT_GT(busySample->cpuPercent, 0);
  EXPECT_GT(busySample->powerWatts, 0);
  EXPECT_GT(busySample->energyJoules, 0);
  // Watts over the interval the CPU percent was taken over give the joules.
  const double interval = static_cast<double>(busySample->delta.cpuNanoseconds) / 1e9 / (busySample->cpuPercent / 100);
  EXPECT_NEAR(busySample->energyJoules, busySample->powerWatts * interval, 1e-9);
  EXPECT_EQ(idleSample->powerWatts, 0);
  EXPECT_EQ(idleSample->energyJoules, 0);
}

}  // namespace
}  // namespace omnira::platform
