#pragma once
// What one tick offers the metrics exporter: borrowed views of the store's published
// figures (or of the command's own samples), valid for the one call that takes them.
// Absent parts are left out of the exposition, never written as zero.

#include <cstdint>
#include <map>
#include <optional>
#include <unordered_map>
#include <vector>

#include "OmniraCore/containers/ContainerSnapshot.h"
#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/history/Insight.h"
#include "OmniraCore/history/WorthALook.h"
#include "OmniraCore/sampling/AppGroup.h"
#include "OmniraCore/sampling/ProcessNetwork.h"
#include "OmniraCore/sampling/SystemSample.h"
#include "OmniraCore/sampling/SystemSource.h"
#include "OmniraCore/sensors/SensorSample.h"
#include "OmniraCore/usage/TokenLedger.h"
#include "OmniraCore/usage/UsageTool.h"

namespace omnira {

// The kernel's own running totals, where the caller has them (the command reads them
// straight from the system); without them the exporter adds up the sample's rates.
struct MachineCounters {
  struct Core {
    double user = 0, nice = 0, system = 0, idle = 0;  // seconds since boot
  };
  std::vector<Core> cores;
  std::optional<uint64_t> networkReceived, networkSent;  // bytes since boot, all interfaces
  std::optional<uint64_t> diskRead, diskWritten;
};

// Omnira's own cost.
struct SelfCost {
  double cpuSeconds = 0;  // user + system since the process started
  std::optional<uint64_t> residentBytes;
};

struct MetricsReadings {
  Date at{};
  const SystemSample* system = nullptr;
  const MachineCounters* counters = nullptr;
  // The kernel's pressure-stall figures for memory, where it keeps them.
  std::optional<MemoryStall> memoryStall;
  const SensorSample* sensors = nullptr;
  const std::vector<AppGroup>* groups = nullptr;
  // When the groups were sampled: their counter deltas are added once per sampling.
  std::optional<Date> groupsAt;
  // A single look (the command) has no past to add up: an app's CPU seconds and disk
  // bytes are then its running processes' lifetime totals, and its network bytes those
  // of the TCP sockets they hold open (left out without `socketBytes`).
  bool lifetimeTotals = false;
  const std::unordered_map<int32_t, ProcessNetwork::Bytes>* socketBytes = nullptr;  // by pid
  const ContainerSnapshot* containers = nullptr;
  const std::vector<Insight>* insights = nullptr;  // those listed now
  const StrainSince* strain = nullptr;
  const std::map<UsageTool, TokenLedger>* ledgers = nullptr;
  std::optional<SelfCost> self;
};

}  // namespace omnira
