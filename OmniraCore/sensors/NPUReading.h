#pragma once
// One neural processing unit (kernel accel device) and how busy it was.

#include <optional>
#include <string>

namespace omnira {

struct NPUReading {
  std::string name;    // "accel0"
  std::string driver;  // "intel_vpu", "amdxdna"
  std::optional<double> busy;  // share of time busy since the previous reading, 0...1
  std::string source;

  friend bool operator==(const NPUReading&, const NPUReading&) = default;
};

}  // namespace omnira
