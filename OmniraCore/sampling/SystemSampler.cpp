#include "OmniraCore/sampling/SystemSampler.h"

#include <cstdlib>

#include "OmniraCore/sampling/CounterDelta.h"

namespace omnira {

namespace {

// Wrapping difference of two tick counters. A 64-bit tick counter does not wrap in
// practice, but per-core iowait is documented to step backwards now and then; such a
// "difference" lands in the upper half of the range and counts as nothing.
uint64_t tickDelta(uint64_t older, uint64_t newer) {
  const uint64_t delta = newer - older;
  return delta > (UINT64_MAX >> 1) ? 0 : delta;
}

double secondsBetween(uint64_t olderNs, uint64_t newerNs) {
  return newerNs > olderNs ? static_cast<double>(newerNs - olderNs) / 1e9 : 0.0;
}

}  // namespace

MemoryPressure pressureLevel(const std::optional<MemoryStall>& stall, std::optional<uint64_t> available,
                             uint64_t total) {
  std::optional<double> availablePercent;
  if (available && total > 0)
    availablePercent = static_cast<double>(*available) * 100.0 / static_cast<double>(total);
  using T = PressureThresholds;
  if ((stall && stall->fullAvg10 >= T::criticalFullAvg10) ||
      (availablePercent && *availablePercent < T::criticalAvailablePercent))
    return MemoryPressure::critical;
  if ((stall && stall->someAvg10 >= T::warningSomeAvg10) ||
      (availablePercent && *availablePercent < T::warningAvailablePercent))
    return MemoryPressure::warning;
  return MemoryPressure::normal;
}

CPUShares cpuShares(const std::vector<CoreTicks>& older, const std::vector<CoreTicks>& newer) {
  CPUShares shares;
  if (older.size() != newer.size() || newer.empty()) return shares;
  shares.perCore.reserve(newer.size());
  double busySum = 0, systemSum = 0, totalSum = 0;
  for (size_t i = 0; i < newer.size(); ++i) {
    const double user = static_cast<double>(tickDelta(older[i].user, newer[i].user));
    const double nice = static_cast<double>(tickDelta(older[i].nice, newer[i].nice));
    const double system = static_cast<double>(tickDelta(older[i].system, newer[i].system));
    const double idle = static_cast<double>(tickDelta(older[i].idle, newer[i].idle));
    const double busy = user + nice + system;
    const double total = busy + idle;
    shares.perCore.push_back(total > 0 ? busy / total : 0.0);
    busySum += busy;
    systemSum += system;
    totalSum += total;
  }
  if (totalSum <= 0) return CPUShares{0, 0, std::vector<double>(newer.size(), 0.0)};
  shares.user = (busySum - systemSum) / totalSum;
  shares.system = systemSum / totalSum;
  return shares;
}

SystemSampler::SystemSampler(std::unique_ptr<SystemSource> source) : source_(std::move(source)) {}

CPUShares SystemSampler::sampleCPU() {
  auto ticks = source_->coreTicks();
  if (ticks.empty()) return {};
  if (ticks.size() != lastCoreTicks_.size()) {
    lastCoreTicks_ = std::move(ticks);
    return {};
  }
  auto shares = cpuShares(lastCoreTicks_, ticks);
  lastCoreTicks_ = std::move(ticks);
  return shares;
}

MemoryReading SystemSampler::sampleMemory() { return source_->memory().value_or(MemoryReading{}); }

ByteRates SystemSampler::sampleNetwork(double interval) {
  auto current = source_->interfaceCounters();
  ByteCounters sum;
  if (interval > 0) {
    for (const auto& [name, now] : current) {
      auto before = lastNetwork_.find(name);
      if (before == lastNetwork_.end()) continue;  // first seen: counts from the next tick
      const uint64_t in = plausibleDelta(before->second.received, now.received, interval);
      const uint64_t out = plausibleDelta(before->second.sent, now.sent, interval);
      if (__builtin_add_overflow(sum.received, in, &sum.received) ||
          __builtin_add_overflow(sum.sent, out, &sum.sent))
        std::abort();  // no sum of plausible deltas gets near 2^64
    }
  }
  lastNetwork_ = std::move(current);
  lastNetworkBytes_ = sum;
  if (interval <= 0) return {};
  return ByteRates{static_cast<double>(sum.received) / interval, static_cast<double>(sum.sent) / interval};
}

ByteRates SystemSampler::sampleDisk(double interval) {
  auto current = source_->diskCounters();
  ByteRates rates;
  if (current && lastDisk_ && interval > 0) {
    const uint64_t read = current->received >= lastDisk_->received ? current->received - lastDisk_->received : 0;
    const uint64_t written = current->sent >= lastDisk_->sent ? current->sent - lastDisk_->sent : 0;
    rates = {static_cast<double>(read) / interval, static_cast<double>(written) / interval};
  }
  if (current) lastDisk_ = current;
  return rates;
}

MemoryPressure SystemSampler::samplePressure(const MemoryReading& memory) {
  return pressureLevel(source_->memoryStall(), memory.available, memory.total);
}

SystemSample SystemSampler::sample() {
  const uint64_t now = source_->monotonicNanoseconds();
  if (lastSample_ && lastSampleAt_ != 0 && now - lastSampleAt_ < reuseWindowNanoseconds) return *lastSample_;
  const uint64_t awake = source_->awakeNanoseconds();
  double interval = lastSampleAt_ == 0 ? 0.0 : secondsBetween(lastSampleAt_, now);
  double slept = 0;
  if (lastSampleAt_ != 0 && interval - secondsBetween(lastSampleAwakeAt_, awake) >= suspendedSeconds) {
    // The counters stood still while the clock ran on: rates over this span would spread
    // the last awake seconds over the whole night.
    slept = interval - secondsBetween(lastSampleAwakeAt_, awake);
    interval = 0;
    lastCoreTicks_.clear();
  }

  SystemSample s;
  const auto cpu = sampleCPU();
  s.cpuUser = cpu.user;
  s.cpuSystem = cpu.system;
  s.cpuPerCore = cpu.perCore;

  const auto memory = sampleMemory();
  s.memoryTotal = memory.total;
  s.memoryApp = memory.app;
  s.memoryWired = memory.wired;
  s.memoryCompressed = memory.compressed;
  s.memoryCached = memory.cached;

  const auto network = sampleNetwork(interval);
  s.networkInBytesPerSec = network.in;
  s.networkOutBytesPerSec = network.out;
  s.networkBytesReceived = lastNetworkBytes_.received;
  s.networkBytesSent = lastNetworkBytes_.sent;
  const auto disk = sampleDisk(interval);
  s.diskReadBytesPerSec = disk.in;
  s.diskWriteBytesPerSec = disk.out;
  // No GPU reading on this platform yet: gpuUtilization and gpuMemoryBytes stay absent.

  if (diskSpaceAt_ == 0 || secondsBetween(diskSpaceAt_, now) > diskSpaceMaxAgeSeconds) {
    diskSpace_ = source_->diskSpace();
    diskSpaceAt_ = now;
  }
  if (diskSpace_) {
    s.diskTotal = diskSpace_->total;
    s.diskAvailable = diskSpace_->available;
  }
  if (!batteryRead_ || secondsBetween(batteryAt_, now) > batteryMaxAgeSeconds) {
    battery_ = source_->battery();
    batteryAt_ = now;
    batteryRead_ = true;
  }
  s.battery = battery_;

  s.loadAverage = source_->loadAverage().value_or(0.0);
  s.swapUsed = memory.swapUsed;
  s.pressure = samplePressure(memory);

  if (!bootTimeRead_) {
    bootTime_ = source_->bootTime();
    bootTimeRead_ = true;
  }
  const Date date = source_->now();
  if (bootTime_) {
    s.uptime = std::chrono::duration<double>(date - *bootTime_).count();
  } else {
    s.uptime = source_->uptimeSeconds().value_or(0.0);
  }
  if (s.uptime < 0) s.uptime = 0;

  if (memory.available && memory.total > 0) {
    const uint64_t level = *memory.available * 100 / memory.total;  // the kernel's integer percentage
    s.memoryPressureFraction = memoryPressureFraction(static_cast<double>(level));
  }

  s.timestamp = date;
  s.interval = interval;
  s.sleptSeconds = slept;
  lastSample_ = s;
  lastSampleAt_ = now == 0 ? 1 : now;
  lastSampleAwakeAt_ = awake;
  return s;
}

}  // namespace omnira
