#include "OmniraCore/containers/ContainerSampler.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <system_error>
#include <thread>

#include <spdlog/spdlog.h>

namespace omnira {

namespace {

// Runs fn(0) ... fn(count - 1) on up to `width` threads, this one included.
template <class Fn>
void inParallel(size_t count, size_t width, const Fn& fn) {
  std::atomic<size_t> next{0};
  const auto work = [&] {
    for (size_t i = next++; i < count; i = next++) fn(i);
  };
  std::vector<std::thread> helpers;
  for (size_t t = 1; t < std::min(count, std::max<size_t>(width, 1)); ++t) {
    try {
      helpers.emplace_back(work);
    } catch (const std::system_error& e) {
      // Out of threads: the calls still happen, only fewer at once.
      spdlog::debug("Asking the container engines with {} threads instead of {}: {}", t, width, e.what());
      break;
    }
  }
  work();
  for (auto& helper : helpers) helper.join();
}

std::optional<double> rate(uint64_t now, uint64_t before, double seconds) {
  if (seconds <= 0 || now < before) return std::nullopt;  // a restarted container counts from 0 again
  return static_cast<double>(now - before) / seconds;
}

std::string homeFolder() {
  if (const char* home = std::getenv("HOME"); home && *home) return home;
  if (const passwd* entry = ::getpwuid(::geteuid()); entry && entry->pw_dir) return entry->pw_dir;
  return {};
}

}  // namespace

ContainerSampler::Options ContainerSampler::forThisUser() {
  const auto environment = [](const std::string& name) -> std::optional<std::string> {
    const char* value = std::getenv(name.c_str());
    return value ? std::optional<std::string>(value) : std::nullopt;
  };
  Options options;
  options.engines = ContainerEngine::known(homeFolder(), environment);
  return options;
}

ContainerSampler::ContainerSampler(Options options) : options_(std::move(options)) {}

void ContainerSampler::measure(ContainerSample& container, const DockerAPI::Stats& now, const Reading* before,
                               double seconds) {
  container.memoryInUseBytes = now.memory.inUse();
  container.memoryLimitBytes = now.memory.limit > 0 ? std::optional<uint64_t>(now.memory.limit) : std::nullopt;

  // Our own last reading, else the engine's when it kept one.
  const DockerAPI::Stats::CPU* then = before ? &before->stats.cpu : nullptr;
  if (!then && now.previousCPU.systemUsage.value_or(0) > 0) then = &now.previousCPU;
  container.cpuPercent.reset();
  if (then && now.cpu.totalUsage >= then->totalUsage) {
    const auto used = static_cast<double>(now.cpu.totalUsage - then->totalUsage);
    if (now.cpu.systemUsage && then->systemUsage && *now.cpu.systemUsage > *then->systemUsage) {
      // The host's nanoseconds over all its CPUs: a share of the machine, times the CPUs
      // makes a share of one core.
      const double cpus = now.cpu.onlineCPUs.value_or(std::max(1u, std::thread::hardware_concurrency()));
      container.cpuPercent = used / static_cast<double>(*now.cpu.systemUsage - *then->systemUsage) * cpus * 100.0;
    } else if (before && seconds > 0) {
      container.cpuPercent = used / (seconds * 1e9) * 100.0;
    }
  }

  container.networkInBytesPerSec = container.networkOutBytesPerSec = std::nullopt;
  container.diskReadBytesPerSec = container.diskWriteBytesPerSec = std::nullopt;
  if (!before) return;
  const auto& old = before->stats;
  container.networkInBytesPerSec = rate(now.networkReceived, old.networkReceived, seconds);
  container.networkOutBytesPerSec = rate(now.networkSent, old.networkSent, seconds);
  container.diskReadBytesPerSec = rate(now.blockIO.readBytes, old.blockIO.readBytes, seconds);
  container.diskWriteBytesPerSec = rate(now.blockIO.writeBytes, old.blockIO.writeBytes, seconds);
}

ContainerSnapshot ContainerSampler::sample(bool withStats) {
  ContainerSnapshot snapshot;
  snapshot.withStats = withStats;
  for (const auto& engine : options_.engines)
    if (engine.isPresent()) snapshot.engines.push_back({engine.name, engine.socketPath});

  // Each engine's list at once: one that hangs costs its time-out, not the others' too.
  std::vector<std::vector<DockerAPI::Summary>> lists(snapshot.engines.size());
  inParallel(snapshot.engines.size(), snapshot.engines.size(), [&](size_t i) {
    auto& engine = snapshot.engines[i];
    auto listed = DockerAPI::list(engine.socketPath, options_.timeout);
    if (!listed) {
      engine.failure = listed.error().message;
      return;
    }
    engine.answered = true;
    lists[i] = std::move(*listed);
    if (!withStats) return;
    if (auto known = memTotal_.find(engine.socketPath); known != memTotal_.end()) {
      engine.memTotalBytes = known->second;
    } else if (auto info = DockerAPI::info(engine.socketPath, options_.timeout); info && info->memTotal > 0) {
      engine.memTotalBytes = info->memTotal;
    }
  });

  for (size_t i = 0; i < lists.size(); ++i) {
    const auto& engine = snapshot.engines[i];
    if (engine.memTotalBytes) memTotal_[engine.socketPath] = *engine.memTotalBytes;
    std::vector<ContainerSample> listed;
    for (auto& summary : lists[i]) {
      ContainerSample c;
      c.engine = engine.name;
      c.socketPath = engine.socketPath;
      c.id = std::move(summary.id);
      c.name = std::move(summary.name);
      c.image = std::move(summary.image);
      c.status = std::move(summary.status);
      c.publishedPorts = summary.publishedPorts();
      c.composeProject = summary.composeProject();
      c.composeService = summary.composeService();
      c.composeFolder = summary.composeWorkingDir();
      listed.push_back(std::move(c));
    }
    std::sort(listed.begin(), listed.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    snapshot.containers.insert(snapshot.containers.end(), std::make_move_iterator(listed.begin()),
                               std::make_move_iterator(listed.end()));
  }
  if (!withStats) return snapshot;

  struct Call {
    std::optional<Result<DockerAPI::Stats, DockerAPI::Failure>> reply;
    Clock::time_point at;
  };
  std::vector<Call> calls(snapshot.containers.size());
  // An engine that lists its containers but hangs on each stats call must not cost a time-out
  // per container: calls not begun by then are left out, and those containers get no figures.
  const auto deadline = Clock::now() + 2 * options_.timeout;
  inParallel(calls.size(), options_.parallelCalls, [&](size_t i) {
    if (Clock::now() >= deadline) return;
    const auto& c = snapshot.containers[i];
    calls[i].reply = DockerAPI::stats(c.socketPath, c.id, options_.timeout);
    calls[i].at = Clock::now();
  });

  std::map<std::string, Reading> readings;
  std::vector<ContainerSample> kept;
  for (size_t i = 0; i < calls.size(); ++i) {
    auto& c = snapshot.containers[i];
    if (!calls[i].reply) {
      kept.push_back(std::move(c));
      continue;
    }
    const auto& reply = *calls[i].reply;
    if (!reply) {
      // Gone between the list and its stats call: it is no longer running.
      if (reply.error().message == "status 404") continue;
      spdlog::debug("No figures for the container {}: {}", c.name, reply.error().message);
      kept.push_back(std::move(c));
      continue;
    }
    const auto before = previous_.find(c.id);
    const Reading* last = before == previous_.end() ? nullptr : &before->second;
    // The engine's own times where it gives them: it may answer twice from one collection.
    double seconds = 0;
    if (last && reply->read && last->stats.read)
      seconds = std::chrono::duration<double>(*reply->read - *last->stats.read).count();
    else if (last)
      seconds = std::chrono::duration<double>(calls[i].at - last->at).count();
    measure(c, *reply, last, seconds);
    readings[c.id] = Reading{*reply, calls[i].at};
    kept.push_back(std::move(c));
  }
  snapshot.containers = std::move(kept);
  // Containers that stopped are forgotten; one that comes back starts afresh.
  previous_ = std::move(readings);
  return snapshot;
}

}  // namespace omnira
