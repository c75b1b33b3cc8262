#pragma once
// One app's processes for one tick, with their summed figures. A plain value.
// Ids: an app's .desktop file, "system", or an id beginning with "exec:" or "name:".

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "OmniraCore/sampling/GroupKind.h"
#include "OmniraCore/sampling/ProcessSample.h"

namespace omnira {

struct AppGroup {
  std::string id;
  std::string name;
  GroupKind kind = GroupKind::other;
  std::optional<std::string> bundlePath;
  std::vector<ProcessSample> processes;

  AppGroup() = default;
  AppGroup(std::string id, std::string name, GroupKind kind, std::optional<std::string> bundlePath,
           std::vector<ProcessSample> processes)
      : id(std::move(id)), name(std::move(name)), kind(kind), bundlePath(std::move(bundlePath)),
        processes(std::move(processes)) {}

  size_t processCount() const { return processes.size(); }
  double cpuPercent() const;
  uint64_t memoryBytes() const;
  uint64_t residentBytes() const;
  double powerWatts() const;
  double energyJoules() const;
  double diskReadBytesPerSec() const;
  double diskWriteBytesPerSec() const;
  double networkInBytesPerSec() const;
  double networkOutBytesPerSec() const;
  uint64_t networkBytesIn() const;   // measured this sample (ProcessSample::networkBytesIn)
  uint64_t networkBytesOut() const;
  double idleWakeupsPerSec() const;
  double gpuPercent() const;

  // id, name, kind, bundlePath, the summed figures, then "processes".
  nlohmann::ordered_json toJSON() const;
  friend bool operator==(const AppGroup&, const AppGroup&) = default;
};

}  // namespace omnira
