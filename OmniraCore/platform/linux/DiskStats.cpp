#include "OmniraCore/platform/linux/DiskStats.h"

#include "OmniraCore/foundation/Parse.h"

namespace omnira::platform {

std::map<std::string, ByteCounters, std::less<>> parseDiskStats(std::string_view text) {
  std::map<std::string, ByteCounters, std::less<>> devices;
  forEachLine(text, [&](std::string_view line) {
    // major minor name reads merged sectors-read ms writes merged sectors-written ...
    auto fields = splitFields(line);
    if (fields.size() < 10) return;
    auto read = parseNumber<uint64_t>(fields[5]);
    auto written = parseNumber<uint64_t>(fields[9]);
    if (!read || !written) return;
    uint64_t readBytes = 0, writtenBytes = 0;
    if (__builtin_mul_overflow(*read, uint64_t{512}, &readBytes) ||
        __builtin_mul_overflow(*written, uint64_t{512}, &writtenBytes))
      return;
    devices[std::string(fields[2])] = ByteCounters{readBytes, writtenBytes};
  });
  return devices;
}

}  // namespace omnira::platform
