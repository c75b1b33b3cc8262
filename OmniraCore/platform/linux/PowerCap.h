#pragma once
// RAPL energy counters under /sys/class/powercap, turned into watts over two readings.
// energy_uj is readable by root only on current kernels (a side channel otherwise), so a
// normal user's read fails with `denied`; the privileged helper reads it instead and the
// counts cross the socket as RaplCounter values.

#include <optional>
#include <string_view>
#include <vector>

#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/platform/linux/FileText.h"
#include "OmniraCore/platform/linux/Roots.h"
#include "OmniraCore/sensors/PowerReading.h"
#include "OmniraCore/sensors/RaplCounter.h"

namespace omnira::platform {

// https://docs.kernel.org/power/powercap/powercap.html
// One energy_uj or max_energy_range_uj file: a decimal count of µJ.
std::optional<uint64_t> parseEnergyMicrojoules(std::string_view text);

// Every zone and subzone of the RAPL control types ("intel-rapl", also used by AMD, and
// "intel-rapl-mmio"), in name order. A zone whose counter cannot be read is left out; when
// zones exist but none could be read, the failure of the first is returned (denied for a
// normal user), so callers can tell "ask the helper" from "no RAPL here".
Result<std::vector<RaplCounter>, ReadFailure> readRaplCounters(const Roots& roots);

// Watts of each zone between two readings `seconds` apart. A counter that went down
// wrapped at its max range (or, without one, is a new baseline and yields nothing).
// Zones present in only one reading are left out.
std::vector<PowerReading> raplPower(const std::vector<RaplCounter>& before, const std::vector<RaplCounter>& after,
                                    double seconds);

}  // namespace omnira::platform
