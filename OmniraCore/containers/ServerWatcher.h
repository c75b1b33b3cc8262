#pragma once
// Dev servers left running with nobody using them. A dev server is a process of the
// person's that listens on a TCP port and works in a project folder; it is idle once it
// has gone kIdleAfter without any connection to its ports and without using more than
// kBusyCPUPercent of a core. Fed once per process tick where ports are known; what it
// finds goes to the insight engine.
//
// Owned by the store, on its thread.

#include <chrono>
#include <cstdint>
#include <map>
#include <utility>
#include <vector>

#include "OmniraCore/containers/Ports.h"
#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/history/IdleServer.h"
#include "OmniraCore/sampling/AppGroup.h"

namespace omnira {

class ServerWatcher {
 public:
  static constexpr std::chrono::minutes kIdleAfter{30};
  static constexpr double kBusyCPUPercent = 1.0;

  // The idle dev servers as of `now`, by pid. `ports` are the person's (Port::of).
  std::vector<IdleServer> ingest(const std::vector<Port>& ports, const std::vector<AppGroup>& groups, Date now);

 private:
  struct Watched {
    Date lastActive;
  };
  std::map<std::pair<int32_t, Date>, Watched> watched_;  // by pid and start time: a reused pid starts afresh
};

}  // namespace omnira
