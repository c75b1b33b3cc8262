#pragma once
// One raw, cumulative usage reading of a process: what the kernel has counted since the
// process started. A plain value; rates come from two of them (ProcessSampler).
// Persisted as JSON with the keys "pid", "footprint", "cpuNanoseconds", "diskBytesRead",
// "diskBytesWritten", "energy", "idleWakeups".

#include <cstdint>
#include <string>
#include <type_traits>

#include <nlohmann/json.hpp>

#include "OmniraCore/foundation/Result.h"

namespace omnira {

struct RawUsage {
  int32_t pid = 0;
  uint64_t footprint = 0;         // bytes the process alone keeps in memory
  uint64_t cpuNanoseconds = 0;    // user + system time
  uint64_t diskBytesRead = 0;
  uint64_t diskBytesWritten = 0;
  uint64_t energy = 0;            // nanojoules; 0 where the kernel does not count it
  uint64_t idleWakeups = 0;       // on Linux: voluntary + involuntary context switches

  friend bool operator==(const RawUsage&, const RawUsage&) = default;

  struct DecodeFailure {
    std::string key;  // the missing or mistyped key
  };

  nlohmann::ordered_json toJSON() const {
    return {{"pid", pid},
            {"footprint", footprint},
            {"cpuNanoseconds", cpuNanoseconds},
            {"diskBytesRead", diskBytesRead},
            {"diskBytesWritten", diskBytesWritten},
            {"energy", energy},
            {"idleWakeups", idleWakeups}};
  }

  static Result<RawUsage, DecodeFailure> fromJSON(const nlohmann::ordered_json& json) {
    RawUsage usage;
    auto take = [&json](const char* key, auto& out) -> bool {
      const auto it = json.find(key);
      if (it == json.end()) return false;
      using T = std::decay_t<decltype(out)>;
      if constexpr (std::is_unsigned_v<T>) {
        if (!it->is_number_unsigned()) return false;
        out = it->template get<T>();
      } else {
        if (!it->is_number_integer()) return false;
        const auto value = it->template get<int64_t>();
        if (value < INT32_MIN || value > INT32_MAX) return false;
        out = static_cast<T>(value);
      }
      return true;
    };
    if (!json.is_object()) return fail(DecodeFailure{""});
    if (!take("pid", usage.pid)) return fail(DecodeFailure{"pid"});
    if (!take("footprint", usage.footprint)) return fail(DecodeFailure{"footprint"});
    if (!take("cpuNanoseconds", usage.cpuNanoseconds)) return fail(DecodeFailure{"cpuNanoseconds"});
    if (!take("diskBytesRead", usage.diskBytesRead)) return fail(DecodeFailure{"diskBytesRead"});
    if (!take("diskBytesWritten", usage.diskBytesWritten)) return fail(DecodeFailure{"diskBytesWritten"});
    if (!take("energy", usage.energy)) return fail(DecodeFailure{"energy"});
    if (!take("idleWakeups", usage.idleWakeups)) return fail(DecodeFailure{"idleWakeups"});
    return usage;
  }
};

}  // namespace omnira
