#pragma once
// The one rule for turning two readings of a cumulative counter into a delta.
// A counter that went back (reset, wrap, a new process under an old id) counts
// nothing, and a jump no real device or process could make is dropped.

#include <cstdint>

namespace omnira {

inline constexpr double kMaxPlausibleBytesPerSecond = 1e11;

inline uint64_t plausibleDelta(uint64_t older, uint64_t newer, double intervalSeconds) {
  if (newer < older) return 0;
  const uint64_t delta = newer - older;
  if (intervalSeconds <= 1.0) return static_cast<double>(delta) > kMaxPlausibleBytesPerSecond ? 0 : delta;
  return static_cast<double>(delta) <= intervalSeconds * kMaxPlausibleBytesPerSecond ? delta : 0;
}

}  // namespace omnira
