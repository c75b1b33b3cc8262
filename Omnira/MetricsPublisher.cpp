#include "Omnira/MetricsPublisher.h"

#include <spdlog/spdlog.h>

#include <unistd.h>

#include <chrono>

#include "Omnira/MonitorStore.h"
#include "Omnira/UsageLimitsStore.h"
#include "OmniraCore/metrics/MetricsSettings.h"
#include "OmniraCore/metrics/SelfCost.h"

namespace omnira {

namespace {
constexpr const char* kRequester = "metrics";
}

MetricsPublisher::MetricsPublisher(MonitorStore* store, const UsageLimitsStore* usage, QObject* parent)
    : QObject(parent), store_(store), usage_(usage) {
  connect(store_, &MonitorStore::ticked, this, [this] {
    // A tick starts with its system sample and ends here, once everything is published.
    if (store_->system()) {
      const std::chrono::duration<double> took = std::chrono::system_clock::now() - store_->system()->timestamp;
      if (took.count() >= 0 && took.count() < 60) exporter_.noteTick(took.count());  // not across a clock change
    }
    publish();
  });
  connect(store_, &MonitorStore::insightsRaised, this, [this](const Insights& fresh) { exporter_.noteRaised(fresh); });
}

MetricsPublisher::~MetricsPublisher() {
  if (server_) store_->requestContainers(kRequester, false);
}

std::optional<uint16_t> MetricsPublisher::port() const {
  if (!server_) return std::nullopt;
  return server_->port();
}

void MetricsPublisher::applySettings(const Settings& settings) {
  exporter_.setOptions({.maxApps = static_cast<size_t>(settings.integer(SettingsKeys::metricsMaxApps)),
                        .projectPaths = settings.boolean(SettingsKeys::metricsProjectPaths),
                        .countsRaised = true});
  const bool enabled = settings.boolean(SettingsKeys::metricsEnabled);
  const MetricsServer::Options wanted{settings.string(SettingsKeys::metricsAddress),
                                     settings.string(SettingsKeys::metricsToken)};
  if (server_ && enabled && wanted.address == running_.address && wanted.token == running_.token) return;
  if (server_) {
    server_.reset();
    store_->requestContainers(kRequester, false);
    spdlog::info("The metrics endpoint stopped.");
  }
  if (!enabled) return;
  auto started = MetricsServer::start(wanted);
  if (!started) {
    spdlog::error("{}", started.error().message);
    return;
  }
  server_ = std::move(started).value();
  running_ = wanted;
  // Containers are sampled with their figures only while someone wants them.
  store_->requestContainers(kRequester, true);
  const auto endpoint = MetricsServer::parseAddress(wanted.address);
  spdlog::info("Metrics at http://{}:{}/metrics{}", endpoint ? endpoint->host : wanted.address, server_->port(),
               wanted.token.empty() ? "" : " (with a bearer token)");
  publish();  // from the last tick, if there was one
}

void MetricsPublisher::publish() {
  if (!server_ || !store_->system()) return;
  MetricsReadings readings;
  readings.at = store_->system()->timestamp;
  readings.system = &*store_->system();
  if (store_->sensors()) readings.sensors = &*store_->sensors();
  readings.groups = &store_->allGroups();
  readings.groupsAt = store_->groupsAt();
  readings.containers = &store_->containers();
  readings.insights = &store_->insights();
  readings.strain = &store_->strainSince();
  if (usage_) readings.ledgers = &usage_->ledgers();
  readings.self = platform::readSelfCost();
  static const long ticksPerSecond = ::sysconf(_SC_CLK_TCK);
  const MachineCounters counters =
      platform::machineCounters(kernel_, ticksPerSecond > 0 ? static_cast<double>(ticksPerSecond) : 0);
  readings.counters = &counters;
  readings.memoryStall = kernel_.memoryStall();
  server_->publish(std::make_shared<const MetricsSnapshot>(exporter_.update(readings)));
}

}  // namespace omnira
