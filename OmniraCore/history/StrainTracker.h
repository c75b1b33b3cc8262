#pragma once
// Smooths the strained parts tick by tick and remembers since when each has been strained.
// A plain value owned by the monitor store and changed only during its tick on the main
// thread; it takes no lock.

#include <chrono>
#include <map>
#include <set>

#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/history/StrainKind.h"

namespace omnira {

class StrainTracker {
 public:
  // A kind missing from the readings for this long or less keeps its episode, so a
  // reading that flickers around a limit shows as one stretch.
  static constexpr std::chrono::seconds grace{30};

  // Records one tick's strained kinds. Returns true when `since` changed, so that the
  // caller republishes only then.
  bool note(const std::set<StrainKind>& kinds, Date at);

  // For every kind under strain now, when its current episode began.
  const std::map<StrainKind, Date>& since() const { return since_; }

 private:
  std::map<StrainKind, Date> since_;
  std::map<StrainKind, Date> began_;
  std::map<StrainKind, Date> lastSeen_;
};

}  // namespace omnira
