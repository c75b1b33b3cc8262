#pragma once
// One whole-machine reading. A plain value; persisted as JSON with fixed keys in a fixed order.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/sampling/BatterySample.h"
#include "OmniraCore/sampling/MemoryPressure.h"

namespace omnira {

struct SystemSample {
  Date timestamp{};
  double cpuUser = 0;    // user + nice over all cores, 0...1
  double cpuSystem = 0;  // system over all cores, 0...1
  std::vector<double> cpuPerCore;
  double loadAverage = 0;
  uint64_t memoryTotal = 0;
  uint64_t memoryApp = 0;
  uint64_t memoryWired = 0;
  uint64_t memoryCompressed = 0;
  uint64_t memoryCached = 0;
  uint64_t swapUsed = 0;
  MemoryPressure pressure = MemoryPressure::normal;
  double networkInBytesPerSec = 0;
  double networkOutBytesPerSec = 0;
  double diskReadBytesPerSec = 0;
  double diskWriteBytesPerSec = 0;
  uint64_t diskTotal = 0;
  uint64_t diskAvailable = 0;
  std::optional<double> gpuUtilization;
  std::optional<uint64_t> gpuMemoryBytes;
  std::optional<bool> neuralEngineActive;
  std::optional<double> neuralEngineWatts;
  std::optional<double> neuralEngineBytesPerSec;
  std::optional<BatterySample> battery;
  double uptime = 0;
  double interval = 0;  // seconds since the previous sample; 0 for the first

  // Carried with the sample but not persisted.
  double memoryPressureFraction = 0;
  uint64_t networkBytesReceived = 0;  // bytes behind the rates, for session totals
  uint64_t networkBytesSent = 0;
  // The computer was suspended this long since the previous sample. Such a sample is a new
  // baseline, like the first: interval 0 and no rates, since the counters stood still
  // while the clock ran on.
  double sleptSeconds = 0;

  double cpu() const { return cpuUser + cpuSystem; }
  // Aborts on overflow: three byte counts of one machine cannot exceed 2^64.
  uint64_t memoryUsed() const;
  double memoryUsedFraction() const;
  uint64_t diskUsed() const { return diskTotal >= diskAvailable ? diskTotal - diskAvailable : 0; }
  double diskUsedFraction() const;

  struct DecodeFailure {
    std::string message;
  };
  nlohmann::ordered_json toJSON() const;
  static Result<SystemSample, DecodeFailure> fromJSON(const nlohmann::ordered_json& json);

  friend bool operator==(const SystemSample&, const SystemSample&) = default;
};

}  // namespace omnira
