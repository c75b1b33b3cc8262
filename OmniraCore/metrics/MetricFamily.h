#pragma once
// One metric family as the exposition writer takes it: its name, what it is, its type and
// its samples. Names are fixed by Omnira and valid; label values are whatever the machine
// gave (process and folder names are bytes) and are made safe only when written out.
// A plain value, built on the main thread and read, never changed, by the server's threads.

#include <string>
#include <utility>
#include <vector>

namespace omnira {

using MetricLabels = std::vector<std::pair<std::string, std::string>>;

struct MetricSample {
  // Added to the family's name: "_total" for counters, "_bucket", "_sum" or "_count" for a
  // histogram, empty for a gauge.
  std::string suffix;
  MetricLabels labels;
  double value = 0;
  friend bool operator==(const MetricSample&, const MetricSample&) = default;
};

struct MetricFamily {
  enum class Type { gauge, counter, histogram };
  std::string name;  // without "_total": "omnira_cpu_seconds"
  std::string help;
  Type type = Type::gauge;
  std::vector<MetricSample> samples;
  friend bool operator==(const MetricFamily&, const MetricFamily&) = default;
};

// What one scrape sends: every family of the last tick, in the order written.
using MetricsSnapshot = std::vector<MetricFamily>;

}  // namespace omnira
