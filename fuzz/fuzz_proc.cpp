// The parsers of one /proc file's text: stat, status, io, schedstat, meminfo, pressure,
// diskstats, cmdline, smaps_rollup, the kernel's stat, net/tcp, drm fdinfo, and the
// socket diagnostics dump (bytes from netlink).

#include <cstdint>
#include <cstring>
#include <vector>

#include "OmniraCore/platform/linux/Cmdline.h"
#include "OmniraCore/platform/linux/DiskStats.h"
#include "OmniraCore/platform/linux/DrmFdinfo.h"
#include "OmniraCore/platform/linux/KernelStat.h"
#include "OmniraCore/platform/linux/ListeningSockets.h"
#include "OmniraCore/platform/linux/MemInfo.h"
#include "OmniraCore/platform/linux/PidIO.h"
#include "OmniraCore/platform/linux/PidSchedStat.h"
#include "OmniraCore/platform/linux/PidStat.h"
#include "OmniraCore/platform/linux/PidStatus.h"
#include "OmniraCore/platform/linux/PressureStall.h"
#include "OmniraCore/platform/linux/SmapsRollup.h"
#include "OmniraCore/platform/linux/SocketDiagnostics.h"
#include "fuzz/FuzzInput.h"

using namespace omnira;
using namespace omnira::platform;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto input = fuzz::split(data, size, 14);
  const auto text = input.text;
  switch (input.selector) {
    case 0: fuzz::keep(parsePidStat(text)); break;
    case 1: fuzz::keep(parsePidStatus(text)); break;
    case 2: fuzz::keep(parsePidIO(text)); break;
    case 3: fuzz::keep(parsePidSchedStat(text)); break;
    case 4: fuzz::keep(parseMemInfo(text)); break;
    case 5: fuzz::keep(parseZramMemoryUsed(text)); break;
    case 6: fuzz::keep(parseMemoryStall(text)); break;
    case 7: fuzz::keep(parseDiskStats(text)); break;
    case 8: {
      // Arguments are the NUL-separated pieces: none may hold a NUL itself.
      for (const auto& argument : parseCmdline(text))
        if (argument.find('\0') != std::string::npos) __builtin_trap();
      break;
    }
    case 9: fuzz::keep(parseSmapsRollup(text)); break;
    case 10: fuzz::keep(parseKernelStat(text)); break;
    case 11: fuzz::keep(parseListeningSockets(text)); break;
    case 12: fuzz::keep(parseDrmFdinfo(text)); break;
    case 13: {
      // Netlink hands over aligned buffers; copying keeps the fuzzer's odd offset out of it.
      std::vector<uint8_t> bytes(text.begin(), text.end());
      std::vector<TCPSocket> sockets;
      fuzz::keep(parseInetDiagMessages(bytes, sockets));
      break;
    }
  }
  return 0;
}
