#include "OmniraCore/platform/linux/LibProc.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <mutex>

#include <spdlog/spdlog.h>

#include "OmniraCore/foundation/Parse.h"
#include "OmniraCore/platform/linux/Cmdline.h"
#include "OmniraCore/platform/linux/ContainerCgroup.h"
#include "OmniraCore/platform/linux/FileText.h"
#include "OmniraCore/platform/linux/FlatpakInfo.h"
#include "OmniraCore/platform/linux/KernelStat.h"
#include "OmniraCore/platform/linux/ListeningSockets.h"
#include "OmniraCore/platform/linux/PidIO.h"
#include "OmniraCore/platform/linux/PidSchedStat.h"
#include "OmniraCore/platform/linux/PidStat.h"
#include "OmniraCore/platform/linux/PidStatus.h"
#include "OmniraCore/platform/linux/SmapsRollup.h"
#include "OmniraCore/platform/linux/SystemdUnit.h"

namespace omnira::platform {

namespace {

using Kind = ProcessReadFailure::Kind;

constexpr size_t kMaxFileBytes = 1 << 20;
constexpr std::string_view kDeletedSuffix = " (deleted)";

// "1234/stat" without allocating.
class PidPath {
 public:
  PidPath(int32_t pid, const char* file) {
    auto [end, ec] = std::to_chars(text_, text_ + 16, pid);
    (void)ec;  // 16 bytes always hold an int32
    *end++ = '/';
    const size_t room = sizeof text_ - static_cast<size_t>(end - text_) - 1;
    const size_t length = std::min(std::strlen(file), room);
    std::memcpy(end, file, length);
    end[length] = '\0';
  }
  const char* c_str() const { return text_; }

 private:
  char text_[64];
};

ProcessReadFailure failureFromErrno(int error, const char* what) {
  Kind kind = Kind::failed;
  switch (error) {
    case ENOENT:
    case ESRCH:
    case ENOTDIR:
      kind = Kind::vanished;
      break;
    case EACCES:
    case EPERM:
      kind = Kind::denied;
      break;
    default:
      break;
  }
  return {kind, error, fmt::format("{}: {}", what, std::strerror(error))};
}

ProcessReadFailure malformed(const ParseFailure& failure) {
  return {Kind::malformed, 0, failure.message};
}

ProcessReadFailure vanished(const char* what) { return {Kind::vanished, 0, fmt::format("{}: empty", what)}; }

void closeIfOpen(int& fd) {
  if (fd >= 0) ::close(fd);
  fd = -1;
}

void raiseOpenFileLimitOnce() {
  static std::once_flag once;
  std::call_once(once, [] {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= limit.rlim_max) return;
    limit.rlim_cur = limit.rlim_max;
    if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) {
      spdlog::debug("cannot raise the open-file limit: {}", std::strerror(errno));
    }
  });
}

size_t openFileSoftLimit() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return SIZE_MAX;
  return static_cast<size_t>(limit.rlim_cur);
}

std::string_view withoutDeletedSuffix(std::string_view path) {
  if (path.ends_with(kDeletedSuffix)) path.remove_suffix(kDeletedSuffix.size());
  return path;
}

}  // namespace

class LibProc::ProcHandle final : public ProcessSource::Handle {
 public:
  ProcHandle(LibProc& owner, int32_t pid) : owner_(owner), pid_(pid) {
    // The kernel's CPU clock of a process covers all its threads to the nanosecond and
    // costs one system call. It names pids of this program's own process table only.
    // The id is made as the C library makes it (the kernel's fixed encoding of a
    // process's scheduler clock), without the library's extra call to check the pid: the
    // first reading tells whether the clock works.
    if (owner_.ownProcessTable_) {
      clock_ = static_cast<clockid_t>((~static_cast<uint32_t>(pid_) << 3) | 2u);
      clockUsable_ = true;
    }
  }
  ~ProcHandle() override {
    closeIfOpen(stat_);
    closeIfOpen(status_);
    closeIfOpen(io_);
    owner_.keptDescriptors_ -= kept_;
  }
  ProcHandle(const ProcHandle&) = delete;
  ProcHandle& operator=(const ProcHandle&) = delete;

