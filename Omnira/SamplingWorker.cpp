#include "Omnira/SamplingWorker.h"

#include <unistd.h>

#include <chrono>

#include "OmniraCore/platform/linux/ThisMachine.h"
#include "OmniraCore/sampling/EnergyEstimate.h"

namespace omnira {

SamplingParts SamplingParts::thisMachine() {
  return {platform::makeSystemSampler, [] { return platform::makeProcessSampler(); }, platform::makeAppGrouper,
          [] { return std::make_unique<ContainerSampler>(ContainerSampler::forThisUser()); }, platform::makeSensors};
}

SamplingWorker::SamplingWorker(SamplingParts parts) : parts_(std::move(parts)) {
  qRegisterMetaType<omnira::SamplingRequest>();
  qRegisterMetaType<omnira::SamplingResult>();
}

SamplingWorker::~SamplingWorker() = default;

void SamplingWorker::ensureParts() {
  if (!system_) system_ = parts_.system();
  if (!processes_) processes_ = parts_.processes();
  if (!grouper_) grouper_ = parts_.grouper();
  if (!sensors_ && parts_.sensors) sensors_ = parts_.sensors();
}

void SamplingWorker::sample(const SamplingRequest& request) {
  const auto started = std::chrono::steady_clock::now();
  ensureParts();
  if (request.reloadApps) grouper_->reload();

  SamplingResult result;
  result.serial = request.serial;
  if (request.prime) {
    (void)system_->sample();
    (void)processes_->sample();
    if (sensors_) (void)sensors_->sample(std::nullopt);
    result.primed = true;
  } else {
    result.system = system_->sample();
    if (sensors_) {
      result.sensors = sensors_->sample(result.system.battery);
      // The system sample carries the GPU and NPU figures, as on machines where the
      // system's own counters give them, so history and strain need not know sensors.
      result.system.gpuUtilization = result.sensors->gpuBusy();
      result.system.gpuMemoryBytes = result.sensors->gpuMemoryBytes();
      if (auto npu = result.sensors->npuBusy()) result.system.neuralEngineActive = *npu >= SensorSample::npuActiveShare;
      if (request.peripherals) result.peripherals = sensors_->peripherals();
    }
    if (result.sensors && result.sensors->cpuWatts && result.system.interval > 0) {
      cpuJoules_ += *result.sensors->cpuWatts * result.system.interval;
      cpuSeconds_ += result.system.interval;
    }
    if (request.includeProcesses) {
      auto samples = processes_->sample(request.details);
      // Where RAPL measures the processor, its energy since the last process sample is
      // shared out by CPU time instead of the fixed per-core estimate.
      if (cpuSeconds_ > 0) samples = EnergyEstimate::sharing(cpuJoules_ / cpuSeconds_, cpuSeconds_, std::move(samples));
      cpuJoules_ = cpuSeconds_ = 0;
      result.measured = processes_->measuredDetails();
      result.unmeasured = processes_->unmeasuredCount();
      result.groups = grouper_->group(std::move(samples));
      request.containers.nameGroups(*result.groups);
      if (result.measured.projects)
        result.sockets = SamplingResult::Sockets{processes_->lastSockets(), processes_->socketHolders()};
    }
  }
  result.at = std::chrono::system_clock::now();
  result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  emit sampled(result);
}

}  // namespace omnira
