// What the sampling worker hands the store about a process sample, over fixture trees: the
// details it really measured (which processes are left out: LibProc_test).

#include "Omnira/SamplingWorker.h"

#include <filesystem>

#include <gtest/gtest.h>

#include "OmniraCore/platform/linux/LibProc.h"
#include "OmniraCore/platform/linux/LinuxSensorSource.h"
#include "OmniraCore/platform/linux/LinuxSystemSource.h"
#include "OmniraCore/platform/linux/ThisMachine.h"
#include "tests/platform/linux/TempTree.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;

const fs::path kFixtures(OMNIRA_FIXTURES);

SamplingParts fixtureParts() {
  const platform::Roots processes{kFixtures / "proc" / "basic", kFixtures / "proc" / "basic" / "sys"};
  const platform::Roots system{kFixtures / "system" / "laptop" / "proc", kFixtures / "system" / "laptop" / "sys"};
  return {
      [system] {
        return std::make_unique<SystemSampler>(std::make_unique<platform::LinuxSystemSource>(system, kFixtures));
      },
      [processes] { return std::make_unique<ProcessSampler>(std::make_unique<platform::LibProc>(processes)); },
      [] { return std::make_unique<AppGrouper>("Linux"); },
  };
}

TEST(SamplingWorker, ReportsWhatWasMeasuredNotWhatWasAskedFor) {
  SamplingWorker worker(fixtureParts());
  std::vector<SamplingResult> results;
  QObject::connect(&worker, &SamplingWorker::sampled, [&](const SamplingResult& r) { results.push_back(r); });

  worker.sample(SamplingRequest{.serial = 1, .prime = true});
  const ProcessDetails asked{.network = true, .gpu = true, .neuralEngine = true, .projects = true};
  worker.sample(SamplingRequest{.serial = 2, .includeProcesses = true, .details = asked});
  worker.sample(SamplingRequest{.serial = 3, .includeProcesses = true, .details = {.network = true}});
  ASSERT_EQ(results.size(), 3u);

  // The fixture tree is not this machine's, so its sockets cannot be listed: no network
  // figures; GPU use comes from the processes' DRM clients (none here); Linux gives no
  // process's Neural Engine use.
  EXPECT_EQ(results[1].measured, (ProcessDetails{.gpu = true, .projects = true}));
  EXPECT_EQ(results[2].measured, ProcessDetails{});
  EXPECT_EQ(results[1].unmeasured, 1u);  // the tree's garbled process
}

// This machine's processes with a ThinkPad's RAPL counters, moved on by the test: the
// processor's measured energy between process samples is what the processes' power adds up to.
TEST(SamplingWorker, SharesTheProcessorsMeasuredPowerByCPUTime) {
  platform::TempTree machine;
  fs::copy(kFixtures / "sys-thinkpad", machine.root(), fs::copy_options::recursive | fs::copy_options::copy_symlinks);
  const auto package = machine.root() / "class/powercap/intel-rapl:0/energy_uj";
  uint64_t energy = 32'147'801'123;
  auto burn = [&](uint64_t microjoules) {
    energy += microjoules;
    machine.write("class/powercap/intel-rapl:0/energy_uj", std::to_string(energy) + "\n");
    // Some CPU time of our own, so that at least one process has a share.
    const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(300);
    volatile uint64_t spin = 0;
    while (std::chrono::steady_clock::now() < until) spin = spin + 1;
  };

  SamplingParts parts{platform::makeSystemSampler, [] { return platform::makeProcessSampler(); },
                      [] { return std::make_unique<AppGrouper>("Linux"); }, nullptr,
                      [root = machine.root()] {
                        platform::LinuxSensorSource::Options options;
                        options.roots.sys = root;
                        options.helperSocket.clear();
                        options.upowerBus = "none";
                        return std::make_unique<Sensors>(std::make_unique<platform::LinuxSensorSource>(options));
                      }};
  SamplingWorker worker(std::move(parts));
  std::vector<SamplingResult> results;
  QObject::connect(&worker, &SamplingWorker::sampled, [&](const SamplingResult& r) { results.push_back(r); });

  worker.sample(SamplingRequest{.serial = 1, .prime = true});
  burn(4'000'000);
  worker.sample(SamplingRequest{.serial = 2});  // system and sensors only
  burn(9'000'000);
  worker.sample(SamplingRequest{.serial = 3, .includeProcesses = true});
  ASSERT_EQ(results.size(), 3u);

  double joules = 0, seconds = 0;
  for (const auto& r : {results[1], results[2]}) {
    ASSERT_TRUE(r.sensors && r.sensors->cpuWatts);
    joules += *r.sensors->cpuWatts * r.system.interval;
    seconds += r.system.interval;
  }
  ASSERT_TRUE(results[2].groups);
  double watts = 0, busiest = 0;
  for (const auto& group : *results[2].groups) {
    watts += group.powerWatts();
    busiest = std::max(busiest, group.cpuPercent());
  }
  ASSERT_GT(busiest, 0);
  // Exactly the measured average, which the fixed 5 W per busy core would match only by chance.
  EXPECT_NEAR(watts, joules / seconds, 1e-6 * joules / seconds);
}

}  // namespace
}  // namespace omnira
