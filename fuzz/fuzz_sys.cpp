// The parsers of one /sys (or /etc) attribute's text: power_supply uevent, hwmon and
// thermal attributes, powercap, throttle counters, drm and accel counters, applesmc keys,
// os-release, and numbered folder names.

#include <cstdint>
#include <string>

#include "OmniraCore/platform/linux/AccelNPU.h"
#include "OmniraCore/platform/linux/AppleSMCSysfs.h"
#include "OmniraCore/platform/linux/DrmGPU.h"
#include "OmniraCore/platform/linux/Hwmon.h"
#include "OmniraCore/platform/linux/OsRelease.h"
#include "OmniraCore/platform/linux/PowerCap.h"
#include "OmniraCore/platform/linux/PowerSupply.h"
#include "OmniraCore/platform/linux/SysfsAttributes.h"
#include "OmniraCore/platform/linux/ThermalZones.h"
#include "OmniraCore/platform/linux/ThrottleCounters.h"
#include "fuzz/FuzzInput.h"

using namespace omnira;
using namespace omnira::platform;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto input = fuzz::split(data, size, 15);
  const auto text = input.text;
  switch (input.selector) {
    case 0: fuzz::keep(parsePowerSupplyEvent(text)); break;
    case 1: fuzz::keep(parseHwmonInteger(text)); break;
    case 2: {
      if (const auto celsius = parseMillidegrees(text)) {
        fuzz::keep(plausibleCelsius(*celsius, SensorKind::cpu));
        fuzz::keep(plausibleLimitCelsius(*celsius));
      }
      break;
    }
    case 3: fuzz::keep(parseMillivolts(text)); break;
    case 4: fuzz::keep(parseMicrowatts(text)); break;
    case 5: fuzz::keep(parseTripType(text)); break;
    case 6: fuzz::keep(parseEnergyMicrojoules(text)); break;
    case 7: fuzz::keep(parseThrottleCounter(text)); break;
    case 8: fuzz::keep(parseDrmCount(text)); break;
    case 9: fuzz::keep(parseCurrentClock(text)); break;
    case 10: fuzz::keep(parseBusyMicroseconds(text)); break;
    case 11: fuzz::keep(parseAppleSMCNumber(text)); break;
    case 12: fuzz::keep(parseAppleSMCCode(text)); break;
    case 13: fuzz::keep(parseOsReleaseName(text)); break;
    case 14: {
      // A name and a prefix, split at the first NUL.
      const auto nul = text.find('\0');
      const auto prefix = nul == std::string_view::npos ? std::string_view("hwmon") : text.substr(nul + 1);
      fuzz::keep(numberAfter(text.substr(0, nul), prefix));
      break;
    }
  }
  return 0;
}
