#pragma once
// /proc/PID/io: bytes a process made the storage layer read and write.

#include <cstdint>
#include <string_view>

#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/platform/linux/ParseFailure.h"

namespace omnira::platform {

struct PidIO {
  uint64_t readBytes = 0;   // fetched from storage (not the page cache)
  uint64_t writeBytes = 0;  // sent towards storage
};

// https://docs.kernel.org/filesystems/proc.html (section 3.3, /proc/<pid>/io)
// read_bytes and write_bytes are required; rchar and wchar (any read(2), page cache
// and pipes included) are not disk traffic and are ignored.
Result<PidIO, ParseFailure> parsePidIO(std::string_view text);

}  // namespace omnira::platform
