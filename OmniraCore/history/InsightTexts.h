#pragma once
// Every sentence the insight engine writes, in one place so that they can be translated.
// English only for now; the system's name ("Linux", or the distribution's) is passed in.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "OmniraCore/sampling/MemoryPressure.h"

namespace omnira {

class InsightTexts {
 public:
  struct Text {
    std::string title;
    std::string detail;
  };

  explicit InsightTexts(std::string systemName) : systemName_(std::move(systemName)) {}

  // "350 bytes", "12 kB", "350 MB", "1.2 GB": decimal units, as file managers show them.
  static std::string bytes(uint64_t count);
  // A stretch of time ending now: "the last 30 seconds", "the last 10 minutes", "the last hour",
  // "the last 2 hours", "the last 3 days".
  static std::string lastStretch(double seconds);
  // "A", "A and B", "A, B and C".
  static std::string list(const std::vector<std::string>& items);

  Text sustainedCPU(const std::string& app, double averagePercent, double window) const;
  Text memoryGrowth(const std::string& app, uint64_t growth, double stretch, uint64_t current) const;
  Text diskBurst(const std::string& app, uint64_t written, double window) const;
  Text networkBurst(const std::string& app, uint64_t moved, double window) const;
  Text cpuLimit(const std::string& app, double averagePercent, double window, double limitPercent) const;
  Text memoryLimit(const std::string& app, uint64_t current, uint64_t limit, double window) const;
  // `users`: at most two of the biggest apps, each with its memory.
  Text memoryPressure(MemoryPressure level, const std::vector<std::pair<std::string, uint64_t>>& users) const;
  Text idleServers(size_t count, const std::vector<std::string>& names, uint64_t memory,
                   const std::vector<uint16_t>& ports) const;
  // `celsius` is shown in °F when `fahrenheit`; `apps` are those doing most of the work.
  Text runningHot(double celsius, bool fahrenheit, bool atCPU, double stretch, const std::vector<std::string>& apps,
                  const std::vector<double>& fanRPM) const;
  // `app` absent: the system cannot say which app is using the engine.
  Text neuralEngineBusy(const std::optional<std::string>& app, double averageShare, double window) const;

 private:
  std::string systemName_;
};

}  // namespace omnira
