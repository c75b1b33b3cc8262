#pragma once
// `omnira snapshot`: one look at the machine and its apps.

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "OmniraCore/history/WorthALook.h"
#include "OmniraCore/sampling/AppGroup.h"
#include "OmniraCore/sampling/ProcessNetwork.h"
#include "OmniraCore/sampling/TCPSocket.h"
#include "OmniraCore/sampling/SystemSample.h"
#include "OmniraCore/sensors/SensorSample.h"

namespace omnira::cli {

struct Snapshot {
  SystemSample system;
  SensorSample sensors;  // over the same second as the system sample
  std::vector<AppGroup> groups;  // sorted by memory, largest first
  // Left out: their figures could not be read at all.
  size_t unmeasuredProcesses = 0;
  StrainSince strain;  // filled by the caller, which knows the data folder
  // Shown, but without disk figures: other users' processes, read without root.
  size_t processesWithoutDisk = 0;
  // The machine's TCP sockets and the holders found of those that matter (see ProcessSampler).
  std::vector<TCPSocket> sockets;
  ProcessNetwork::Owners socketHolders;
};

// Primes the samplers, waits a second, samples again and groups. Network rates are always
// measured; `projects` adds the processes' project folders and listening ports.
Snapshot takeSnapshot(bool projects = false);

// {"system": <sample as persisted>, "sensors": {...}, "strain": {"memory": "<since>"}, "groups": [...]}
nlohmann::ordered_json snapshotJSON(const Snapshot& snapshot);
// What a person reads at a glance; `topApps` rows of apps at most.
std::string snapshotText(const Snapshot& snapshot, size_t topApps);

}  // namespace omnira::cli
