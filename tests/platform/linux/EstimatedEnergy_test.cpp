// A busy real process has power and energy, estimated from its CPU time since the kernel
// counts no energy per process, and that energy reaches the usage ledger and the history
// file: sorting apps by energy must not sort zeros.

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <thread>

#include <gtest/gtest.h>

#include "OmniraCore/history/HistoryDatabase.h"
#include "OmniraCore/history/UsageLedger.h"
#include "OmniraCore/platform/linux/LibProc.h"
#include "OmniraCore/sampling/AppGrouper.h"
#include "OmniraCore/sampling/ProcessSampler.h"
#include "tests/platform/linux/TempTree.h"

namespace omnira::platform {
namespace {

namespace fs = std::filesystem;

TEST(EstimatedEnergy, ABusyProcessUsesEnergyInTheLedgerAndTheHistory) {
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

  // The busy child and this test share their executable, so their group is one.
  const AppGrouper grouper("Linux");
  const auto groups = grouper.group(samples);
  const AppGroup* group = nullptr;
  for (const auto& g : groups)
    if (findPID(g.processes, busy)) group = &g;
  ASSERT_NE(group, nullptr);
  EXPECT_GE(group->energyJoules(), busySample->energyJoules);

  const Date at = std::chrono::system_clock::now();
  UsageLedger ledger;
  ledger.record(groups, TickGroups::fresh, 1.0, at);
  EXPECT_GT(ledger.day(UsageLedger::dayKey(at)).apps.at(group->id).energyJoules, 0);

  TempTree folder;
  auto history = HistoryDatabase::open(folder.root() / "history.sqlite");
  ASSERT_TRUE(history.ok()) << history.error().message;
  SystemSample system;
  system.interval = 1.0;
  ASSERT_TRUE((*history)->record(system, groups, TickGroups::fresh, at).ok());
  auto rows = (*history)->loadApps(HistoryDatabase::AppTable::days,
                                   HistoryDatabase::periodStart(HistoryDatabase::AppTable::days, at));
  ASSERT_TRUE(rows.ok());
  const auto row = std::find_if(rows->begin(), rows->end(), [&](const auto& r) { return r.appId == group->id; });
  ASSERT_NE(row, rows->end());
  EXPECT_GT(row->energyJoules, 0);
}

}  // namespace
}  // namespace omnira::platform