  // Opens the files to keep; fails only when the process is not there to read.
  Result<void, ProcessReadFailure> keepOpen() {
    if (auto opened = keep(stat_, "stat"); !opened) return opened;
    if (auto opened = keep(status_, "status"); !opened) return opened;
    if (auto opened = keep(io_, "io"); !opened) {
      // Another user's io file, or a kernel without I/O accounting: no disk figures.
      if (opened.error().kind != Kind::vanished || opened.error().error == ENOENT) {
        ioUnavailable_ = true;
        return {};
      }
      return opened;
    }
    return {};
  }

  // Most processes sleep through most ticks. One none of whose threads has run since
  // the last full reading cannot have moved its CPU time, memory, I/O or context
  // switch counters, so that reading stands. The time run must be the whole thread
  // group's: a program whose main thread waits while its workers run (a thread pool,
  // a runtime) would otherwise read idle and then all at once. The kernel may still
  // swap pages out or give the process a new parent meanwhile, so every
  // kFullReadEvery-th read is a full one regardless.
  Result<void, ProcessReadFailure> read(ProcessReading& reading) override {
    const auto run = runNanoseconds();
    const bool ran = !(run && cached_ && *run == lastRun_);
    if (!ran && readsSinceFull_ + 1 < kFullReadEvery) {
      ++readsSinceFull_;
      reading = *cached_;
      return {};
    }
    // Without a run since, the threads' switches cannot have moved: no need to count them again.
    const std::optional<uint64_t> keptSwitches = ran ? std::nullopt : std::optional(cached_->usage.idleWakeups);
    auto full = owner_.readUsage(stat_, status_, io_, ioUnavailable_, pid_, keptSwitches, reading);
    if (!full) return full;
    readsSinceFull_ = 0;
    if (run) {
      lastRun_ = *run;
      cached_ = reading;
    } else {
      cached_.reset();
    }
    return {};
  }

 private:
  // Nothing when neither the clock nor the threads' scheduler statistics can be read:
  // then every read is a full one. A process that exited reads nothing here either;
  // the full reading tells it so.
  std::optional<uint64_t> runNanoseconds() {
    if (clockUsable_) {
      timespec t{};
      if (::clock_gettime(clock_, &t) == 0) {
        return static_cast<uint64_t>(t.tv_sec) * 1'000'000'000ull + static_cast<uint64_t>(t.tv_nsec);
      }
      clockUsable_ = false;  // gone, or not ours to read: the threads' statistics say which
    }
    return owner_.threadsRunNanoseconds(pid_);
  }

  Result<void, ProcessReadFailure> keep(int& fd, const char* file) {
    if (owner_.keptDescriptors_ >= owner_.keepLimit_) return {};
    fd = ::openat(owner_.procFD_, PidPath(pid_, file).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd >= 0) {
      ++kept_;
      ++owner_.keptDescriptors_;
      return {};
    }
    const int error = errno;
    if (error == EMFILE || error == ENFILE) {
      // Out of descriptors: stop keeping any more; this file is opened per read.
      owner_.keepLimit_ = owner_.keptDescriptors_;
      spdlog::debug("keeping no more /proc files open: {}", std::strerror(error));
      return {};
    }
    return fail(failureFromErrno(error, file));
  }

  static constexpr int kFullReadEvery = 6;

  LibProc& owner_;
  int32_t pid_;
  clockid_t clock_{};
  bool clockUsable_ = false;
  uint64_t lastRun_ = 0;
  std::optional<ProcessReading> cached_;
  int readsSinceFull_ = 0;
  int stat_ = -1;
  int status_ = -1;
  int io_ = -1;
  size_t kept_ = 0;
  bool ioUnavailable_ = false;
};

