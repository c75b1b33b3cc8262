#include "OmniraCore/sampling/ProcessSampler.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <unordered_set>
#include <utility>

#include <spdlog/spdlog.h>

#include "OmniraCore/sampling/CounterDelta.h"
#include "OmniraCore/sampling/EnergyEstimate.h"

namespace omnira {

namespace {

constexpr double kNanosecondsPerSecond = 1e9;

std::string_view basename(std::string_view path) {
  const auto slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

// The kernel cuts its names to 15 bytes ("gnome-shell-cal"); a cut name is completed from
// the executable's or the first argument's file name when that begins with it.
std::string displayName(const std::string& kernelName, const ProcessFacts& facts) {
  constexpr size_t kKernelNameLength = 15;
  // Run from an anonymous memory file, the kernel names the file; the program's own
  // first argument says better what it is.
  if (kernelName.starts_with("memfd:") && !facts.arguments.empty() && !basename(facts.arguments[0]).empty())
    return std::string(basename(facts.arguments[0]));
  if (kernelName.size() != kKernelNameLength) return kernelName;
  std::string_view candidates[2];
  if (facts.path) candidates[0] = basename(*facts.path);
  if (!facts.arguments.empty()) candidates[1] = basename(facts.arguments[0]);
  for (auto candidate : candidates) {
    if (candidate.size() > kernelName.size() && candidate.starts_with(kernelName)) return std::string(candidate);
  }
  return kernelName;
}

double seconds(uint64_t nanoseconds) { return static_cast<double>(nanoseconds) / kNanosecondsPerSecond; }

std::string defaultHome() {
  const char* home = std::getenv("HOME");
  return home ? std::string(home) : std::string();
}

std::string withoutTrailingSlash(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

}  // namespace

struct ProcessSampler::Tracked {
  std::unique_ptr<ProcessSource::Handle> handle;
  uint64_t startTicks = 0;
  uint64_t generation = 0;  // the last tick that saw the process
  uint64_t lastReadAt = 0;
  RawUsage last;
  bool lastDiskMeasured = false;

  std::string kernelName;  // as last read; a change means the process ran a new program
  std::string name;
  ProcessFacts facts;
  std::optional<HelperRole> role;

  uint64_t sharedMemoryBytes = 0;
  bool memoryRefined = false;
  uint64_t memoryRefinedAt = 0;
  std::optional<double> memoryRatio;  // proportional share over raw footprint

  // Disk counters from the privileged reader, and when they were read.
  std::optional<Options::DiskCounters> privilegedDisk;
  uint64_t privilegedDiskAt = 0;

  bool holdsSockets = false;  // at the last look at its descriptors
  double networkInRate = 0;   // as last measured
  double networkOutRate = 0;

  bool directoryRead = false;
  uint64_t directoryReadAt = 0;
  std::optional<std::string> projectPath;

  void learn(ProcessFacts newFacts, const std::string& newKernelName) {
    facts = std::move(newFacts);
    kernelName = newKernelName;
    name = displayName(kernelName, facts);
    role = helper_role::classify(facts.path, facts.arguments);
    directoryRead = false;
  }
};

ProcessSampler::ProcessSampler(std::unique_ptr<ProcessSource> source) : ProcessSampler(std::move(source), Options{}) {}

ProcessSampler::ProcessSampler(std::unique_ptr<ProcessSource> source, Options options)
    : source_(std::move(source)), options_(std::move(options)) {
  if (!options_.homeDirectory) options_.homeDirectory = defaultHome();
  *options_.homeDirectory = withoutTrailingSlash(*options_.homeDirectory);
}

ProcessSampler::~ProcessSampler() = default;
ProcessSampler::ProcessSampler(ProcessSampler&&) noexcept = default;

ProcessSampler& ProcessSampler::operator=(ProcessSampler&& other) noexcept {
  if (this == &other) return *this;
  // The old handles go before the old source they read through.
  tracked_.clear();
  source_ = std::move(other.source_);
  options_ = std::move(other.options_);
  tracked_ = std::move(other.tracked_);
  markerChecks_ = std::move(other.markerChecks_);
  generation_ = other.generation_;
  unmeasured_ = other.unmeasured_;
  withoutDisk_ = other.withoutDisk_;
  measured_ = other.measured_;
  network_ = std::move(other.network_);
  lastSockets_ = std::move(other.lastSockets_);
  socketHolders_ = std::move(other.socketHolders_);
  unheld_ = std::move(other.unheld_);
  lastNetworkAt_ = other.lastNetworkAt_;
  pids_ = std::move(other.pids_);
  sampled_ = std::move(other.sampled_);
  reading_ = std::move(other.reading_);
  return *this;
}

ProcessSampler::Tracked* ProcessSampler::admit(int32_t pid, uint64_t now) {
  auto noteFailure = [&](const ProcessReadFailure& failure) {
    if (failure.kind == ProcessReadFailure::Kind::vanished) return;
    ++unmeasured_;
    spdlog::debug("process {}: {}", pid, failure.detail);
  };
  auto handle = source_->open(pid);
  if (!handle) {
    noteFailure(handle.error());
    return nullptr;
  }
  if (auto read = (*handle)->read(reading_); !read) {
    noteFailure(read.error());
    return nullptr;
  }
  auto facts = source_->facts(pid);
  if (!facts) {
    noteFailure(facts.error());
    return nullptr;
  }
  auto tracked = std::make_unique<Tracked>();
  tracked->handle = std::move(handle).value();
  tracked->startTicks = reading_.startTicks;
  tracked->lastReadAt = now;
  tracked->learn(std::move(facts).value(), reading_.name);
  auto* raw = tracked.get();
  tracked_[pid] = std::move(tracked);
  return raw;
}

std::vector<ProcessSample> ProcessSampler::sample(Details details) {
  const uint64_t now = source_->monotonicNanoseconds();
  ++generation_;
  unmeasured_ = 0;
  withoutDisk_ = 0;
  measured_ = Details{};
  sampled_.clear();
  std::vector<ProcessSample> samples;
  if (auto listed = source_->listPIDs(pids_); !listed) {
    // Tracked processes stay, so that a passing failure does not cost every rate.
    spdlog::warn("cannot list processes: {}", listed.error().detail);
    return samples;
  }
  samples.reserve(pids_.size());
  sampled_.reserve(pids_.size());

  for (const int32_t pid : pids_) {
    Tracked* tracked = nullptr;
    bool fresh = false;
    if (auto it = tracked_.find(pid); it != tracked_.end()) {
      auto read = it->second->handle->read(reading_);
      if (read && reading_.startTicks == it->second->startTicks) {
        tracked = it->second.get();
      } else {
        const bool gone = read.ok() || read.error().kind == ProcessReadFailure::Kind::vanished;
        if (!gone) {
          ++unmeasured_;
          spdlog::debug("process {}: {}", pid, read.error().detail);
        }
        tracked_.erase(it);
        // A process that exited behind kept files, or a new one under the same pid, is read afresh.
        if (!gone) continue;
      }
    }
    if (!tracked) {
      tracked = admit(pid, now);
      if (!tracked) continue;
      fresh = true;
    } else if (reading_.name != tracked->kernelName) {
      auto facts = source_->facts(pid);
      if (!facts) {
        tracked_.erase(pid);
        continue;
      }
      tracked->learn(std::move(facts).value(), reading_.name);
    }

    const RawUsage& usage = reading_.usage;
    ProcessSample& s = samples.emplace_back();
    s.pid = pid;
    s.parentPID = reading_.parentPID;
    s.name = tracked->name;
    s.path = tracked->facts.path;
    s.memoryBytes = usage.footprint;
    s.residentBytes = reading_.residentBytes;
    s.hasMetrics = reading_.diskMeasured;
    if (reading_.diskMeasured) {
      s.lifetimeDiskBytesRead = usage.diskBytesRead;
      s.lifetimeDiskBytesWritten = usage.diskBytesWritten;
    }
    s.startedAt = reading_.startedAt;
    s.lifetimeCPUSeconds = seconds(usage.cpuNanoseconds);
    s.helperRole = tracked->role;
    s.uid = reading_.uid;
    s.hasTerminal = reading_.hasTerminal;
    s.kernelThread = reading_.kernelThread;
    s.appUnitID = tracked->facts.appUnitID;
    s.sessionService = tracked->facts.sessionService;
    s.flatpakAppID = tracked->facts.flatpakAppID;
    s.containerID = tracked->facts.containerID;
    if (!reading_.diskMeasured) ++withoutDisk_;

    if (!fresh && now > tracked->lastReadAt) {
      const double interval = seconds(now - tracked->lastReadAt);
      const RawUsage& last = tracked->last;
      UsageDelta& d = s.delta;
      d.cpuNanoseconds = plausibleDelta(last.cpuNanoseconds, usage.cpuNanoseconds, interval);
      d.energyNanojoules = plausibleDelta(last.energy, usage.energy, interval);
      d.idleWakeups = plausibleDelta(last.idleWakeups, usage.idleWakeups, interval);
      if (reading_.diskMeasured && tracked->lastDiskMeasured) {
        d.diskBytesRead = plausibleDelta(last.diskBytesRead, usage.diskBytesRead, interval);
        d.diskBytesWritten = plausibleDelta(last.diskBytesWritten, usage.diskBytesWritten, interval);
      }
      s.cpuPercent = static_cast<double>(d.cpuNanoseconds) / interval / kNanosecondsPerSecond * 100;
      s.diskReadBytesPerSec = static_cast<double>(d.diskBytesRead) / interval;
      s.diskWriteBytesPerSec = static_cast<double>(d.diskBytesWritten) / interval;
      s.idleWakeupsPerSec = static_cast<double>(d.idleWakeups) / interval;
      if (d.energyNanojoules > 0) {
        s.powerWatts = static_cast<double>(d.energyNanojoules) / interval / kNanosecondsPerSecond;
        s.energyJoules = static_cast<double>(d.energyNanojoules) / kNanosecondsPerSecond;
      }
    }
    tracked->last = usage;
    tracked->sharedMemoryBytes = reading_.sharedMemoryBytes;
    tracked->lastDiskMeasured = reading_.diskMeasured;
    tracked->lastReadAt = now;
    tracked->generation = generation_;
    sampled_.push_back(tracked);
  }

  refineMemory(samples, now);
  if (withoutDisk_ > 0 && options_.privilegedDisk) askPrivilegedDisk(samples, now);
  std::optional<std::vector<TCPSocket>> sockets;
  if (details.network || details.projects) sockets = source_->tcpSockets();
  if (details.projects) findProjects(samples, sockets ? &*sockets : nullptr, now);
  measured_.projects = details.projects;
  measured_.network = details.network && sockets;
  if (measured_.network) measureNetwork(samples, *sockets, now);
  if (sockets) lastSockets_ = std::move(*sockets);
  for (size_t i = 0; i < samples.size(); ++i) {
    Tracked& t = *sampled_[i];
    if (measured_.network) {
      t.networkInRate = samples[i].networkInBytesPerSec;
      t.networkOutRate = samples[i].networkOutBytesPerSec;
    } else {
      samples[i].networkInBytesPerSec = t.networkInRate;
      samples[i].networkOutBytesPerSec = t.networkOutRate;
    }
  }
  if (details.gpu) {
    for (auto& s : samples)
      if (auto use = source_->gpuUse(s.pid); use && use->busy) s.gpuPercent = *use->busy * 100;
    measured_.gpu = true;
  }
  if (!kernelCountsEnergy) samples = EnergyEstimate::fromCPUTime(std::move(samples));

  std::erase_if(tracked_, [this](const auto& entry) { return entry.second->generation != generation_; });
  return samples;
}

void ProcessSampler::askPrivilegedDisk(std::vector<ProcessSample>& samples, uint64_t now) {
  std::vector<int32_t> pids;
  for (const auto& s : samples)
    if (!s.hasMetrics) pids.push_back(s.pid);
  const auto counters = options_.privilegedDisk(pids);
  for (size_t i = 0; i < samples.size(); ++i) {
    ProcessSample& s = samples[i];
    if (s.hasMetrics) continue;
    Tracked& t = *sampled_[i];
    auto it = counters.find(s.pid);
    if (it == counters.end()) {
      t.privilegedDisk.reset();
      continue;
    }
    s.hasMetrics = true;
    --withoutDisk_;
    s.lifetimeDiskBytesRead = it->second.readBytes;
    s.lifetimeDiskBytesWritten = it->second.writtenBytes;
    if (t.privilegedDisk && now > t.privilegedDiskAt) {
      const double interval = seconds(now - t.privilegedDiskAt);
      s.delta.diskBytesRead = plausibleDelta(t.privilegedDisk->readBytes, it->second.readBytes, interval);
      s.delta.diskBytesWritten = plausibleDelta(t.privilegedDisk->writtenBytes, it->second.writtenBytes, interval);
      s.diskReadBytesPerSec = static_cast<double>(s.delta.diskBytesRead) / interval;
      s.diskWriteBytesPerSec = static_cast<double>(s.delta.diskBytesWritten) / interval;
    }
    t.privilegedDisk = it->second;
    t.privilegedDiskAt = now;
  }
}

void ProcessSampler::refineMemory(std::vector<ProcessSample>& samples, uint64_t now) {
  const uint64_t maxAge = static_cast<uint64_t>(options_.memoryRefinementMaxAgeSeconds * kNanosecondsPerSecond);
  std::vector<bool> shares(samples.size(), false);
  std::unordered_map<int32_t, size_t> indexOfPID;
  indexOfPID.reserve(samples.size());
  for (size_t i = 0; i < samples.size(); ++i) indexOfPID.emplace(samples[i].pid, i);
  for (size_t i = 0; i < samples.size(); ++i) {
    if (sampled_[i]->sharedMemoryBytes > 0) shares[i] = true;
    const auto parent = indexOfPID.find(samples[i].parentPID);
    if (parent != indexOfPID.end() && samples[i].path && samples[i].path == samples[parent->second].path) {
      shares[i] = shares[parent->second] = true;
    }
  }

  std::vector<size_t> due;
  for (size_t i = 0; i < samples.size(); ++i) {
    Tracked& t = *sampled_[i];
    if (!shares[i]) {
      t.memoryRatio.reset();  // its own pages only: the raw figure is right
      continue;
    }
    if (t.last.footprint < options_.memoryRefinementMinimumBytes) continue;
    if (t.memoryRefined && now - t.memoryRefinedAt < maxAge) continue;
    due.push_back(i);
  }
  std::sort(due.begin(), due.end(),
            [&](size_t a, size_t b) { return sampled_[a]->last.footprint > sampled_[b]->last.footprint; });

  const uint64_t started = source_->monotonicNanoseconds();
  bool first = true;
  for (const size_t i : due) {
    // The biggest is always refined, so that each tick makes progress however busy the machine.
    if (!first && source_->monotonicNanoseconds() - started >= options_.memoryRefinementBudgetNanoseconds) break;
    first = false;
    Tracked& t = *sampled_[i];
    t.memoryRefined = true;
    t.memoryRefinedAt = now;
    t.memoryRatio.reset();
    const auto share = source_->proportionalMemory(samples[i].pid);
    if (!share) continue;
    double ratio = share->residentRatio;
    if (share->footprintShare && t.last.footprint > 0) {
      ratio = static_cast<double>(*share->footprintShare) / static_cast<double>(t.last.footprint);
    }
    if (std::isfinite(ratio)) t.memoryRatio = std::clamp(ratio, 0.0, 1.0);
  }

  for (size_t i = 0; i < samples.size(); ++i) {
    if (const auto ratio = sampled_[i]->memoryRatio) {
      samples[i].memoryBytes = static_cast<uint64_t>(std::llround(static_cast<double>(samples[i].memoryBytes) * *ratio));
    }
  }
}

void ProcessSampler::findProjects(std::vector<ProcessSample>& samples, const std::vector<TCPSocket>* sockets,
                                  uint64_t now) {
  const uint64_t markerMaxAge = static_cast<uint64_t>(options_.projectMarkerMaxAgeSeconds * kNanosecondsPerSecond);
  std::erase_if(markerChecks_, [&](const auto& entry) { return now - entry.second.checkedAt >= markerMaxAge; });

  const uint64_t directoryMaxAge =
      static_cast<uint64_t>(options_.workingDirectoryMaxAgeSeconds * kNanosecondsPerSecond);
  for (size_t i = 0; i < samples.size(); ++i) {
    Tracked& t = *sampled_[i];
    // A container's working directory is a path in its own file system, not this one's;
    // its project is its Compose folder, which the engine tells.
    if (samples[i].kernelThread || samples[i].containerID) continue;
    if (!t.directoryRead || now - t.directoryReadAt >= directoryMaxAge) {
      t.directoryRead = true;
      t.directoryReadAt = now;
      const auto directory = source_->workingDirectory(samples[i].pid);
      t.projectPath = directory ? projectRoot(*directory, now) : std::nullopt;
    }
    samples[i].projectPath = t.projectPath;
  }

  if (sockets) {
    listeningPortsFromSockets(samples, *sockets, now);
    return;
  }
  // Without the machine's socket list (a fixture tree): the listening sockets of its net/tcp files.
  const auto listening = source_->listeningSockets();
  if (listening.empty()) return;
  std::unordered_map<uint64_t, uint16_t> portOfInode;
  std::unordered_set<uint32_t> owners;
  for (const auto& socket : listening) {
    portOfInode.emplace(socket.inode, socket.port);
    owners.insert(socket.uid);
  }
  // Reading a process's descriptors is costly, so only owners of listening sockets are read.
  for (auto& s : samples) {
    if (s.kernelThread || !owners.contains(s.uid)) continue;
    for (const uint64_t inode : source_->socketInodes(s.pid)) {
      if (auto it = portOfInode.find(inode); it != portOfInode.end()) s.listeningPorts.push_back(it->second);
    }
    std::sort(s.listeningPorts.begin(), s.listeningPorts.end());
    s.listeningPorts.erase(std::unique(s.listeningPorts.begin(), s.listeningPorts.end()), s.listeningPorts.end());
  }
}

void ProcessSampler::measureNetwork(std::vector<ProcessSample>& samples, const std::vector<TCPSocket>& sockets,
                                    uint64_t now) {
  findSocketHolders(sockets, network_.moved(sockets), samples, now);
  const auto moved = network_.step(sockets, socketHolders_);
  const std::optional<uint64_t> since = std::exchange(lastNetworkAt_, now);
  if (!since || now <= *since) return;
  const double interval = seconds(now - *since);
  for (auto& s : samples) {
    const auto bytes = moved.find(s.pid);
    if (bytes == moved.end()) continue;
    s.networkInBytesPerSec = static_cast<double>(bytes->second.in) / interval;
    s.networkOutBytesPerSec = static_cast<double>(bytes->second.out) / interval;
    s.networkBytesIn = bytes->second.in;
    s.networkBytesOut = bytes->second.out;
  }
}

void ProcessSampler::listeningPortsFromSockets(std::vector<ProcessSample>& samples,
                                               const std::vector<TCPSocket>& sockets, uint64_t now) {
  // The listeners, and the client ends of connections between this machine's own
  // processes: who is connected to a port is asked of the latter's holders. A client
  // end is an established socket whose peer is in the list too and whose remote port
  // is a listening one.
  const auto ends = [](const TCPSocket& socket, bool reversed) {
    std::string key(36, '\0');
    const auto& first = reversed ? socket.remoteAddress : socket.localAddress;
    const auto& second = reversed ? socket.localAddress : socket.remoteAddress;
    const uint16_t ports[2] = {reversed ? socket.remotePort : socket.localPort,
                               reversed ? socket.localPort : socket.remotePort};
    std::memcpy(key.data(), first.data(), 16);
    std::memcpy(key.data() + 16, second.data(), 16);
    std::memcpy(key.data() + 32, ports, sizeof ports);
    return key;
  };
  std::unordered_set<uint16_t> listeningPorts;
  std::unordered_set<std::string> connections;
  for (const auto& socket : sockets) {
    if (socket.is(TCPSocket::State::listening)) listeningPorts.insert(socket.localPort);
    if (socket.is(TCPSocket::State::established)) connections.insert(ends(socket, false));
  }
  std::vector<uint64_t> wanted;
  for (const auto& socket : sockets) {
    if (socket.inode == 0) continue;
    const bool listener = socket.is(TCPSocket::State::listening) && socket.localPort != 0;
    const bool localClient = socket.is(TCPSocket::State::established) && listeningPorts.contains(socket.remotePort) &&
                             connections.contains(ends(socket, true));
    if (listener || localClient) wanted.push_back(socket.inode);
  }
  findSocketHolders(sockets, wanted, samples, now);
  std::unordered_map<int32_t, std::vector<uint16_t>> portsOf;
  for (const auto& socket : sockets) {
    if (!socket.is(TCPSocket::State::listening) || socket.localPort == 0) continue;
    if (auto holder = socketHolders_.find(socket.inode); holder != socketHolders_.end())
      portsOf[holder->second].push_back(socket.localPort);
  }
  for (auto& s : samples) {
    auto ports = portsOf.find(s.pid);
    if (ports == portsOf.end()) continue;
    s.listeningPorts = std::move(ports->second);
    std::sort(s.listeningPorts.begin(), s.listeningPorts.end());
    s.listeningPorts.erase(std::unique(s.listeningPorts.begin(), s.listeningPorts.end()), s.listeningPorts.end());
  }
}


void ProcessSampler::findSocketHolders(const std::vector<TCPSocket>& sockets, const std::vector<uint64_t>& candidates,
                                       const std::vector<ProcessSample>& samples, uint64_t now) {
  std::unordered_map<uint64_t, uint32_t> ownerOf;  // the live sockets' inodes → their owners' uids
  ownerOf.reserve(sockets.size());
  for (const auto& socket : sockets)
    if (socket.inode != 0) ownerOf.emplace(socket.inode, socket.uid);
  std::unordered_set<int32_t> running;
  running.reserve(samples.size());
  for (const auto& s : samples) running.insert(s.pid);
  // A socket outlives its holder when a child inherited it: look for it again.
  std::erase_if(socketHolders_, [&](const auto& entry) {
    return !ownerOf.contains(entry.first) || !running.contains(entry.second);
  });
  const uint64_t retry = static_cast<uint64_t>(kUnheldRetrySeconds * kNanosecondsPerSecond);
  std::erase_if(unheld_,
                [&](const auto& entry) { return !ownerOf.contains(entry.first) || now - entry.second >= retry; });

  std::unordered_set<uint64_t> wanted;
  std::unordered_map<uint32_t, bool> readable;  // by uid
  for (const uint64_t inode : candidates) {
    if (socketHolders_.contains(inode) || unheld_.contains(inode)) continue;
    const uint32_t uid = ownerOf.at(inode);
    auto [slot, inserted] = readable.try_emplace(uid, false);
    if (inserted) slot->second = source_->readsSocketsOf(uid);
    if (slot->second) wanted.insert(inode);
  }
  if (wanted.empty()) return;

  // Processes that held sockets before are the likeliest holders of new ones.
  std::vector<size_t> order;
  for (size_t i = 0; i < samples.size(); ++i) {
    const auto uid = readable.find(samples[i].uid);
    if (!samples[i].kernelThread && uid != readable.end() && uid->second) order.push_back(i);
  }
  std::stable_partition(order.begin(), order.end(), [&](size_t i) { return sampled_[i]->holdsSockets; });
  for (const size_t i : order) {
    const auto inodes = source_->socketInodes(samples[i].pid);
    sampled_[i]->holdsSockets = !inodes.empty();
    for (const uint64_t inode : inodes) {
      if (wanted.erase(inode) > 0) socketHolders_[inode] = samples[i].pid;
    }
    if (wanted.empty()) return;
  }
  for (const uint64_t inode : wanted) unheld_[inode] = now;
}

std::optional<std::string> ProcessSampler::projectRoot(const std::string& directory, uint64_t now) {
  if (directory.empty() || directory.front() != '/') return std::nullopt;
  std::string current = withoutTrailingSlash(directory);
  const std::string& home = *options_.homeDirectory;
  while (current != "/" && current != home) {
    if (hasProjectMarker(current, now)) return current;
    const auto slash = current.rfind('/');
    current.resize(slash == 0 ? 1 : slash);
  }
  return std::nullopt;
}

bool ProcessSampler::hasProjectMarker(const std::string& directory, uint64_t now) {
  if (auto it = markerChecks_.find(directory); it != markerChecks_.end()) return it->second.hasMarker;
  bool found = false;
  std::string path;
  for (const char* marker : kProjectMarkers) {
    path.assign(directory).append("/").append(marker);
    struct stat info {};
    if (::fstatat(AT_FDCWD, path.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0) {
      found = true;
      break;
    }
  }
  markerChecks_[directory] = {found, now};
  return found;
}

}  // namespace omnira
