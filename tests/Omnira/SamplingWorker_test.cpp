// What the sampling worker hands the store about a process sample, over fixture trees:
// the details it really measured and the processes it could not.

#include "Omnira/SamplingWorker.h"

#include <filesystem>

#include <gtest/gtest.h>

#include "OmniraCore/platform/linux/LibProc.h"
#include "OmniraCore/platform/linux/LinuxSystemSource.h"

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

  // The tree holds one garbled process, which is in no group, and one of another user
  // whose disk counters are denied, which is shown with its CPU and memory.
  ASSERT_TRUE(results[1].groups.has_value());
  EXPECT_EQ(results[1].unmeasured, 1u);
  bool shown102 = false;
  for (const auto& group : *results[1].groups) {
    for (const auto& process : group.processes) {
      EXPECT_NE(process.pid, 105);
      shown102 = shown102 || process.pid == 102;
    }
  }
  EXPECT_TRUE(shown102);
}

}  // namespace
}  // namespace omnira
