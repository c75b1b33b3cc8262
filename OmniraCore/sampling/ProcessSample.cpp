#include "OmniraCore/sampling/ProcessSample.h"

namespace omnira {

nlohmann::ordered_json ProcessSample::toJSON() const {
  nlohmann::ordered_json json;
  json["pid"] = pid;
  json["parentPID"] = parentPID;
  json["name"] = name;
  if (path) json["path"] = *path;
  json["cpuPercent"] = cpuPercent;
  json["memoryBytes"] = memoryBytes;
  json["diskReadBytesPerSec"] = diskReadBytesPerSec;
  json["diskWriteBytesPerSec"] = diskWriteBytesPerSec;
  json["powerWatts"] = powerWatts;
  json["energyJoules"] = energyJoules;
  json["idleWakeupsPerSec"] = idleWakeupsPerSec;
  json["gpuPercent"] = gpuPercent;
  json["networkInBytesPerSec"] = networkInBytesPerSec;
  json["networkOutBytesPerSec"] = networkOutBytesPerSec;
  json["hasMetrics"] = hasMetrics;
  // The delta's keys are RawUsage's, whose counters it is the difference of.
  json["delta"] = {{"cpuNanoseconds", delta.cpuNanoseconds},
                   {"diskBytesRead", delta.diskBytesRead},
                   {"diskBytesWritten", delta.diskBytesWritten},
                   {"energy", delta.energyNanojoules},
                   {"idleWakeups", delta.idleWakeups}};
  if (projectPath) json["projectPath"] = *projectPath;
  json["listeningPorts"] = listeningPorts;
  json["startedAt"] = formatISO8601(startedAt);
  json["lifetimeCPUSeconds"] = lifetimeCPUSeconds;
  if (helperRole) json["helperRole"] = rawValue(*helperRole);
  json["uid"] = uid;
  json["hasTerminal"] = hasTerminal;
  json["kernelThread"] = kernelThread;
  if (appUnitID) json["appUnitID"] = *appUnitID;
  json["sessionService"] = sessionService;
  if (flatpakAppID) json["flatpakAppID"] = *flatpakAppID;
  if (containerID) json["containerID"] = *containerID;
  return json;
}

}  // namespace omnira
