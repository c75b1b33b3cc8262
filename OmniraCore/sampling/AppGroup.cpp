#include "OmniraCore/sampling/AppGroup.h"

#include <functional>
#include <string>
#include <type_traits>

namespace omnira {

namespace {

template <class Field>
auto sum(const std::vector<ProcessSample>& processes, Field field) {
  std::remove_cvref_t<std::invoke_result_t<Field, const ProcessSample&>> total{};
  for (const auto& process : processes) total += std::invoke(field, process);
  return total;
}

}  // namespace

double AppGroup::cpuPercent() const { return sum(processes, &ProcessSample::cpuPercent); }
uint64_t AppGroup::memoryBytes() const { return sum(processes, &ProcessSample::memoryBytes); }
uint64_t AppGroup::residentBytes() const { return sum(processes, &ProcessSample::residentBytes); }
double AppGroup::powerWatts() const { return sum(processes, &ProcessSample::powerWatts); }
double AppGroup::energyJoules() const { return sum(processes, &ProcessSample::energyJoules); }
double AppGroup::diskReadBytesPerSec() const { return sum(processes, &ProcessSample::diskReadBytesPerSec); }
double AppGroup::diskWriteBytesPerSec() const { return sum(processes, &ProcessSample::diskWriteBytesPerSec); }
double AppGroup::networkInBytesPerSec() const { return sum(processes, &ProcessSample::networkInBytesPerSec); }
uint64_t AppGroup::networkBytesIn() const { return sum(processes, &ProcessSample::networkBytesIn); }
uint64_t AppGroup::networkBytesOut() const { return sum(processes, &ProcessSample::networkBytesOut); }
double AppGroup::networkOutBytesPerSec() const { return sum(processes, &ProcessSample::networkOutBytesPerSec); }
double AppGroup::idleWakeupsPerSec() const { return sum(processes, &ProcessSample::idleWakeupsPerSec); }
double AppGroup::gpuPercent() const { return sum(processes, &ProcessSample::gpuPercent); }

nlohmann::ordered_json AppGroup::toJSON() const {
  nlohmann::ordered_json json;
  json["id"] = id;
  json["name"] = name;
  json["kind"] = std::string(rawValue(kind));
  if (bundlePath) json["bundlePath"] = *bundlePath;
  json["processCount"] = processCount();
  json["cpuPercent"] = cpuPercent();
  json["memoryBytes"] = memoryBytes();
  json["powerWatts"] = powerWatts();
  json["energyJoules"] = energyJoules();
  json["diskReadBytesPerSec"] = diskReadBytesPerSec();
  json["diskWriteBytesPerSec"] = diskWriteBytesPerSec();
  json["networkInBytesPerSec"] = networkInBytesPerSec();
  json["networkOutBytesPerSec"] = networkOutBytesPerSec();
  json["idleWakeupsPerSec"] = idleWakeupsPerSec();
  json["gpuPercent"] = gpuPercent();
  auto& list = json["processes"] = nlohmann::ordered_json::array();
  for (const auto& process : processes) list.push_back(process.toJSON());
  return json;
}

}  // namespace omnira
