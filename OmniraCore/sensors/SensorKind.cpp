#include "OmniraCore/sensors/SensorKind.h"

namespace omnira {

std::string_view rawValue(SensorKind kind) {
  switch (kind) {
    case SensorKind::cpu: return "cpu";
    case SensorKind::gpu: return "gpu";
    case SensorKind::memory: return "memory";
    case SensorKind::storage: return "storage";
    case SensorKind::battery: return "battery";
    case SensorKind::board: return "board";
    case SensorKind::ambient: return "ambient";
    case SensorKind::other: return "other";
  }
  return "other";
}

}  // namespace omnira
