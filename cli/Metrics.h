#pragma once
// `omnira metrics`: the running application's /metrics exposition, once, from the command's
// own samples (two a second apart) and the saved insights, strain and token ledgers. For
// node_exporter's textfile collector and for scripts; it needs no running Omnira.

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "OmniraCore/foundation/AppPaths.h"
#include "OmniraCore/foundation/Settings.h"
#include "OmniraCore/history/Insight.h"
#include "OmniraCore/history/WorthALook.h"
#include "OmniraCore/metrics/Exposition.h"
#include "OmniraCore/metrics/MetricsReadings.h"
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

// The exposition of one snapshot. Per-app CPU seconds are the running processes' lifetime
// totals, since a single look has no past of its own to add up.
std::string metricsExposition(const Snapshot& snapshot, const MachineCounters* counters,
                              std::optional<MemoryStall> stall, const SavedReadings& saved, ExpositionFormat format);

// Prints the exposition to `out`; a data folder that cannot be found is a sentence on `err`,
// and the figures are printed without the saved parts. Returns the exit status.
int runMetrics(const MetricsRequest& request, std::FILE* out, std::FILE* err);

}  // namespace omnira::cli