LibProc::LibProc(Roots roots, bool keepFilesOpen)
    : roots_(std::move(roots)), keepFilesOpen_(keepFilesOpen), buffer_(8192) {
  procFD_ = ::open(roots_.proc.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  ownProcessTable_ = roots_.proc == "/proc";
  if (procFD_ < 0) spdlog::warn("cannot open {}: {}", roots_.proc.string(), std::strerror(errno));
  const long ticks = ::sysconf(_SC_CLK_TCK);
  if (ticks > 0) nanosecondsPerTick_ = 1'000'000'000ull / static_cast<uint64_t>(ticks);
  if (keepFilesOpen_) {
    raiseOpenFileLimitOnce();
    // Half the limit at most: the rest of the program needs descriptors too.
    keepLimit_ = std::min(kMaxKeptDescriptors, openFileSoftLimit() / 2);
  }
}

LibProc::~LibProc() {
  if (listing_) ::closedir(listing_);
  if (procFD_ >= 0) ::close(procFD_);
}

Result<std::string_view, ProcessReadFailure> LibProc::readOpenFile(int fd) {
  size_t total = 0;
  while (true) {
    if (total == buffer_.size()) {
      if (buffer_.size() >= kMaxFileBytes) break;  // callers parse what they need from the front
      buffer_.resize(buffer_.size() * 2);
    }
    const size_t want = buffer_.size() - total;
    const ssize_t n = ::pread(fd, buffer_.data() + total, want, static_cast<off_t>(total));
    if (n < 0) {
      if (errno == EINTR) continue;
      return fail(failureFromErrno(errno, "read"));
    }
    total += static_cast<size_t>(n);
    // procfs hands over a whole small file in one read, so a short read is its end.
    if (n == 0 || static_cast<size_t>(n) < want) break;
  }
  return std::string_view(buffer_.data(), total);
}

Result<std::string_view, ProcessReadFailure> LibProc::readPidFile(int fd, int32_t pid, const char* file) {
  if (fd >= 0) return readOpenFile(fd);
  if (procFD_ < 0) return fail(ProcessReadFailure{Kind::failed, EBADF, "no /proc"});
  const int opened = ::openat(procFD_, PidPath(pid, file).c_str(), O_RDONLY | O_CLOEXEC);
  if (opened < 0) return fail(failureFromErrno(errno, file));
  auto text = readOpenFile(opened);
  ::close(opened);
  return text;
}

std::optional<std::string> LibProc::readLink(int32_t pid, const char* link) {
  char target[PATH_MAX];
  const ssize_t n = ::readlinkat(procFD_, PidPath(pid, link).c_str(), target, sizeof target);
  if (n < 0 || static_cast<size_t>(n) >= sizeof target) return std::nullopt;
  return std::string(withoutDeletedSuffix(std::string_view(target, static_cast<size_t>(n))));
}

Date LibProc::startDate(uint64_t startTicks) {
  if (!bootTime_) {
    if (auto text = readTextFile(roots_.proc / "stat")) {
      if (auto stat = parseKernelStat(*text); stat && stat->bootTime) {
        bootTime_ = Date(std::chrono::seconds(*stat->bootTime));
      }
    }
    if (!bootTime_) {
      // Without btime: now less the time since boot.
      timespec sinceBoot{};
      ::clock_gettime(CLOCK_BOOTTIME, &sinceBoot);
      bootTime_ = std::chrono::system_clock::now() - std::chrono::seconds(sinceBoot.tv_sec) -
                  std::chrono::nanoseconds(sinceBoot.tv_nsec);
    }
  }
  const auto nanoseconds = static_cast<double>(startTicks) * static_cast<double>(nanosecondsPerTick_);
  return *bootTime_ + std::chrono::duration_cast<Date::duration>(std::chrono::duration<double, std::nano>(nanoseconds));
}

DIR* LibProc::openPidFolder(int32_t pid, const char* folder) {
  if (procFD_ < 0) return nullptr;
  const int fd = ::openat(procFD_, PidPath(pid, folder).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return nullptr;
  DIR* dir = ::fdopendir(fd);
  if (!dir) ::close(fd);
  return dir;
}

template <class Fn>
bool LibProc::forEachThreadFile(int32_t pid, const char* file, Fn&& fn) {
  DIR* dir = openPidFolder(pid, "task");
  if (!dir) return false;
  bool any = false, complete = true;
  char path[64];
  while (const dirent* entry = ::readdir(dir)) {
    if (!parseNumber<int32_t>(entry->d_name)) continue;
    const int written = std::snprintf(path, sizeof path, "%s/%s", entry->d_name, file);
    if (written < 0 || static_cast<size_t>(written) >= sizeof path) continue;
    const int threadFD = ::openat(::dirfd(dir), path, O_RDONLY | O_CLOEXEC);
    if (threadFD < 0) continue;  // the thread ended meanwhile
    auto text = readOpenFile(threadFD);
    ::close(threadFD);
    if (!text || text->empty()) continue;
    if (!fn(*text)) {
      complete = false;
      break;
    }
    any = true;
  }
  ::closedir(dir);
  return any && complete;
}

std::optional<uint64_t> LibProc::threadsRunNanoseconds(int32_t pid) {
  uint64_t total = 0;
  const bool read = forEachThreadFile(pid, "schedstat", [&](std::string_view text) {
    auto sched = parsePidSchedStat(text);
    if (!sched) return false;
    total += sched->runNanoseconds;
    return true;
  });
  return read ? std::optional(total) : std::nullopt;
}

std::optional<uint64_t> LibProc::threadsContextSwitches(int32_t pid) {
  uint64_t total = 0;
  const bool read = forEachThreadFile(pid, "status", [&](std::string_view text) {
    auto status = parsePidStatus(text);
    if (!status) return false;
    total += status->contextSwitches();
    return true;
  });
  return read ? std::optional(total) : std::nullopt;
}

Result<void, ProcessReadFailure> LibProc::readUsage(int statFD, int statusFD, int ioFD, bool ioUnavailable,
                                                    int32_t pid, std::optional<uint64_t> keptSwitches,
                                                    ProcessReading& reading) {
  auto statText = readPidFile(statFD, pid, "stat");
  if (!statText) return fail(statText.error());
  if (statText->empty()) return fail(vanished("stat"));
  auto stat = parsePidStat(*statText);
  if (!stat) return fail(malformed(stat.error()));
  if (stat->pid != pid) return fail(ProcessReadFailure{Kind::malformed, 0, fmt::format("stat of {} names {}", pid, stat->pid)});
  uint64_t ticks = 0, nanoseconds = 0;
  if (__builtin_add_overflow(stat->userTicks, stat->systemTicks, &ticks) ||
      __builtin_mul_overflow(ticks, nanosecondsPerTick_, &nanoseconds)) {
    return fail(ProcessReadFailure{Kind::malformed, 0, "stat: CPU time out of range"});
  }
  reading.usage = RawUsage{};
  reading.usage.pid = pid;
  reading.usage.cpuNanoseconds = nanoseconds;
  reading.parentPID = stat->parentPID;
  reading.state = stat->state;
  reading.startTicks = stat->startTicks;
  reading.startedAt = startDate(stat->startTicks);
  reading.name.assign(stat->name);  // before the buffer is read into again
  reading.hasTerminal = stat->ttyNumber != 0;
  reading.kernelThread = stat->isKernelThread();
  const uint32_t threads = stat->threads;

  auto statusText = readPidFile(statusFD, pid, "status");
  if (!statusText) return fail(statusText.error());
  if (statusText->empty()) return fail(vanished("status"));
  auto status = parsePidStatus(*statusText);
  if (!status) return fail(malformed(status.error()));
  reading.uid = status->realUID;
  reading.usage.footprint = status->footprintBytes();
  reading.residentBytes = status->residentKB * 1024;
  reading.sharedMemoryBytes = status->rssShmemKB * 1024;
  reading.usage.idleWakeups = status->contextSwitches();
  // The status file counts the main thread's switches only: the whole process is the
  // sum over its threads (those that ended take theirs with them).
  if (threads > 1) {
    if (keptSwitches) {
      reading.usage.idleWakeups = *keptSwitches;
    } else if (auto switches = threadsContextSwitches(pid)) {
      reading.usage.idleWakeups = *switches;
    }
  }

  reading.diskMeasured = false;
  if (ioUnavailable) return {};
  auto ioText = readPidFile(ioFD, pid, "io");
  if (!ioText) {
    const auto& failure = ioText.error();
    // ESRCH: the process behind a kept file exited. ENOENT, EACCES: no I/O accounting
    // for us to read; the rest of the reading stands.
    if (failure.kind == Kind::vanished && failure.error == ESRCH) return fail(failure);
    return {};
  }
  if (ioText->empty()) return fail(vanished("io"));
  auto io = parsePidIO(*ioText);
  if (!io) return fail(malformed(io.error()));
  reading.usage.diskBytesRead = io->readBytes;
  reading.usage.diskBytesWritten = io->writeBytes;
  reading.diskMeasured = true;
  return {};
}

Result<void, ProcessReadFailure> LibProc::listPIDs(std::vector<int32_t>& pids) {
  pids.clear();
  if (procFD_ < 0) return fail(ProcessReadFailure{Kind::failed, EBADF, "no /proc"});
  if (listing_) {
    ::rewinddir(listing_);
  } else {
    const int fd = ::openat(procFD_, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return fail(failureFromErrno(errno, "/proc"));
    listing_ = ::fdopendir(fd);
    if (!listing_) {
      const int error = errno;
      ::close(fd);
      return fail(failureFromErrno(error, "/proc"));
    }
  }
  errno = 0;
  while (const dirent* entry = ::readdir(listing_)) {
    if (auto pid = parseNumber<int32_t>(entry->d_name); pid && *pid > 0) pids.push_back(*pid);
  }
  if (errno != 0) return fail(failureFromErrno(errno, "/proc"));
  std::sort(pids.begin(), pids.end());
  return {};
}

Result<std::vector<int32_t>, ProcessReadFailure> LibProc::allPIDs() {
  std::vector<int32_t> pids;
  if (auto listed = listPIDs(pids); !listed) return fail(listed.error());
  return pids;
}

Result<LibProc::BasicInfo, ProcessReadFailure> LibProc::basicInfo(int32_t pid) {
  auto statText = readPidFile(-1, pid, "stat");
  if (!statText) return fail(statText.error());
  if (statText->empty()) return fail(vanished("stat"));
  auto stat = parsePidStat(*statText);
  if (!stat) return fail(malformed(stat.error()));
  BasicInfo info;
  info.pid = pid;
  info.parentPID = stat->parentPID;
  info.name = std::string(stat->name);
  info.state = stat->state;
  info.startTicks = stat->startTicks;
  info.startedAt = startDate(stat->startTicks);

  auto statusText = readPidFile(-1, pid, "status");
  if (!statusText) return fail(statusText.error());
  auto status = parsePidStatus(*statusText);
  if (!status) return fail(malformed(status.error()));
  info.uid = status->realUID;
  info.path = readLink(pid, "exe");
  return info;
}

Result<ProcessReading, ProcessReadFailure> LibProc::usage(int32_t pid) {
  ProcessReading reading;
  if (auto read = readUsage(-1, -1, -1, false, pid, std::nullopt, reading); !read) return fail(read.error());
  return reading;
}

Result<std::unique_ptr<ProcessSource::Handle>, ProcessReadFailure> LibProc::open(int32_t pid) {
  auto handle = std::make_unique<ProcHandle>(*this, pid);
  if (keepFilesOpen_ && procFD_ >= 0) {
    if (auto kept = handle->keepOpen(); !kept) return fail(kept.error());
  }
  return std::unique_ptr<ProcessSource::Handle>(std::move(handle));
}

std::vector<std::string> LibProc::arguments(int32_t pid) {
  if (procFD_ < 0) return {};
  auto text = readTextFileAt(procFD_, PidPath(pid, "cmdline").c_str(), kMaxFileBytes);
  if (!text) return {};
  return parseCmdline(*text);
}

Result<ProcessFacts, ProcessReadFailure> LibProc::facts(int32_t pid) {
  if (procFD_ < 0) return fail(ProcessReadFailure{Kind::failed, EBADF, "no /proc"});
  ProcessFacts facts;
  auto cmdline = readTextFileAt(procFD_, PidPath(pid, "cmdline").c_str(), kMaxFileBytes);
  if (!cmdline) {
    if (cmdline.error().kind == ReadFailure::Kind::missing) {
      return fail(ProcessReadFailure{Kind::vanished, cmdline.error().error, "cmdline"});
    }
  } else {
    facts.arguments = parseCmdline(*cmdline);
  }

  // Denied for another user's process: then it has no path. Its arguments are its own
  // to choose, so they never stand in for one (that would let it pick its group).
  facts.path = readLink(pid, "exe");
  // A program run from an anonymous memory file has no path to group or show by.
  if (facts.path && facts.path->starts_with("/memfd:")) facts.path.reset();

  // Kernel threads and zombies have no arguments, and no unit or sandbox worth a look.
  if (facts.arguments.empty()) return facts;
  bool mayBeSandboxed = true;
  if (auto text = readTextFileAt(procFD_, PidPath(pid, "cgroup").c_str(), 64 * 1024)) {
    if (auto container = containerOfCgroups(*text)) facts.containerID = container->engine + ":" + container->id;
    if (auto path = systemdCgroupPath(*text)) {
      auto unit = sessionUnitOf(*path);
      facts.appUnitID = std::move(unit.appID);
      facts.sessionService = unit.sessionService;
      // Sandboxed apps are started from a person's session, never as a system service:
      // the machine's services (often half of all processes) need not be looked into.
      mayBeSandboxed = !path->starts_with("/system.slice/") && *path != "/init.scope";
    }
  }
  if (!mayBeSandboxed) return facts;
  if (auto text = readTextFileAt(procFD_, PidPath(pid, "root/.flatpak-info").c_str(), 64 * 1024)) {
    facts.flatpakAppID = parseFlatpakAppID(*text);
  }
  return facts;
}

std::optional<std::string> LibProc::workingDirectory(int32_t pid) {
  if (procFD_ < 0) return std::nullopt;
  return readLink(pid, "cwd");
}

std::optional<ProportionalMemory> LibProc::proportionalMemory(int32_t pid) {
  auto text = readPidFile(-1, pid, "smaps_rollup");
  if (!text || text->empty()) return std::nullopt;
  auto rollup = parseSmapsRollup(*text);
  if (!rollup) {
    spdlog::debug("smaps_rollup of {}: {}", pid, rollup.error().message);
    return std::nullopt;
  }
  ProportionalMemory memory;
  if (rollup->pssAnonKB) {
    memory.footprintShare =
        (*rollup->pssAnonKB + rollup->pssShmemKB.value_or(0) + rollup->swapPssKB.value_or(0)) * 1024;
  }
  if (rollup->rssKB > 0) {
    memory.residentRatio = static_cast<double>(rollup->pssKB) / static_cast<double>(rollup->rssKB);
  }
  return memory;
}

std::vector<ListeningSocket> LibProc::listeningSockets() {
  std::vector<ListeningSocket> sockets;
  for (const char* file : {"net/tcp", "net/tcp6"}) {
    auto text = readTextFile(roots_.proc / file);
    if (!text) continue;  // no IPv6 in this kernel, or no network namespace to read
    auto parsed = parseListeningSockets(*text);
    if (!parsed) {
      spdlog::debug("{}", parsed.error().message);
      continue;
    }
    sockets.insert(sockets.end(), parsed->begin(), parsed->end());
  }
  return sockets;
}

std::optional<std::vector<TCPSocket>> LibProc::tcpSockets() {
  if (!ownProcessTable_) return std::nullopt;
  auto sockets = sockets_.tcpSockets();
  if (!sockets) {
    spdlog::debug("no TCP socket list: {}", sockets.error().message);
    return std::nullopt;
  }
  return std::move(sockets).value();
}

bool LibProc::readsSocketsOf(uint32_t uid) {
  // Another user's descriptors are root's to list only.
  const uid_t us = ::geteuid();
  return us == 0 || us == uid;
}

std::vector<uint64_t> LibProc::socketInodes(int32_t pid) {
  std::vector<uint64_t> inodes;
  DIR* dir = openPidFolder(pid, "fd");
  if (!dir) return inodes;
  char target[64];  // "socket:[N]" is short; longer targets are no sockets
  while (const dirent* entry = ::readdir(dir)) {
    if (entry->d_name[0] == '.') continue;
    const ssize_t n = ::readlinkat(::dirfd(dir), entry->d_name, target, sizeof target);
    if (n <= 0 || static_cast<size_t>(n) >= sizeof target) continue;
    if (auto inode = socketInodeOfLink(std::string_view(target, static_cast<size_t>(n)))) inodes.push_back(*inode);
  }
  ::closedir(dir);
  return inodes;
}

std::optional<omnira::ProcessGPUShare> LibProc::gpuUse(int32_t pid) {
  const uint64_t now = monotonicNanoseconds();
  // Forget processes not asked about for five minutes, so exited ones do not pile up.
  const uint64_t forgetBefore = now > 300'000'000'000ull ? now - 300'000'000'000ull : 0;
  if (gpuLooks_.size() > 256)
    std::erase_if(gpuLooks_, [forgetBefore](const auto& entry) { return entry.second.at < forgetBefore; });
  auto clients = readDrmClients(roots_, pid);
  if (clients.empty()) {
    gpuLooks_.erase(pid);
    return std::nullopt;
  }
  omnira::ProcessGPUShare use;
  auto& look = gpuLooks_[pid];
  if (look.at > 0 && now > look.at) {
    const auto step = drmProcessUse(look.clients, clients, static_cast<double>(now - look.at) / 1e9);
    use.busy = step.busy;
    use.memoryBytes = step.memoryBytes;
  } else {
    use.memoryBytes = drmProcessUse(clients, clients, 0).memoryBytes;
  }
  look = {std::move(clients), now};
  return use;
}

uint64_t LibProc::monotonicNanoseconds() {
  timespec now{};
  ::clock_gettime(CLOCK_BOOTTIME, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000ull + static_cast<uint64_t>(now.tv_nsec);
}

}  // namespace omnira::platform
