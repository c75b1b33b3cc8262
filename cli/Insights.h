#pragma once
// `omnira insights`: "Worth a Look" and the strain without notifications. Reads
// "insights.json" in the data folder, which a running Omnira keeps; pins and dismissals are
// written into that file under its lock, and a running Omnira follows the file, so a
// dismissed insight stays dismissed. Works the same whether Omnira runs or not.
// Runs on the command's one thread.
// Exit status: 0 done, 2 for an id that names no insight or several, 1 when the file cannot
// be read or written (it is then left as it was).

#include <cstdio>
#include <string>

#include "OmniraCore/foundation/AppPaths.h"
#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/foundation/Settings.h"
#include "OmniraCore/history/WorthALook.h"
#include "OmniraCore/sampling/SystemSample.h"

namespace omnira::cli {

struct InsightsRequest {
  enum class Command { list, pin, unpin, dismiss };
  Command command = Command::list;
  bool json = false;  // list: print JSON
  std::string id;     // the whole id or its first characters, as listed
  bool all = false;   // dismiss: every insight that is not pinned
};

// Prints to `out`, sentences about problems to `err`; returns the exit status.
int runInsights(const InsightsRequest& request, const AppPaths& paths, Date now, std::FILE* out, std::FILE* err);

// The parts of the computer under strain in one sample, each since when a running Omnira has
// seen it so (from its saved strain), or since `now` when it has not.
StrainSince sampleStrain(const SystemSample& sample, const AppPaths& paths, const Settings& settings, Date now);

}  // namespace omnira::cli
