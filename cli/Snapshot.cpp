#include "cli/Snapshot.h"

#include <thread>

#include "OmniraCore/platform/linux/ThisMachine.h"

namespace omnira::cli {

Snapshot takeSnapshot(bool projects) {
  auto system = platform::makeSystemSampler();
  auto processes = platform::makeProcessSampler();
  auto sensors = platform::makeSensors();
  // The grouper scans desktop entries while the samplers' baselines age.
  (void)system->sample();
  (void)sensors->sample(std::nullopt);
  // Network rates are the sockets' bytes between the two samples.
  const ProcessSampler::Details details{.network = true, .projects = projects};
  (void)processes->sample(details);
  const auto primed = std::chrono::steady_clock::now();
  auto grouper = platform::makeAppGrouper();
  std::this_thread::sleep_until(primed + std::chrono::seconds(1));

  Snapshot snap;
  snap.system = system->sample();
  snap.sensors = sensors->sample(snap.system.battery);
  snap.system.gpuUtilization = snap.sensors.gpuBusy();
  snap.system.gpuMemoryBytes = snap.sensors.gpuMemoryBytes();
  auto samples = processes->sample(details);
  snap.unmeasuredProcesses = processes->unmeasuredCount();
  snap.processesWithoutDisk = processes->withoutDiskCount();
  snap.sockets = processes->lastSockets();
  snap.socketHolders = processes->socketHolders();
  snap.groups = grouper->group(std::move(samples));
  return snap;
}

}  // namespace omnira::cli
