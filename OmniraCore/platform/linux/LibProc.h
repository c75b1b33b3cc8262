#pragma once
// Processes as /proc shows them, under the roots it is given (fixture trees in tests).
//
// Ownership and threads: owned by one ProcessSampler (or a caller on its own); touched
// by one thread at a time. Handles from open() keep descriptors of this object's /proc
// and share its read buffer: destroy them before it.
//
// Cost: each /proc file costs several microseconds to open, read and close, so a handle
// keeps the process's stat, status and io files open and re-reads them with pread at
// offset 0 (about 40% of the cost). First the time all the process's threads have run
// is asked for: from the kernel's CPU clock of the process (one system call, no file)
// when reading this program's own /proc, else from the sum of task/*/schedstat. A
// process that has not run since the last full reading keeps that reading (a full one
// is taken every sixth read regardless), so a sleeping process costs one system call a
// tick. Context switches are counted per thread: a multithreaded process that ran reads
// each thread's status too. The kernel keeps a page-sized buffer behind each
// open file that has been read, so descriptors are kept for at most
// kMaxKeptDescriptors; past that, on EMFILE/ENFILE, or when asked not to, a handle
// opens and closes its files on every read.
//
// Failures: ProcessReadFailure, see ProcessSource.h. A process whose io file may not be
// read (another user's) still reads, with diskMeasured false.

#include <dirent.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/platform/linux/DrmFdinfo.h"
#include "OmniraCore/platform/linux/Roots.h"
#include "OmniraCore/platform/linux/SocketDiagnostics.h"
#include "OmniraCore/sampling/ProcessSource.h"

namespace omnira::platform {

class LibProc final : public ProcessSource {
 public:
  // A process's static facts.
  struct BasicInfo {
    int32_t pid = 0;
    int32_t parentPID = 0;
    std::string name;  // the kernel's short name
    char state = '?';
    uint64_t startTicks = 0;
    Date startedAt{};
    std::optional<std::string> path;  // absent for kernel threads, zombies and where denied
    uint32_t uid = 0;
  };

  static constexpr size_t kMaxKeptDescriptors = 6144;

  // Raises this program's soft limit of open files to the hard limit, once per program,
  // so that handles can keep their files open.
  explicit LibProc(Roots roots = {}, bool keepFilesOpen = true);
  ~LibProc() override;
  LibProc(const LibProc&) = delete;
  LibProc& operator=(const LibProc&) = delete;

  // The numeric entries of /proc, ascending.
  Result<std::vector<int32_t>, ProcessReadFailure> allPIDs();
  Result<BasicInfo, ProcessReadFailure> basicInfo(int32_t pid);
  // One usage reading without keeping the process open.
  Result<ProcessReading, ProcessReadFailure> usage(int32_t pid);

  Result<void, ProcessReadFailure> listPIDs(std::vector<int32_t>& pids) override;
  Result<std::unique_ptr<Handle>, ProcessReadFailure> open(int32_t pid) override;
  Result<ProcessFacts, ProcessReadFailure> facts(int32_t pid) override;
  std::vector<std::string> arguments(int32_t pid) override;
  std::optional<std::string> workingDirectory(int32_t pid) override;
  std::optional<ProportionalMemory> proportionalMemory(int32_t pid) override;
  std::vector<ListeningSocket> listeningSockets() override;
  std::vector<uint64_t> socketInodes(int32_t pid) override;
  // The machine's own sockets, so only with this program's own process table.
  std::optional<std::vector<TCPSocket>> tcpSockets() override;
  bool readsSocketsOf(uint32_t uid) override;
  // From the DRM clients in fdinfo; only processes whose descriptors this user may list.
  std::optional<omnira::ProcessGPUShare> gpuUse(int32_t pid) override;
  uint64_t monotonicNanoseconds() override;

  // Descriptors that handles keep open now.
  size_t keptDescriptors() const { return keptDescriptors_; }

 private:
  class ProcHandle;

  // A file of one process read whole into buffer_: through `fd` when it is open,
  // else opened and closed here. Empty text means the process is gone.
  Result<std::string_view, ProcessReadFailure> readPidFile(int fd, int32_t pid, const char* file);
  Result<std::string_view, ProcessReadFailure> readOpenFile(int fd);
  std::optional<std::string> readLink(int32_t pid, const char* link);
  // Context switches: `keptSwitches` for a multithreaded process that has not run since
  // they were counted, else counted over its threads.
  Result<void, ProcessReadFailure> readUsage(int statFD, int statusFD, int ioFD, bool ioUnavailable,
                                             int32_t pid, std::optional<uint64_t> keptSwitches,
                                             ProcessReading& reading);
  // A folder of one process (`task`, `fd`) to list; nullptr when it cannot be opened.
  DIR* openPidFolder(int32_t pid, const char* folder);
  // Calls fn(text) with each of the process's threads' `file` (task/TID/file) until it
  // returns false. True when at least one was read and fn never said false.
  template <class Fn>
  bool forEachThreadFile(int32_t pid, const char* file, Fn&& fn);
  std::optional<uint64_t> threadsRunNanoseconds(int32_t pid);
  std::optional<uint64_t> threadsContextSwitches(int32_t pid);
  Date startDate(uint64_t startTicks);

  // The GPU clients each process had when last asked, for gpuUse's step.
  struct GPULook {
    std::vector<DrmClient> clients;
    uint64_t at = 0;
  };
  std::unordered_map<int32_t, GPULook> gpuLooks_;

  Roots roots_;
  bool keepFilesOpen_;
  bool ownProcessTable_ = false;  // roots_.proc is this program's own /proc
  int procFD_ = -1;
  DIR* listing_ = nullptr;
  std::vector<char> buffer_;
  uint64_t nanosecondsPerTick_ = 10'000'000;
  std::optional<Date> bootTime_;
  size_t keptDescriptors_ = 0;
  size_t keepLimit_ = kMaxKeptDescriptors;
  SocketDiagnostics sockets_;
};

}  // namespace omnira::platform
