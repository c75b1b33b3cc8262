#pragma once
// Turns the running processes into ProcessSamples once per process tick, keeping each
// process's previous counters so every rate is a delta over the time since that process
// was last read.
//
// Ownership and threads: a ProcessSampler owns its ProcessSource and all its state. It is
// owned by one thread at a time (the sampling worker) and is not locked; only the
// returned samples cross threads.
//
// Identity: a process seen before is the same process only when its pid and its start
// time both match; a reused pid starts afresh, with no rates. A process that runs a new
// program (exec: same pid and start time, new name) keeps its counters and has its
// path, arguments and helper role read again. Exited processes are forgotten.
//
// Failures: none reach the caller. A process that vanishes mid-read is left out. One
// whose CPU and memory could not be read is left out too and counted as unmeasured:
// no figure of it is shown. Another user's process, whose disk counters are not ours
// to read, is measured all the same (CPU, memory, wake-ups): it is kept with
// hasMetrics false, no disk rates, and counted in withoutDiskCount().
//
// Power: the kernel counts no energy per process, so each process's power and energy
// are estimated from its CPU time (EnergyEstimate::fromCPUTime).

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "OmniraCore/sampling/ProcessDetails.h"
#include "OmniraCore/sampling/ProcessNetwork.h"
#include "OmniraCore/sampling/ProcessSample.h"
#include "OmniraCore/sampling/ProcessSource.h"

namespace omnira {

class ProcessSampler {
 public:
  using Details = ProcessDetails;

  // Linux keeps no per-process energy counter: power is estimated from CPU time.
  static constexpr bool kernelCountsEnergy = false;

  // Files whose presence makes a folder the root of a developer project.
  static constexpr const char* kProjectMarkers[] = {
      ".git",    "package.json", "Cargo.toml",   "go.mod",        "pyproject.toml", "CMakeLists.txt",
      "Gemfile", "pom.xml",      "build.gradle", "composer.json", "deno.json",
  };

  struct Options {
    // Shared pages count once in every process that maps them, so summing the kernel's
    // per-process resident figures over an app's processes overstates it. Pages are
    // shared when mapped shared (shared memory) or when a forked process still shares
    // its parent's anonymous pages; exec drops them, so only processes with shared
    // memory, or whose parent or child runs the same executable, can be overstated.
    // The largest of those are refined with their proportional share. Reading that
    // share walks all of a process's mappings and can take milliseconds for a big one,
    // so each tick spends at most this budget on it (always at least one read), on the
    // biggest processes whose share is older than the maximum age; between refreshes a
    // process's raw footprint is scaled by its last ratio. One millisecond is about what
    // reading a hundred processes' counters costs.
    uint64_t memoryRefinementBudgetNanoseconds = 1'000'000;
    double memoryRefinementMaxAgeSeconds = 30;
    uint64_t memoryRefinementMinimumBytes = 16ull << 20;  // below this the overstatement hardly matters

    double workingDirectoryMaxAgeSeconds = 10;
    double projectMarkerMaxAgeSeconds = 60;
    // A project root is never the home folder itself. Default: $HOME.
    std::optional<std::string> homeDirectory;

    // Disk counters of the processes whose own could not be read (other users' without
    // root), asked of someone allowed to read them (the privileged helper), once per
    // sample for all of them. Pids it leaves out stay without disk figures. Empty: none
    // is asked. Called on the sampler's thread.
    struct DiskCounters {
      uint64_t readBytes = 0;
      uint64_t writtenBytes = 0;
    };
    std::function<std::unordered_map<int32_t, DiskCounters>(const std::vector<int32_t>&)> privilegedDisk;
  };

  explicit ProcessSampler(std::unique_ptr<ProcessSource> source);
  ProcessSampler(std::unique_ptr<ProcessSource> source, Options options);
  ~ProcessSampler();
  ProcessSampler(ProcessSampler&&) noexcept;
  ProcessSampler& operator=(ProcessSampler&&) noexcept;

