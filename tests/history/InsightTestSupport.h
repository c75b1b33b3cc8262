#pragma once
// Groups, samples and simulated time for the insight engine's tests.

#include <string>
#include <vector>

#include "OmniraCore/history/InsightEngine.h"

namespace omnira::testing_support {

constexpr uint64_t GiB = 1'073'741'824;

inline Date at(double second) {
  return dateFromSecondsSinceEpoch(1'800'000'000) +
         std::chrono::duration_cast<Date::duration>(std::chrono::duration<double>(second));
}

struct Load {
  double cpu = 0;
  uint64_t memory = 0;
  double diskWritePerSec = 0;
  double networkPerSec = 0;
};

inline AppGroup group(const std::string& id, Load load = {}, GroupKind kind = GroupKind::app) {
  ProcessSample process;
  process.pid = 100;
  process.name = id;
  process.cpuPercent = load.cpu;
  process.memoryBytes = load.memory;
  process.diskWriteBytesPerSec = load.diskWritePerSec;
  process.networkInBytesPerSec = load.networkPerSec;
  return AppGroup(id, id, kind, "/apps/" + id + ".desktop", {process});
}

// Drives an engine through simulated time; each tick's interval is the time since the last.
class Clock {
 public:
  explicit Clock(InsightEngine& engine) : engine_(engine) {}

  std::vector<Insight> tick(double second, const std::vector<AppGroup>& groups,
                            MemoryPressure pressure = MemoryPressure::normal) {
    return tick(second, groups, pressure, {}, std::nullopt, std::nullopt);
  }
  std::vector<Insight> tick(double second, const std::vector<AppGroup>& groups, MemoryPressure pressure,
                            const std::vector<IdleServer>& servers, const std::optional<ThermalSample>& thermal,
                            const std::optional<NeuralEngineHolder>& neuralEngine) {
    SystemSample system;
    system.pressure = pressure;
    system.interval = second - last_;
    last_ = second;
    return engine_.ingest(groups, system, frontmost, servers, thermal, neuralEngine, at(second));
  }

  std::optional<std::string> frontmost;

 private:
  InsightEngine& engine_;
  double last_ = 0;
};

}  // namespace omnira::testing_support
