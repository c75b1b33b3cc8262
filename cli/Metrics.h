#pragma once
// `omnira metrics`: the running application's /metrics exposition, once, from the command's
// own samples (two a second apart), the container engines that answer in time, and the
// saved insights, strain and token ledgers. For node_exporter's textfile collector and for
// scripts; it needs no running Omnira.

#include <cstdio>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "OmniraCore/containers/ContainerSnapshot.h"
#include "OmniraCore/foundation/AppPaths.h"
#include "OmniraCore/foundation/Settings.h"
#include "OmniraCore/history/Insight.h"
#include "OmniraCore/history/WorthALook.h"
#include "OmniraCore/metrics/Exposition.h"
#include "OmniraCore/metrics/MetricsReadings.h"
#include "OmniraCore/sampling/ProcessNetwork.h"
#include "OmniraCore/sampling/ProcessSource.h"
#include "OmniraCore/usage/TokenLedger.h"
#include "cli/Snapshot.h"

namespace omnira::cli {

struct MetricsRequest {
  bool openMetrics = false;
};

// What a running Omnira saved, as the command reads it; empty parts when nothing was saved.
struct SavedReadings {
  Settings settings;
  std::vector<Insight> insights;
  std::map<UsageTool, TokenLedger> ledgers;
};
SavedReadings readSaved(const AppPaths& paths);

// Bytes each process's open TCP sockets have carried since they opened, by pid: the
// sockets of `snapshot` whose holders `source` can list (this user's processes, or all as root).
std::unordered_map<int32_t, ProcessNetwork::Bytes> socketBytesByProcess(const Snapshot& snapshot, ProcessSource& source);

// The exposition of one snapshot. Per-app CPU seconds and disk bytes are the running
// processes' lifetime totals and network bytes those of their open sockets, since a single
// look has no past of its own to add up. `containers` and `socketBytes` may be null.
std::string metricsExposition(const Snapshot& snapshot, const MachineCounters* counters,
                              std::optional<MemoryStall> stall, const SavedReadings& saved, ExpositionFormat format,
                              const ContainerSnapshot* containers = nullptr,
                              const std::unordered_map<int32_t, ProcessNetwork::Bytes>* socketBytes = nullptr);

// Prints the exposition to `out`; a data folder that cannot be found is a sentence on `err`,
// and the figures are printed without the saved parts. Returns the exit status.
int runMetrics(const MetricsRequest& request, std::FILE* out, std::FILE* err);

}  // namespace omnira::cli
