#pragma once
// What a Linux temperature or power sensor measures, from its driver's name and label.
// Pure functions over small tables; callable from any thread.

#include <string_view>

#include "OmniraCore/sensors/PowerReading.h"
#include "OmniraCore/sensors/SensorKind.h"

namespace omnira::platform {

// `chip` is the hwmon device's name file ("coretemp", "nvme", "applesmc"), `label` its
// tempN_label or empty. Drivers that know their own parts are classified by name; the
// embedded controllers of laptops and Macs by label (applesmc labels are SMC keys:
// TC* cpu, TG* gpu, TM* memory, TH* storage, TB* battery, TA* ambient, else board).
SensorKind sensorKind(std::string_view chip, std::string_view label);

// A thermal zone's type ("x86_pkg_temp", "acpitz", "cpu-thermal", "iwlwifi_1").
SensorKind thermalZoneKind(std::string_view type);

// An hwmon powerN sensor: a GPU driver's is the GPU's, a label naming the whole system
// ("Total System Power") is the machine's, anything else other.
PowerReading::Kind hwmonPowerKind(std::string_view chip, std::string_view label);

}  // namespace omnira::platform
