#pragma once
// Feeds the metrics endpoint: after each tick it turns the store's published figures into
// a snapshot (MetricsExporter keeps the counters' totals) and hands it to the server. Starts,
// moves and stops the server as the metrics settings change.
//
// Threads: a QObject of the main thread, like the stores it reads; only the finished
// snapshot crosses to the server's threads, as a shared pointer to a constant value.
//
// Failures: a server that cannot start is logged with its reason once per setting change,
// and the application goes on without it.

#include <QObject>

#include <memory>
#include <optional>
#include <string>

#include "Omnira/MetricsServer.h"
#include "OmniraCore/foundation/Settings.h"
#include "OmniraCore/history/Insight.h"
#include "OmniraCore/metrics/MetricsExporter.h"
#include "OmniraCore/platform/linux/LinuxSystemSource.h"

namespace omnira {

class MonitorStore;
class UsageLimitsStore;

class MetricsPublisher : public QObject {
  Q_OBJECT

 public:
  // The stores outlive the publisher; `usage` may be null.
  MetricsPublisher(MonitorStore* store, const UsageLimitsStore* usage, QObject* parent = nullptr);
  ~MetricsPublisher() override;

  void applySettings(const Settings& settings);
  // The port it listens on; absent while it does not.
  std::optional<uint16_t> port() const;

 private:
  void publish();

  MonitorStore* store_;
  const UsageLimitsStore* usage_;
  MetricsExporter exporter_;
  // The kernel's own totals (CPU by core and mode, disk and network bytes) and memory
  // stalls, read once per tick while the endpoint is on: the sample keeps only rates.
  platform::LinuxSystemSource kernel_{platform::Roots{}};
  std::unique_ptr<MetricsServer> server_;
  MetricsServer::Options running_;  // what server_ was started with
};

}  // namespace omnira
