#pragma once
// The platform seam of the system sampler: raw, cumulative readings of the machine.
// The sampler turns them into rates; a platform only reads. Every reading may be
// absent (a missing file, an unsupported kernel): the sampler then reports zeros or
// leaves an optional figure out, never an error.
// An implementation is owned by one SystemSampler and touched only by the thread
// that currently owns that sampler.

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/sampling/BatterySample.h"

namespace omnira {

// Cumulative time of one core, in the kernel's ticks.
struct CoreTicks {
  uint64_t user = 0;
  uint64_t nice = 0;
  uint64_t system = 0;
  uint64_t idle = 0;
  friend bool operator==(const CoreTicks&, const CoreTicks&) = default;
};

struct MemoryReading {
  uint64_t total = 0;
  uint64_t app = 0;
  uint64_t wired = 0;
  uint64_t compressed = 0;
  uint64_t cached = 0;
  uint64_t swapUsed = 0;
  // Memory the kernel could hand out without swapping; absent where it cannot tell.
  std::optional<uint64_t> available;
};

// Pressure-stall figures: share of the last 10 s in which some or all tasks waited on memory, in percent.
struct MemoryStall {
  double someAvg10 = 0;
  double fullAvg10 = 0;
};

struct ByteCounters {
  uint64_t received = 0;  // or read, for disks
  uint64_t sent = 0;      // or written
  friend bool operator==(const ByteCounters&, const ByteCounters&) = default;
};

struct DiskSpace {
  uint64_t total = 0;
  uint64_t available = 0;
};

class SystemSource {
 public:
  virtual ~SystemSource() = default;

  virtual std::vector<CoreTicks> coreTicks() = 0;  // empty when unreadable
  virtual std::optional<MemoryReading> memory() = 0;
  virtual std::optional<MemoryStall> memoryStall() = 0;
  // Per counted interface, keyed by name.
  virtual std::map<std::string, ByteCounters> interfaceCounters() = 0;
  // Summed over whole physical disks.
  virtual std::optional<ByteCounters> diskCounters() = 0;
  virtual std::optional<DiskSpace> diskSpace() = 0;
  virtual std::optional<BatterySample> battery() = 0;
  virtual std::optional<double> loadAverage() = 0;
  virtual std::optional<Date> bootTime() = 0;
  virtual std::optional<double> uptimeSeconds() = 0;

  // Clocks, behind the seam so tests can step time.
  virtual uint64_t monotonicNanoseconds() = 0;  // counts time asleep
  // Stands still while the computer is suspended; the gap between the two clocks over a
  // tick is how long the computer slept in it.
  virtual uint64_t awakeNanoseconds() = 0;
  virtual Date now() = 0;
};

}  // namespace omnira
