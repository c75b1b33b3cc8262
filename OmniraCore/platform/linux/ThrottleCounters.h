#pragma once
// /sys/devices/system/cpu/cpu*/thermal_throttle: how often and for how long each CPU was
// slowed down because it ran too hot (Intel; AMD and ARM machines have no such folder).

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "OmniraCore/platform/linux/Roots.h"

namespace omnira::platform {

// https://www.kernel.org/doc/Documentation/ABI/testing/sysfs-devices-system-cpu
// One counter file ("17\n"): a count or milliseconds since boot. Absent for empty,
// garbled or negative text.
std::optional<uint64_t> parseThrottleCounter(std::string_view text);

// One CPU's counters; a counter its kernel does not provide stays absent. The package
// figures are shared by every CPU of the package.
struct CPUThrottleCounters {
  unsigned cpu = 0;
  std::optional<uint64_t> coreCount;
  std::optional<uint64_t> packageCount;
  std::optional<uint64_t> coreMilliseconds;
  std::optional<uint64_t> packageMilliseconds;

  friend bool operator==(const CPUThrottleCounters&, const CPUThrottleCounters&) = default;
};

// What happened between two readings.
struct ThrottleStep {
  int throttledCPUs = 0;  // CPUs whose core or package counters or times went up
  // The largest share of the interval (0...1) one CPU spent throttled, from the time
  // counters; absent when neither reading has them or the interval is not positive.
  std::optional<double> throttledShare;

  friend bool operator==(const ThrottleStep&, const ThrottleStep&) = default;
};

// CPUs are matched by number; a CPU missing from either reading adds nothing. A counter
// that went down (the CPU was taken offline and back, or the module reloaded) is a new
// baseline and adds nothing either.
ThrottleStep throttleStep(const std::vector<CPUThrottleCounters>& before,
                          const std::vector<CPUThrottleCounters>& after, double intervalSeconds);

// Reads the counters of every CPU under a sysfs root. Owned and used by one thread (the
// sensor sampler's). The CPUs' thermal_throttle folders are found once and kept open; a
// tick reads only the counter files. It looks again when one of them vanishes (a CPU went
// offline) or on rediscover(); a CPU brought online later is picked up by rediscover().
class ThrottleCounterReader {
 public:
  explicit ThrottleCounterReader(Roots roots);
  ~ThrottleCounterReader();
  ThrottleCounterReader(ThrottleCounterReader&&) noexcept;
  ThrottleCounterReader& operator=(ThrottleCounterReader&&) noexcept;

  // By CPU number; empty on machines without the counters.
  std::vector<CPUThrottleCounters> read();

  void rediscover();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace omnira::platform
