#include "cli/Metrics.h"

#include <unistd.h>

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include "OmniraCore/metrics/MetricsSettings.h"
#include "OmniraCore/metrics/MetricsExporter.h"
#include "OmniraCore/metrics/SelfCost.h"
#include "OmniraCore/platform/linux/LinuxSystemSource.h"
#include "OmniraCore/usage/UsageLimitsCache.h"
#include "cli/Insights.h"

namespace omnira::cli {

SavedReadings readSaved(const AppPaths& paths) {
  SavedReadings saved;
  saved.settings = Settings::load(paths.settingsFile());
  if (auto list = WorthALook::load(paths.dataFile("insights.json"))) saved.insights = list->insights();
  else spdlog::debug("No saved insights: {}", list.error().message);
  if (auto cache = UsageLimitsCache::load(paths.dataFile(UsageLimitsCache::fileName))) saved.ledgers = cache->ledgers;
  else spdlog::debug("No saved token ledgers: {}", cache.error().message);
  return saved;
}

std::string metricsExposition(const Snapshot& snapshot, const MachineCounters* counters,
                              std::optional<MemoryStall> stall, const SavedReadings& saved, ExpositionFormat format) {
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
  readings.insights = &saved.insights;
  readings.strain = &snapshot.strain;
  readings.ledgers = &saved.ledgers;
  readings.self = platform::readSelfCost();
  return renderExposition(exporter.update(readings), format);
}

int runMetrics(const MetricsRequest& request, std::FILE* out, std::FILE* err) {
  auto snap = takeSnapshot(/*projects=*/true);
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
  fmt::print(out, "{}", metricsExposition(snap, &counters, source.memoryStall(), saved, format));
  return 0;
}

}  // namespace omnira::cli
