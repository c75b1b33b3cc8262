#pragma once
// Neural processing units under <sys>/class/accel and how busy each was between two
// readings. Intel's NPU driver counts the time its device was busy in npu_busy_time_us;
// other accel drivers give no such count and are listed without a busy share.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OmniraCore/platform/linux/Roots.h"
#include "OmniraCore/sensors/NPUReading.h"

namespace omnira::platform {

// https://docs.kernel.org/accel/introduction.html
// https://www.kernel.org/doc/Documentation/ABI/testing/sysfs-driver-intel-vpu (npu_busy_time_us)
// The busy time in µs since the driver loaded: absent when the text is no count.
std::optional<uint64_t> parseBusyMicroseconds(std::string_view text);

struct AccelDevice {
  std::string name;    // "accel0"
  std::string driver;  // basename of device/driver: "intel_vpu", "amdxdna", ...
  std::optional<uint64_t> busyMicroseconds;
  std::string source;  // "class/accel/accel0"

  friend bool operator==(const AccelDevice&, const AccelDevice&) = default;
};

// Every accel<N> under <sys>/class/accel, in number order; none is an empty list.
std::vector<AccelDevice> readAccelDevices(const Roots& roots);

// The devices of `after`, with the share of `seconds` each spent busy since `before`
// (clamped to 0...1; absent without an earlier count, when the count went back, e.g. the
// driver reloaded, or when `seconds` is not positive).
std::vector<NPUReading> npuReadings(const std::vector<AccelDevice>& before, const std::vector<AccelDevice>& after,
                                    double seconds);

// Keeps the previous reading for the delta. Owned by one sampling thread; not thread-safe.
class AccelNPUReader {
 public:
  explicit AccelNPUReader(Roots roots = {}) : roots_(std::move(roots)) {}

  // `monotonicSeconds`: the time of this reading on a steady clock. The first reading has no busy share.
  std::vector<NPUReading> read(double monotonicSeconds);

 private:
  Roots roots_;
  std::vector<AccelDevice> previous_;
  std::optional<double> previousAt_;
};

}  // namespace omnira::platform
