#include "OmniraCore/sensors/PowerReading.h"

namespace omnira {

std::string_view rawValue(PowerReading::Kind kind) {
  switch (kind) {
    case PowerReading::Kind::cpuPackage: return "cpu_package";
    case PowerReading::Kind::cpuCores: return "cpu_cores";
    case PowerReading::Kind::dram: return "dram";
    case PowerReading::Kind::gpu: return "gpu";
    case PowerReading::Kind::system: return "system";
    case PowerReading::Kind::battery: return "battery";
    case PowerReading::Kind::other: return "other";
  }
  return "other";
}

}  // namespace omnira
