#include "OmniraCore/sensors/FanStatus.h"

namespace omnira {

std::string_view rawValue(FanStatus::Mode mode) {
  switch (mode) {
    case FanStatus::Mode::automatic: return "automatic";
    case FanStatus::Mode::manual: return "manual";
    case FanStatus::Mode::fullSpeed: return "full";
    case FanStatus::Mode::unknown: return "unknown";
  }
  return "unknown";
}

}  // namespace omnira
