#pragma once
// Turns the stream of readings into short notices worth a look: an app that keeps the CPU
// busy in the background, memory that keeps growing, heavy disk or network transfer, an app
// over the person's limit, rising memory pressure, idle dev servers, a hot machine, a busy
// Neural Engine.
//
// A plain value with mutable state, owned by the monitor store and fed once per tick on the
// main thread; it takes no lock. It keeps only short in-memory series (at most an hour, or the
// longest limit); the store saves the insights it shows. The rules never fail: a missing input
// or too short a series simply raises nothing.

#include <deque>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/history/AppLimit.h"
#include "OmniraCore/history/IdleServer.h"
#include "OmniraCore/history/Insight.h"
#include "OmniraCore/history/InsightTexts.h"
#include "OmniraCore/history/NeuralEngineHolder.h"
#include "OmniraCore/sensors/ThermalSample.h"
#include "OmniraCore/sampling/AppGroup.h"
#include "OmniraCore/sampling/SystemSample.h"

namespace omnira {

class InsightEngine {
 public:
  struct Thresholds {
    double cpuPercent = 50;         // in app-group CPU units (100 = one core)
    double systemCPUPercent = 200;  // the same for the system group
    double cpuWindow = 600;         // seconds
    uint64_t memoryGrowthBytes = 1'073'741'824;
    double memoryGrowthRatio = 0.3;
    double memoryWindow = 3600;
    uint64_t diskBurstBytes = 5'368'709'120;
    uint64_t networkBurstBytes = 1'073'741'824;
    double burstWindow = 600;
    int idleServerCount = 2;
    double hotCelsius = 90;
    double hotWindow = 180;
    bool fahrenheit = false;
    double neuralEngineShare = 0.5;
    double neuralEngineWindow = 1200;
    double cooldown = 3600;  // the same insight is not repeated within this many seconds

    // A gigabyte setting as bytes (GiB), saturating rather than overflowing. A negative or
    // non-finite setting is a programming error and aborts.
    static uint64_t bytesFromGigabytes(double gigabytes);
  };

  // `systemName` stands in the sentences where the operating system is named.
  explicit InsightEngine(std::string systemName = "Linux");

  // Rewritten by the store before every ingest from the settings and the alert settings.
  Thresholds thresholds;
  std::vector<AppLimit> limits;
  std::map<std::string, std::optional<Date>> muted;  // app id → until when; absent: for good

  // One tick: updates the series and the rules' state, and returns the new insights in the
  // order the rules raised them, already filtered for repeats.
  std::vector<Insight> ingest(const std::vector<AppGroup>& groups, const SystemSample& system,
                              const std::optional<std::string>& frontmostAppID,
                              const std::vector<IdleServer>& idleServers, const std::optional<ThermalSample>& thermal,
                              const std::optional<NeuralEngineHolder>& neuralEngine, Date now);

  bool isMuted(const std::string& appID, Date at) const;

  // Marks earlier insights (from the history) as already shown, so that a restart does not
  // repeat them within the cooldown.
  void seedCooldowns(const std::vector<Insight>& insights);

  // The key under which the repeat filter remembers an insight.
  static std::string repeatKey(const Insight& insight);

 private:
  struct Point {
    Date date;
    double cpu = 0;
    uint64_t memory = 0;
    uint64_t disk = 0;     // written since the previous point
    uint64_t network = 0;  // received plus sent since the previous point
  };
  // Oldest first. Contiguous, with the dropped front erased in batches: the rules scan
  // hundreds of series every tick.
  class Series {
   public:
    std::span<const Point> points() const { return {stored_.data() + head_, stored_.size() - head_}; }
    Point& back() { return stored_.back(); }
    void append(const Point& point) { stored_.push_back(point); }
    void dropOlderThan(Date now, double horizon);

    uint64_t seenTick = 0;

   private:
    std::vector<Point> stored_;
    size_t head_ = 0;
  };
  using Points = std::span<const Point>;

  void sustainedCPU(const AppGroup& group, Points points, Date now, std::vector<Insight>& out) const;
  void memoryGrowth(const AppGroup& group, Points points, Date now, std::vector<Insight>& out) const;
  void bursts(const AppGroup& group, Points points, Date now, std::vector<Insight>& out) const;
  void appLimit(const AppGroup& group, const AppLimit& limit, Points points, Date now,
                std::vector<Insight>& out) const;
  // True when an insight with this key was let through within the cooldown: the repeat filter
  // would drop it, so the rule need not write its sentences.
  bool firedRecently(Insight::Kind kind, const std::string& appID, const std::optional<UUID>& ruleID, Date now) const;
  void memoryPressure(const std::vector<AppGroup>& groups, MemoryPressure level, Date now, std::vector<Insight>& out);
  void idleServersRule(const std::vector<IdleServer>& servers, Date now, std::vector<Insight>& out) const;
  void runningHot(const std::vector<AppGroup>& groups, const std::optional<ThermalSample>& thermal, Date now,
                  std::vector<Insight>& out);
  void neuralEngineBusy(const std::optional<NeuralEngineHolder>& holder, Date now, std::vector<Insight>& out);
  std::vector<Insight> filterRepeats(std::vector<Insight> insights);

  InsightTexts texts_;
  std::unordered_map<std::string, Series> history_;
  std::map<std::string, Date, std::less<>> lastFired_;
  mutable std::string keyScratch_;
  MemoryPressure lastPressure_ = MemoryPressure::normal;
  std::optional<Date> hotSince_;
  bool hotReported_ = false;
  std::deque<std::pair<Date, double>> neuralEnginePoints_;
  uint64_t tick_ = 0;
};

}  // namespace omnira
