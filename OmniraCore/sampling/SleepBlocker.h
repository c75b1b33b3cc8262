#pragma once
// Something that keeps the computer from sleeping: who holds the block, why, and what it
// blocks. A plain value.

#include <cstdint>
#include <string>

namespace omnira {

struct SleepBlocker {
  std::string who;   // "GNOME Shell", "Firefox"
  std::string why;   // "Playing video"
  std::string what;  // "sleep", "idle", "shutdown:sleep", ...
  int32_t pid = 0;
  friend bool operator==(const SleepBlocker&, const SleepBlocker&) = default;
};

}  // namespace omnira
