#pragma once
// The platform seam of the process sampler: raw per-process readings. A platform only
// reads; ProcessSampler keeps the previous readings and turns them into rates.
//
// Ownership and threads: an implementation is owned by one ProcessSampler and touched
// only by the thread that currently owns that sampler. Handles belong to the source
// that opened them and must be destroyed before it.
//
// Failures: reading one process fails with a ProcessReadFailure; the sampler skips a
// vanished process and counts any other failure as unmeasured. A reading whose disk
// counters alone were denied is no failure (diskMeasured false). The detail readings
// (arguments, working directory, sockets, proportional memory) are best effort:
// what cannot be read is absent, never an error.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "OmniraCore/sampling/TCPSocket.h"

#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/sampling/RawUsage.h"

namespace omnira {

struct ProcessReadFailure {
  enum class Kind {
    vanished,   // the process exited (or its pid was never there): not an error
    denied,     // exists, but its figures are not ours to read
    malformed,  // the kernel's text did not parse
    failed,     // any other error
  };
  Kind kind = Kind::failed;
  int error = 0;       // errno, where there was one
  std::string detail;  // for debug logs
};

// What changes from tick to tick, read once per tick.
struct ProcessReading {
  RawUsage usage;
  // The part of the footprint in memory mapped shared (shared memory, tmpfs): pages
  // other processes may count too.
  uint64_t sharedMemoryBytes = 0;
  // Every page it has in memory, shared and file-backed ones whole.
  uint64_t residentBytes = 0;
  bool diskMeasured = false;  // the disk counters could be read (not another user's process)
  int32_t parentPID = 0;
  char state = '?';
  // With the pid, what tells one process from a later one that reuses its pid.
  uint64_t startTicks = 0;
  Date startedAt{};
  std::string name;  // the kernel's short name; changes on exec
  uint32_t uid = 0;  // real user id
  bool hasTerminal = false;
  bool kernelThread = false;
};

// What does not change while a process runs the same program; read once per process.
struct ProcessFacts {
  std::optional<std::string> path;  // executable
  std::vector<std::string> arguments;
  std::optional<std::string> appUnitID;  // see ProcessSample::appUnitID
  bool sessionService = false;
  std::optional<std::string> flatpakAppID;
  std::optional<std::string> containerID;  // see ProcessSample::containerID
};

// A process's memory with pages it shares divided among the sharers.
struct ProportionalMemory {
  // Directly comparable to RawUsage::footprint, where the kernel splits by kind.
  std::optional<uint64_t> footprintShare;
  // Proportional over resident size across all pages; used when the above is absent.
  double residentRatio = 1;
};

struct ListeningSocket {
  uint64_t inode = 0;
  uint16_t port = 0;
  uint32_t uid = 0;  // the socket's owner
  friend bool operator==(const ListeningSocket&, const ListeningSocket&) = default;
};

struct ProcessGPUShare {
  std::optional<double> busy;  // 0...1 of its busiest engine; absent on the first look
  std::optional<uint64_t> memoryBytes;
};

class ProcessSource {
 public:
  // One process kept open between ticks, so a tick re-reads without looking it up again.
  class Handle {
   public:
    virtual ~Handle() = default;
    // Fills `reading`, which callers reuse between ticks so its strings keep their storage.
    // After the process exits this fails with `vanished`, even if its pid was reused.
    virtual Result<void, ProcessReadFailure> read(ProcessReading& reading) = 0;
  };

  virtual ~ProcessSource() = default;

  // Replaces the contents of `pids` with the running processes' ids.
  virtual Result<void, ProcessReadFailure> listPIDs(std::vector<int32_t>& pids) = 0;
  virtual Result<std::unique_ptr<Handle>, ProcessReadFailure> open(int32_t pid) = 0;
  // Fails only with `vanished`; facts that cannot be read are absent.
  virtual Result<ProcessFacts, ProcessReadFailure> facts(int32_t pid) = 0;
  virtual std::vector<std::string> arguments(int32_t pid) = 0;
  virtual std::optional<std::string> workingDirectory(int32_t pid) = 0;
  // Costly for large processes: callers budget it.
  virtual std::optional<ProportionalMemory> proportionalMemory(int32_t pid) = 0;
  // Listening TCP sockets of the whole machine (both address families).
  virtual std::vector<ListeningSocket> listeningSockets() = 0;
  // Inodes of the sockets a process holds open.
  virtual std::vector<uint64_t> socketInodes(int32_t pid) = 0;
  // Every TCP socket of the machine with its byte counters; nothing when the platform
  // cannot list them this time (then no process has network figures).
  virtual std::optional<std::vector<TCPSocket>> tcpSockets() { return std::nullopt; }
  // Whether socketInodes can read the processes of this user at all: looking for a
  // socket's holder among processes that cannot be read only costs.
  virtual bool readsSocketsOf(uint32_t /*uid*/) { return true; }

  // How busy the process kept a GPU since this was last asked for it, and the GPU memory
  // it holds; absent when it is no GPU client or the platform cannot tell. The source
  // keeps what the step needs between calls.
  virtual std::optional<ProcessGPUShare> gpuUse(int32_t /*pid*/) { return std::nullopt; }

  // A monotonic clock that counts time asleep; behind the seam so tests can step time.
  virtual uint64_t monotonicNanoseconds() = 0;
};

}  // namespace omnira
