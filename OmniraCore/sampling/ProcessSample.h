#pragma once
// One process's figures for one tick. A plain value, made by ProcessSampler on its
// own thread and handed over whole.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/sampling/HelperRole.h"

namespace omnira {

// Counter deltas of one tick, after the plausibility rule.
struct UsageDelta {
  uint64_t cpuNanoseconds = 0;
  uint64_t diskBytesRead = 0;
  uint64_t diskBytesWritten = 0;
  uint64_t energyNanojoules = 0;
  uint64_t idleWakeups = 0;
  friend bool operator==(const UsageDelta&, const UsageDelta&) = default;
};

struct ProcessSample {
  int32_t pid = 0;
  int32_t parentPID = 0;
  std::string name;
  std::optional<std::string> path;  // executable path
  double cpuPercent = 0;            // percent of one core; may exceed 100
  // Footprint: what the process alone keeps, in memory or swapped, with the pages it
  // shares divided among their sharers where that was measured. File pages are left out.
  uint64_t memoryBytes = 0;
  uint64_t residentBytes = 0;       // every page it has in memory, shared ones counted whole
  double diskReadBytesPerSec = 0;
  double diskWriteBytesPerSec = 0;
  double powerWatts = 0;
  double energyJoules = 0;          // energy over the interval, where measured or estimated
  double idleWakeupsPerSec = 0;
  double gpuPercent = 0;
  double networkInBytesPerSec = 0;
  double networkOutBytesPerSec = 0;
  // The bytes this sample measured: a network step's whole count on the tick that took it,
  // 0 on the ticks between, whose rates are carried for showing. What the history books.
  uint64_t networkBytesIn = 0;
  uint64_t networkBytesOut = 0;
  // Every figure could be read this tick, disk counters included; false for another
  // user's process, whose CPU and memory are read but whose disk counters are not ours.
  bool hasMetrics = false;
  UsageDelta delta;
  std::optional<std::string> projectPath;
  std::vector<uint16_t> listeningPorts;
  Date startedAt{};
  double lifetimeCPUSeconds = 0;
  // Its disk counters since it started, where hasMetrics.
  uint64_t lifetimeDiskBytesRead = 0;
  uint64_t lifetimeDiskBytesWritten = 0;
  std::optional<HelperRole> helperRole;

  // How the process was started, which app grouping reads before any path rule.
  uint32_t uid = 0;
  bool hasTerminal = false;    // has a controlling terminal: started from a shell
  bool kernelThread = false;
  // The app id of the desktop session's app unit the process runs in
  // ("firefox" for app-gnome-firefox-1234.scope), unescaped.
  std::optional<std::string> appUnitID;
  // Runs in one of the desktop session's own units (not an app unit).
  bool sessionService = false;
  std::optional<std::string> flatpakAppID;  // from the sandbox's .flatpak-info
  // The container it runs in, from its control group: "<engine>:<64 hex digits>".
  std::optional<std::string> containerID;

  nlohmann::ordered_json toJSON() const;
  friend bool operator==(const ProcessSample&, const ProcessSample&) = default;
};

}  // namespace omnira