  // All processes that could be read, in pid order. GPU and Neural Engine figures stay
  // 0 on Linux; `projects` fills projectPath and listeningPorts, which are left empty
  // otherwise; `network` measures the network rates (TCP only: the bytes of the sockets
  // a process holds, over the time since the last sample that measured network; the
  // first such sample is a baseline and rates are 0). A sample that does not measure
  // network carries each process's last measured rates: network is measured less often
  // than processes are read, and history books rates over the time until the next
  // sample, so rates of 0 in between would lose the bytes of those stretches.
  std::vector<ProcessSample> sample(Details details = {});

  // The details the last sample really filled: of those asked for, the ones this
  // platform measures (projects; network where the socket list could be read; GPU and
  // Neural Engine not yet).
  Details measuredDetails() const { return measured_; }
  // Processes running at the last sample that it left out because their figures could
  // not be read (not those that exited meanwhile).
  size_t unmeasuredCount() const { return unmeasured_; }
  // Processes of the last sample shown without disk figures: another user's, read
  // without the right to its I/O counters.
  size_t withoutDiskCount() const { return withoutDisk_; }
  // Processes whose counters are kept for the next sample.
  size_t trackedCount() const { return tracked_.size(); }
  // The machine's TCP sockets as the last sample that asked for network or projects
  // listed them, and the holders found of those that carried bytes, listen, or connect
  // two of this machine's processes. Empty where the platform cannot list sockets.
  const std::vector<TCPSocket>& lastSockets() const { return lastSockets_; }
  const ProcessNetwork::Owners& socketHolders() const { return socketHolders_; }

 private:
  struct Tracked;
  struct MarkerCheck {
    bool hasMarker = false;
    uint64_t checkedAt = 0;
  };

  Tracked* admit(int32_t pid, uint64_t now);
  void refineMemory(std::vector<ProcessSample>& samples, uint64_t now);
  // Disk rates of the samples without their own, from Options::privilegedDisk.
  void askPrivilegedDisk(std::vector<ProcessSample>& samples, uint64_t now);
  void findProjects(std::vector<ProcessSample>& samples, const std::vector<TCPSocket>* sockets, uint64_t now);
  void listeningPortsFromSockets(std::vector<ProcessSample>& samples, const std::vector<TCPSocket>& sockets,
                                 uint64_t now);
  std::optional<std::string> projectRoot(const std::string& directory, uint64_t now);
  bool hasProjectMarker(const std::string& directory, uint64_t now);
  void measureNetwork(std::vector<ProcessSample>& samples, const std::vector<TCPSocket>& sockets, uint64_t now);
  // Ties the `candidates` among `sockets` to the processes holding them, where not known yet.
  void findSocketHolders(const std::vector<TCPSocket>& sockets, const std::vector<uint64_t>& candidates,
                         const std::vector<ProcessSample>& samples, uint64_t now);

  std::unique_ptr<ProcessSource> source_;  // declared first: handles in tracked_ go before it
  Options options_;
  std::unordered_map<int32_t, std::unique_ptr<Tracked>> tracked_;
  std::unordered_map<std::string, MarkerCheck> markerChecks_;
  uint64_t generation_ = 0;
  size_t unmeasured_ = 0;
  size_t withoutDisk_ = 0;
  Details measured_;
  // Reused between ticks so that a tick allocates little besides its samples.
  std::vector<int32_t> pids_;
  std::vector<Tracked*> sampled_;  // parallel to the samples of the tick
  ProcessReading reading_;

  // Network: who holds each socket (found by listing descriptors, which is costly, so
  // only for sockets not yet tied to a process), and the sockets whose holder could not
  // be found, not looked for again until kUnheldRetrySeconds later.
  static constexpr double kUnheldRetrySeconds = 30;
  ProcessNetwork network_;
  ProcessNetwork::Owners socketHolders_;
  std::unordered_map<uint64_t, uint64_t> unheld_;  // inode → when it was last looked for
  std::optional<uint64_t> lastNetworkAt_;
  std::vector<TCPSocket> lastSockets_;
};

}  // namespace omnira
