#include "OmniraCore/metrics/SelfCost.h"

#include <sys/resource.h>
#include <unistd.h>

#include "OmniraCore/foundation/Parse.h"
#include "OmniraCore/platform/linux/FileText.h"

namespace omnira::platform {

Result<uint64_t, ParseFailure> parseResidentPages(std::string_view statm) {
  const auto fields = splitFields(trim(statm));
  if (fields.size() < 2) return fail(ParseFailure{"statm has fewer than two fields"});
  const auto resident = parseNumber<uint64_t>(fields[1]);
  if (!resident || *resident > UINT64_MAX / (1 << 16)) return fail(ParseFailure{"statm's resident field is no page count"});
  return *resident;
}

SelfCost readSelfCost(const Roots& roots) {
  SelfCost cost;
  rusage usage{};
  if (::getrusage(RUSAGE_SELF, &usage) == 0) {
    const auto seconds = [](const timeval& t) { return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6; };
    cost.cpuSeconds = seconds(usage.ru_utime) + seconds(usage.ru_stime);
  }
  if (auto text = readTextFile(roots.proc / "self" / "statm")) {
    const long page = ::sysconf(_SC_PAGESIZE);
    if (auto pages = parseResidentPages(*text); pages && page > 0) cost.residentBytes = *pages * static_cast<uint64_t>(page);
  }
  return cost;
}

MachineCounters machineCounters(SystemSource& source, double ticksPerSecond) {
  MachineCounters counters;
  if (ticksPerSecond > 0) {
    for (const auto& ticks : source.coreTicks()) {
      counters.cores.push_back({static_cast<double>(ticks.user) / ticksPerSecond, static_cast<double>(ticks.nice) / ticksPerSecond,
                                static_cast<double>(ticks.system) / ticksPerSecond, static_cast<double>(ticks.idle) / ticksPerSecond});
    }
  }
  const auto interfaces = source.interfaceCounters();
  if (!interfaces.empty()) {
    uint64_t received = 0, sent = 0;
    for (const auto& [name, bytes] : interfaces) received += bytes.received, sent += bytes.sent;
    counters.networkReceived = received;
    counters.networkSent = sent;
  }
  if (const auto disk = source.diskCounters()) {
    counters.diskRead = disk->received;
    counters.diskWritten = disk->sent;
  }
  return counters;
}

}  // namespace omnira::platform
