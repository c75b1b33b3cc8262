#pragma once
// Takes whole-machine readings and turns cumulative counters into rates.
//
// Ownership and threads: a SystemSampler owns its SystemSource and all its state;
// it is owned by one thread at a time (the sampling worker) and is not locked.
// Only the returned SystemSample values cross threads.
// Failures: none. What the platform cannot read is zero or absent in the sample.

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "OmniraCore/sampling/SystemSample.h"
#include "OmniraCore/sampling/SystemSource.h"

namespace omnira {

// Pressure levels from pressure-stall figures and available memory. Kept together so
// the thresholds are tuned in one place.
struct PressureThresholds {
  static constexpr double criticalFullAvg10 = 10.0;   // percent of time all tasks stalled
  static constexpr double warningSomeAvg10 = 10.0;    // percent of time some task stalled
  static constexpr double criticalAvailablePercent = 5.0;
  static constexpr double warningAvailablePercent = 10.0;
};

// Without stall figures only the available-memory tests apply.
MemoryPressure pressureLevel(const std::optional<MemoryStall>& stall, std::optional<uint64_t> available,
                             uint64_t total);

// Busy fractions from two readings of the per-core ticks; the wrapping difference
// keeps a counter that rolled over from reading as a huge jump.
struct CPUShares {
  double user = 0;
  double system = 0;
  std::vector<double> perCore;
};
CPUShares cpuShares(const std::vector<CoreTicks>& older, const std::vector<CoreTicks>& newer);

// Bytes per second: received and sent for networks, read and written for disks.
struct ByteRates {
  double in = 0;
  double out = 0;
};

class SystemSampler {
 public:
  explicit SystemSampler(std::unique_ptr<SystemSource> source);

  // Callers within 0.5 s of the last sample share it, timestamp and all. A sample taken
  // after the computer slept is a new baseline (see SystemSample::sleptSeconds).
  SystemSample sample();

  // The steps of sample(), each usable alone. They update the stored counters.
  CPUShares sampleCPU();
  MemoryReading sampleMemory();
  ByteRates sampleNetwork(double interval);
  ByteRates sampleDisk(double interval);
  MemoryPressure samplePressure(const MemoryReading& memory);
  std::map<std::string, ByteCounters> interfaceCounters() { return source_->interfaceCounters(); }

  static constexpr uint64_t reuseWindowNanoseconds = 500'000'000;
  static constexpr double diskSpaceMaxAgeSeconds = 120;
  static constexpr double batteryMaxAgeSeconds = 10;
  // The two clocks are read one after the other, so they drift apart by microseconds
  // between samples; a second apart is a suspend.
  static constexpr double suspendedSeconds = 1;

 private:
  std::unique_ptr<SystemSource> source_;
  std::vector<CoreTicks> lastCoreTicks_;
  std::map<std::string, ByteCounters> lastNetwork_;
  std::optional<ByteCounters> lastDisk_;
  std::optional<SystemSample> lastSample_;
  uint64_t lastSampleAt_ = 0;  // monotonic ns; 0 = never
  uint64_t lastSampleAwakeAt_ = 0;
  std::optional<DiskSpace> diskSpace_;
  uint64_t diskSpaceAt_ = 0;
  std::optional<BatterySample> battery_;
  uint64_t batteryAt_ = 0;
  bool batteryRead_ = false;
  std::optional<Date> bootTime_;
  bool bootTimeRead_ = false;
  // The bytes behind the last network rates, for callers that keep session totals.
  ByteCounters lastNetworkBytes_;
};

}  // namespace omnira
