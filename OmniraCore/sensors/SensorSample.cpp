#include "OmniraCore/sensors/SensorSample.h"

#include <algorithm>
#include <cmath>

namespace omnira {

namespace {

using json = nlohmann::ordered_json;

template <class T>
json orNull(const std::optional<T>& value) {
  return value ? json(*value) : json();
}

double round1(double value) { return std::round(value * 10) / 10; }

json optionalRounded(const std::optional<double>& value) {
  return value ? json(round1(*value)) : json();
}

}  // namespace

bool SensorSample::empty() const {
  return temperatures.empty() && fans.empty() && powers.empty() && gpus.empty() && npus.empty() &&
         !throttledCPUs;
}

std::optional<ThermalSample> SensorSample::thermal() const {
  if (!hasTemperature() && fans.empty()) return std::nullopt;
  ThermalSample sample{cpuCelsius, hottestCelsius, {}};
  for (const auto& fan : fans)
    if (fan.rpm) sample.fanRPM.push_back(*fan.rpm);
  return sample;
}

std::optional<double> SensorSample::gpuBusy() const {
  std::optional<double> busiest;
  for (const auto& gpu : gpus)
    if (gpu.busy) busiest = std::max(busiest.value_or(0.0), *gpu.busy);
  return busiest;
}

std::optional<uint64_t> SensorSample::gpuMemoryBytes() const {
  std::optional<uint64_t> total;
  for (const auto& gpu : gpus)
    if (gpu.memoryUsedBytes) total = total.value_or(0) + *gpu.memoryUsedBytes;
  return total;
}

std::optional<double> SensorSample::npuBusy() const {
  std::optional<double> busiest;
  for (const auto& npu : npus)
    if (npu.busy) busiest = std::max(busiest.value_or(0.0), *npu.busy);
  return busiest;
}

json SensorSample::toJSON() const {
  json j;
  j["cpu_celsius"] = optionalRounded(cpuCelsius);
  j["hottest_celsius"] = optionalRounded(hottestCelsius);
  j["hottest_sensor"] = hottestName.empty() ? json() : json(hottestName);
  j["system_watts"] = optionalRounded(systemWatts);
  j["cpu_watts"] = optionalRounded(cpuWatts);
  j["throttled_cpus"] = orNull(throttledCPUs);
  j["throttled_percent"] = throttledShare ? json(round1(*throttledShare * 100)) : json();
  auto& temps = j["temperatures"] = json::array();
  for (const auto& t : temperatures)
    temps.push_back({{"name", t.name},
                     {"chip", t.chip},
                     {"kind", rawValue(t.kind)},
                     {"celsius", round1(t.celsius)},
                     {"hot_celsius", optionalRounded(t.hotCelsius)},
                     {"critical_celsius", optionalRounded(t.criticalCelsius)},
                     {"source", t.source}});
  auto& fanList = j["fans"] = json::array();
  for (const auto& f : fans)
    fanList.push_back({{"index", f.index},
                       {"chip", f.chip},
                       {"label", f.label},
                       {"rpm", optionalRounded(f.rpm)},
                       {"minimum_rpm", optionalRounded(f.minimumRPM)},
                       {"maximum_rpm", optionalRounded(f.maximumRPM)},
                       {"target_rpm", optionalRounded(f.targetRPM)},
                       {"mode", rawValue(f.mode)},
                       {"source", f.source}});
  auto& powerList = j["power"] = json::array();
  for (const auto& p : powers)
    powerList.push_back({{"kind", rawValue(p.kind)}, {"name", p.name}, {"watts", round1(p.watts)}, {"source", p.source}});
  if (!powerNote.empty()) j["power_note"] = powerNote;
  auto& gpuList = j["gpus"] = json::array();
  for (const auto& g : gpus)
    gpuList.push_back({{"name", g.name},
                       {"driver", g.driver},
                       {"busy_percent", g.busy ? json(round1(*g.busy * 100)) : json()},
                       {"memory_used_bytes", orNull(g.memoryUsedBytes)},
                       {"memory_total_bytes", orNull(g.memoryTotalBytes)},
                       {"frequency_mhz", optionalRounded(g.frequencyMHz)},
                       {"source", g.source}});
  auto& npuList = j["npus"] = json::array();
  for (const auto& n : npus)
    npuList.push_back({{"name", n.name},
                       {"driver", n.driver},
                       {"busy_percent", n.busy ? json(round1(*n.busy * 100)) : json()},
                       {"source", n.source}});
  return j;
}

}  // namespace omnira
