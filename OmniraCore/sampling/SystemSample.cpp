#include "OmniraCore/sampling/SystemSample.h"

#include <fmt/format.h>

#include <cstdlib>

namespace omnira {

void to_json(nlohmann::ordered_json& json, const BatterySample& b) {
  json = nlohmann::ordered_json::object();
  json["level"] = b.level;
  json["charging"] = b.charging;
  json["pluggedIn"] = b.pluggedIn;
  if (b.watts) json["watts"] = *b.watts;
  if (b.healthFraction) json["healthFraction"] = *b.healthFraction;
  if (b.cycleCount) json["cycleCount"] = *b.cycleCount;
  if (b.minutesRemaining) json["minutesRemaining"] = *b.minutesRemaining;
  if (b.temperatureCelsius) json["temperatureCelsius"] = *b.temperatureCelsius;
}

namespace {

template <class T>
void optionalField(const nlohmann::ordered_json& json, const char* key, std::optional<T>& out) {
  auto it = json.find(key);
  if (it != json.end() && !it->is_null()) out = it->template get<T>();
}

}  // namespace

void from_json(const nlohmann::ordered_json& json, BatterySample& b) {
  b.level = json.at("level").get<double>();
  b.charging = json.at("charging").get<bool>();
  b.pluggedIn = json.at("pluggedIn").get<bool>();
  optionalField(json, "watts", b.watts);
  optionalField(json, "healthFraction", b.healthFraction);
  optionalField(json, "cycleCount", b.cycleCount);
  optionalField(json, "minutesRemaining", b.minutesRemaining);
  optionalField(json, "temperatureCelsius", b.temperatureCelsius);
}

uint64_t SystemSample::memoryUsed() const {
  uint64_t sum = 0;
  if (__builtin_add_overflow(memoryApp, memoryWired, &sum) || __builtin_add_overflow(sum, memoryCompressed, &sum))
    std::abort();
  return sum;
}

double SystemSample::memoryUsedFraction() const {
  return memoryTotal == 0 ? 0.0 : static_cast<double>(memoryUsed()) / static_cast<double>(memoryTotal);
}

double SystemSample::diskUsedFraction() const {
  return diskTotal == 0 ? 0.0 : static_cast<double>(diskUsed()) / static_cast<double>(diskTotal);
}

nlohmann::ordered_json SystemSample::toJSON() const {
  nlohmann::ordered_json j = nlohmann::ordered_json::object();
  j["timestamp"] = formatISO8601(timestamp);
  j["cpuUser"] = cpuUser;
  j["cpuSystem"] = cpuSystem;
  j["cpuPerCore"] = cpuPerCore;
  j["loadAverage"] = loadAverage;
  j["memoryTotal"] = memoryTotal;
  j["memoryApp"] = memoryApp;
  j["memoryWired"] = memoryWired;
  j["memoryCompressed"] = memoryCompressed;
  j["memoryCached"] = memoryCached;
  j["swapUsed"] = swapUsed;
  j["pressure"] = static_cast<int>(pressure);
  j["networkInBytesPerSec"] = networkInBytesPerSec;
  j["networkOutBytesPerSec"] = networkOutBytesPerSec;
  j["diskReadBytesPerSec"] = diskReadBytesPerSec;
  j["diskWriteBytesPerSec"] = diskWriteBytesPerSec;
  j["diskTotal"] = diskTotal;
  j["diskAvailable"] = diskAvailable;
  if (gpuUtilization) j["gpuUtilization"] = *gpuUtilization;
  if (gpuMemoryBytes) j["gpuMemoryBytes"] = *gpuMemoryBytes;
  if (neuralEngineActive) j["neuralEngineActive"] = *neuralEngineActive;
  if (neuralEngineWatts) j["neuralEngineWatts"] = *neuralEngineWatts;
  if (neuralEngineBytesPerSec) j["neuralEngineBytesPerSec"] = *neuralEngineBytesPerSec;
  if (battery) j["battery"] = *battery;
  j["uptime"] = uptime;
  j["interval"] = interval;
  return j;
}

Result<SystemSample, SystemSample::DecodeFailure> SystemSample::fromJSON(const nlohmann::ordered_json& j) {
  if (!j.is_object()) return fail(DecodeFailure{"A system sample must be a JSON object."});
  SystemSample s;
  try {
    auto date = parseISO8601(j.at("timestamp").get<std::string>());
    if (!date) return fail(DecodeFailure{"The sample's timestamp is not an ISO 8601 date."});
    s.timestamp = *date;
    s.cpuUser = j.at("cpuUser").get<double>();
    s.cpuSystem = j.at("cpuSystem").get<double>();
    s.cpuPerCore = j.at("cpuPerCore").get<std::vector<double>>();
    s.loadAverage = j.at("loadAverage").get<double>();
    s.memoryTotal = j.at("memoryTotal").get<uint64_t>();
    s.memoryApp = j.at("memoryApp").get<uint64_t>();
    s.memoryWired = j.at("memoryWired").get<uint64_t>();
    s.memoryCompressed = j.at("memoryCompressed").get<uint64_t>();
    s.memoryCached = j.at("memoryCached").get<uint64_t>();
    s.swapUsed = j.at("swapUsed").get<uint64_t>();
    auto pressure = memoryPressureFromRaw(j.at("pressure").get<int>());
    if (!pressure) return fail(DecodeFailure{"The sample's pressure is not a known level."});
    s.pressure = *pressure;
    s.networkInBytesPerSec = j.at("networkInBytesPerSec").get<double>();
    s.networkOutBytesPerSec = j.at("networkOutBytesPerSec").get<double>();
    s.diskReadBytesPerSec = j.at("diskReadBytesPerSec").get<double>();
    s.diskWriteBytesPerSec = j.at("diskWriteBytesPerSec").get<double>();
    s.diskTotal = j.at("diskTotal").get<uint64_t>();
    s.diskAvailable = j.at("diskAvailable").get<uint64_t>();
    optionalField(j, "gpuUtilization", s.gpuUtilization);
    optionalField(j, "gpuMemoryBytes", s.gpuMemoryBytes);
    optionalField(j, "neuralEngineActive", s.neuralEngineActive);
    optionalField(j, "neuralEngineWatts", s.neuralEngineWatts);
    optionalField(j, "neuralEngineBytesPerSec", s.neuralEngineBytesPerSec);
    if (auto it = j.find("battery"); it != j.end() && !it->is_null()) s.battery = it->get<BatterySample>();
    s.uptime = j.at("uptime").get<double>();
    s.interval = j.at("interval").get<double>();
  } catch (const nlohmann::json::exception& e) {
    // Missing keys and wrong types both land here; the message names the key.
    return fail(DecodeFailure{fmt::format("The system sample could not be read: {}", e.what())});
  }
  return s;
}

}  // namespace omnira
