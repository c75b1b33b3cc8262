#pragma once
// /proc/diskstats: cumulative sectors read and written per block device.

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/platform/linux/ParseFailure.h"
#include "OmniraCore/sampling/SystemSource.h"

namespace omnira::platform {

// https://docs.kernel.org/admin-guide/iostats.html
// Bytes read and written per device name (sectors are always 512 bytes here,
// whatever the device's own sector size). Malformed lines are skipped.
std::map<std::string, ByteCounters, std::less<>> parseDiskStats(std::string_view text);

}  // namespace omnira::platform
