#pragma once
// A process's use of GPUs from the DRM clients it holds open: each open /dev/dri node
// gives a client whose /proc/<pid>/fdinfo/<fd> carries its engine time and memory.

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/platform/linux/ParseFailure.h"
#include "OmniraCore/platform/linux/Roots.h"

namespace omnira::platform {

// One DRM client as its fdinfo tells it. Maps are keyed by the engine or memory region name
// after the prefix ("render", "gfx", "rcs", "vram", "system0").
struct DrmClient {
  std::string driver;  // drm-driver
  std::string pdev;    // drm-pdev ("0000:03:00.0"); empty where the driver leaves it out
  uint64_t clientId = 0;  // drm-client-id: the same client opened through several fds has one id
  std::map<std::string, uint64_t, std::less<>> engineNanoseconds;  // drm-engine-<name>: N ns
  std::map<std::string, uint64_t, std::less<>> engineCapacity;     // drm-engine-capacity-<name>: N units
  std::map<std::string, uint64_t, std::less<>> cycles;             // drm-cycles-<name>
  std::map<std::string, uint64_t, std::less<>> totalCycles;        // drm-total-cycles-<name>
  std::map<std::string, uint64_t, std::less<>> residentBytes;      // drm-resident-<r>, else drm-memory-<r>
  std::map<std::string, uint64_t, std::less<>> totalBytes;         // drm-total-<r>

  friend bool operator==(const DrmClient&, const DrmClient&) = default;
};

// https://docs.kernel.org/gpu/drm-usage-stats.html
// One fdinfo file's text. Fails unless it names a driver and a numeric client id (an fd that
// is no DRM client, or a file cut before those keys). Keys with malformed values are skipped;
// sizes are bytes, KiB or MiB.
Result<DrmClient, ParseFailure> parseDrmFdinfo(std::string_view text);

// The DRM clients that process `pid` holds under `roots.proc`: only fds whose link points
// into /dev/dri/ are looked at, and a client open through several fds counts once (by pdev
// and client id). A process that is gone or not ours to read yields an empty list.
std::vector<DrmClient> readDrmClients(const Roots& roots, pid_t pid);

struct ProcessGPUUse {
  // Share of the interval that the process kept its busiest engine busy, 0...1: its clients'
  // time on each engine is summed per device, then the largest is taken. Absent when no client
  // was seen in both readings with engine figures.
  std::optional<double> busy;
  // Memory the process's clients hold now, all regions (VRAM and system memory the GPU maps)
  // summed: drm-resident figures, else drm-memory ones. Absent when none tells.
  std::optional<uint64_t> memoryBytes;

  friend bool operator==(const ProcessGPUUse&, const ProcessGPUUse&) = default;
};

// The use between two readings of one process `seconds` apart. Engines counted in cycles
// (xe) use Δcycles / Δtotal-cycles; engines in ns use Δns / (seconds × capacity). Clients
// new in `after` have no earlier count and add only their memory.
ProcessGPUUse drmProcessUse(const std::vector<DrmClient>& before, const std::vector<DrmClient>& after, double seconds);

}  // namespace omnira::platform
