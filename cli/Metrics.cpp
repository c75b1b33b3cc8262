#include "cli/Metrics.h"

#include <unistd.h>

#include <chrono>
#include <future>
#include <map>
#include <set>
#include <thread>

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include "OmniraCore/metrics/MetricsSettings.h"
#include "OmniraCore/metrics/MetricsExporter.h"
#include "OmniraCore/metrics/SelfCost.h"
#include "OmniraCore/containers/ContainerSampler.h"
#include "OmniraCore/platform/linux/LibProc.h"
#include "OmniraCore/platform/linux/LinuxSystemSource.h"
#include "OmniraCore/usage/UsageLimitsCache.h"
#include "cli/Insights.h"

namespace omnira::cli {

namespace {
// Long enough for an engine at work to list its containers, short enough that a stuck one
// does not hold up a textfile collector's run.
constexpr std::chrono::milliseconds kContainerTimeout{1500};
}  // namespace

SavedReadings readSaved(const AppPaths& paths) {
  SavedReadings saved;
  saved.settings = Settings::load(paths.settingsFile());
  if (auto list = WorthALook::load(paths.dataFile("insights.json"))) saved.insights = list->insights();
  else spdlog::debug("No saved insights: {}", list.error().message);
  if (auto cache = UsageLimitsCache::load(paths.dataFile(UsageLimitsCache::fileName))) saved.ledgers = cache->ledgers;
  else spdlog::debug("No saved token ledgers: {}", cache.error().message);
  return saved;
}

std::unordered_map<int32_t, ProcessNetwork::Bytes> socketBytesByProcess(const Snapshot& snapshot, ProcessSource& source) {
  std::unordered_map<uint64_t, const TCPSocket*> byInode;
  std::set<uint32_t> owners;
  for (const auto& socket : snapshot.sockets) {
    if (socket.inode == 0 || (!socket.bytesReceived && !socket.bytesSent)) continue;
    byInode.emplace(socket.inode, &socket);
    owners.insert(socket.uid);
  }
  std::map<uint32_t, bool> readable;
  for (const uint32_t uid : owners) readable[uid] = source.readsSocketsOf(uid);
  std::unordered_map<int32_t, ProcessNetwork::Bytes> bytes;
  for (const auto& group : snapshot.groups) {
    for (const auto& p : group.processes) {
      const auto uid = readable.find(p.uid);
      if (p.kernelThread || uid == readable.end() || !uid->second) continue;
      for (const uint64_t inode : source.socketInodes(p.pid)) {
        const auto socket = byInode.find(inode);
        if (socket == byInode.end()) continue;
        // A socket shared with a child counts once, for whichever holder comes first.
        auto& b = bytes[p.pid];
        b.in += socket->second->bytesReceived.value_or(0);
        b.out += socket->second->bytesSent.value_or(0);
        byInode.erase(socket);
      }
    }
  }
  return bytes;
}

std::string metricsExposition(const Snapshot& snapshot, const MachineCounters* counters,
                              std::optional<MemoryStall> stall, const SavedReadings& saved, ExpositionFormat format,
                              const ContainerSnapshot* containers,
                              const std::unordered_map<int32_t, ProcessNetwork::Bytes>* socketBytes) {
  MetricsExporter exporter({.maxApps = static_cast<size_t>(saved.settings.integer(SettingsKeys::metricsMaxApps)),
                            .projectPaths = saved.settings.boolean(SettingsKeys::metricsProjectPaths)});
  MetricsReadings readings;
  readings.at = snapshot.system.timestamp;
  readings.system = &snapshot.system;
  readings.counters = counters;
  readings.memoryStall = stall;
  readings.sensors = &snapshot.sensors;
  readings.groups = &snapshot.groups;
  readings.groupsAt = snapshot.system.timestamp;
  readings.lifetimeTotals = true;
  readings.socketBytes = socketBytes;
  readings.containers = containers;
  readings.insights = &saved.insights;
  readings.strain = &snapshot.strain;
  readings.ledgers = &saved.ledgers;
  readings.self = platform::readSelfCost();
  return renderExposition(exporter.update(readings), format);
}

int runMetrics(const MetricsRequest& request, std::FILE* out, std::FILE* err) {
  // The engines are asked while the process snapshot takes its second. Two readings a second
  // apart give CPU; an engine that does not answer soon is left out, so the command stays quick.
  auto engines = std::async(std::launch::async, [] {
    auto options = ContainerSampler::forThisUser();
    options.timeout = kContainerTimeout;
    ContainerSampler sampler(std::move(options));
    const auto started = std::chrono::steady_clock::now();
    auto first = sampler.sample(/*withStats=*/true);
    if (first.containers.empty()) return first;
    std::this_thread::sleep_until(started + std::chrono::seconds(1));
    return sampler.sample(/*withStats=*/true);
  });
  auto snap = takeSnapshot(/*projects=*/true);
  const auto containers = engines.get();
  containers.nameGroups(snap.groups);
  platform::LibProc processes;
  const auto socketBytes = socketBytesByProcess(snap, processes);
  platform::LinuxSystemSource source{platform::Roots{}};
  const long ticks = ::sysconf(_SC_CLK_TCK);
  const MachineCounters counters = platform::machineCounters(source, ticks > 0 ? static_cast<double>(ticks) : 0);
  SavedReadings saved;
  if (auto paths = AppPaths::fromProcessEnvironment()) {
    saved = readSaved(*paths);
    snap.strain = sampleStrain(snap.system, *paths, saved.settings, snap.system.timestamp);
  } else {
    fmt::print(err, "omnira: {} The figures follow without insights and tokens.\n", paths.error().message);
  }
  const auto format = request.openMetrics ? ExpositionFormat::openMetrics : ExpositionFormat::prometheusText;
  fmt::print(out, "{}", metricsExposition(snap, &counters, source.memoryStall(), saved, format, &containers, &socketBytes));
  return 0;
}

}  // namespace omnira::cli
