#pragma once
// The samplers' own thread. The worker owns the system sampler, the process sampler and
// the app grouper and touches them only on its thread ("Omnira sampler"), so a slow walk of
// /proc never holds up the main thread; only finished results cross back, by a queued
// signal. Requests are answered in order, one at a time.
//
// The store creates the worker on the main thread and moves it to its thread; call
// request() from the main thread only.

#include <QObject>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "OmniraCore/containers/ContainerSampler.h"
#include "OmniraCore/containers/Ports.h"
#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/sampling/AppGroup.h"
#include "OmniraCore/sampling/AppGrouper.h"
#include "OmniraCore/sampling/ProcessDetails.h"
#include "OmniraCore/sampling/ProcessSampler.h"
#include "OmniraCore/sampling/SystemSampler.h"
#include "OmniraCore/sensors/Sensors.h"

namespace omnira {

// Builds the parts on the worker's thread, so a desktop-entry scan runs there too.
struct SamplingParts {
  std::function<std::unique_ptr<SystemSampler>()> system;
  std::function<std::unique_ptr<ProcessSampler>()> processes;
  std::function<std::unique_ptr<AppGrouper>()> grouper;
  // Built on the container thread instead (ContainerWorker).
  std::function<std::unique_ptr<ContainerSampler>()> containers;
  // Empty: no sensors are read.
  std::function<std::unique_ptr<Sensors>()> sensors;

  static SamplingParts thisMachine();
};

struct SamplingRequest {
  uint64_t serial = 0;
  bool prime = false;  // take the baseline pair and throw it away
  bool includeProcesses = false;
  ProcessDetails details;
  bool reloadApps = false;  // installed applications changed
  bool peripherals = false;  // read the batteries of mice, keyboards and headsets too
  // The store's last look at the engines: names container groups and published ports.
  ContainerSnapshot containers;
};

struct SamplingResult {
  uint64_t serial = 0;
  bool primed = false;
  Date at{};
  SystemSample system;
  // Absent while priming or without sensors; an empty sample on a machine without any.
  std::optional<SensorSample> sensors;
  // Present when asked for.
  std::optional<std::vector<PeripheralBattery>> peripherals;
  // Present when processes were sampled this time.
  std::optional<std::vector<AppGroup>> groups;
  // Of the details asked for, those the sample really filled.
  ProcessDetails measured;
  // Processes left out because their figures could not be read (ProcessSampler).
  size_t unmeasured = 0;
  // The machine's TCP sockets and the holders found; present when project details were
  // measured, for the store to list ports with what it knows of containers.
  struct Sockets {
    std::vector<TCPSocket> sockets;
    ProcessNetwork::Owners holders;
  };
  std::optional<Sockets> sockets;
  double seconds = 0;  // wall time the sampling took, for the log
};

class SamplingWorker : public QObject {
  Q_OBJECT

 public:
  explicit SamplingWorker(SamplingParts parts);
  ~SamplingWorker() override;

 public slots:
  void sample(const omnira::SamplingRequest& request);

 signals:
  void sampled(const omnira::SamplingResult& result);

 private:
  void ensureParts();

  SamplingParts parts_;
  std::unique_ptr<SystemSampler> system_;
  std::unique_ptr<ProcessSampler> processes_;
  std::unique_ptr<AppGrouper> grouper_;
  std::unique_ptr<Sensors> sensors_;
  // The processor's measured energy since the last process sample, and over how long.
  double cpuJoules_ = 0, cpuSeconds_ = 0;
};

}  // namespace omnira

Q_DECLARE_METATYPE(omnira::SamplingRequest)
Q_DECLARE_METATYPE(omnira::SamplingResult)
