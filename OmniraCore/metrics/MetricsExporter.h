#pragma once
// Turns the store's figures into metric families for the /metrics endpoint and for
// `omnira metrics`. It keeps the running totals that counters need: the machine's CPU,
// disk and network when only rates are at hand, and per app and per project the CPU
// seconds and bytes of every process sample, so that a series never goes down.
//
// Cardinality stays bounded: at most `maxApps` apps (and as many projects) get their own
// series, chosen by the last minute's CPU and their memory; the rest are added into
// app="other" (project="other"). An app that leaves the top keeps its past in its own series,
// which stops; what it does afterwards is added to "other", whose totals only grow.
//
// Owned by one thread (the main thread in the application); not thread-safe. Nothing fails.

#include <array>
#include <cstddef>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/history/Insight.h"
#include "OmniraCore/metrics/MetricFamily.h"
#include "OmniraCore/metrics/MetricsReadings.h"

namespace omnira {

class MetricsExporter {
 public:
  struct Options {
    size_t maxApps = 50;
    bool projectPaths = false;  // label projects by their full path, not the folder's name
    bool countsRaised = false;  // the running application counts insights as they are raised
  };

  MetricsExporter() = default;
  explicit MetricsExporter(Options options) : options_(options) {}
  void setOptions(Options options) { options_ = options; }

  // Adds what is new in `readings` to the totals and returns every family to expose.
  std::vector<MetricFamily> update(const MetricsReadings& readings);
  // Insights raised since the last call, counted by kind.
  void noteRaised(const std::vector<Insight>& fresh);
  // How long one tick took, into the tick duration histogram.
  void noteTick(double seconds);

  static constexpr std::array<double, 11> tickBuckets = {0.001, 0.0025, 0.005, 0.01, 0.025, 0.05,
                                                          0.1,   0.25,   0.5,   1,    2.5};

  // Running totals of one series: CPU seconds, disk read and written, network in and out bytes.
  using Totals = std::array<double, 5>;
  struct Figures {
    Totals deltas{};
    double memoryBytes = 0;  // proportional
    double residentBytes = 0;
    double processes = 0;
  };
  using Key = std::vector<std::string>;  // the label values: {app, kind} or {project}

 private:
  struct Series {
    Totals totals{};
    std::deque<std::pair<Date, double>> recentCPU;  // (sampled at, CPU seconds) of the last minute
    Date lastSeen{};
  };
  // One family of folded series (apps, or projects).
  struct Folded {
    std::map<Key, Series> series;
    Totals other{};
    bool otherShown = false;
    struct Row {
      Key key;
      Totals totals{};
      double memoryBytes = 0;
      double residentBytes = 0;
      double processes = 0;
    };
    // `absolute`: the figures' deltas are totals already, shown as they are.
    std::vector<Row> update(const std::map<Key, Figures>& figures, bool fresh, bool absolute, Date at, size_t limit,
                            const Key& otherKey);
  };

  void machine(const MetricsReadings& readings, std::vector<MetricFamily>& out);
  void groups(const MetricsReadings& readings, std::vector<MetricFamily>& out);
  void others(const MetricsReadings& readings, std::vector<MetricFamily>& out);

  Options options_;
  // Sums of the sample's rates over its intervals, for callers without kernel counters.
  std::optional<Date> lastSystemAt_;
  double cpuUser_ = 0, cpuSystem_ = 0, cpuIdle_ = 0;
  std::vector<double> coreBusy_;
  double networkIn_ = 0, networkOut_ = 0, diskRead_ = 0, diskWritten_ = 0;
  std::optional<Date> lastGroupsAt_;
  Folded apps_, projects_;
  std::map<Insight::Kind, double> raised_;
  std::array<double, tickBuckets.size()> tickCounts_{};
  double tickCount_ = 0, tickSum_ = 0;
};

}  // namespace omnira
