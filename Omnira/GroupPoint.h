#pragma once
// One point of an app's live chart: what the app used over the tick that ended at `date`.
// A plain value of the monitor store, saved with the live history.

#include <cstdint>

#include "OmniraCore/foundation/Date.h"

namespace omnira {

struct GroupPoint {
  Date date{};
  double cpu = 0;                 // percent of one core
  uint64_t memory = 0;            // bytes
  double power = 0;               // watts
  double disk = 0;                // bytes per second read and written
  double network = 0;             // bytes per second in and out
  friend bool operator==(const GroupPoint&, const GroupPoint&) = default;
};

}  // namespace omnira
