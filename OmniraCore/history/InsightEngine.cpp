#include "OmniraCore/history/InsightEngine.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <set>
#include <string_view>

#include "OmniraCore/foundation/Parse.h"

namespace omnira {

namespace {

// Ticks closer than this fold into the last point, so that a faster cadence (a view open)
// does not crowd the series or change what "at least three points" means.
constexpr double mergeSeconds = 20;
// Memory growth needs this much history whatever the thresholds say.
constexpr double memoryGrowthMinimumAge = 600;
constexpr double busyFloorShare = 0.6;  // of the threshold: what counts as a busy point
constexpr double busyPointsShare = 0.7;
constexpr double windowCoverage = 0.95;
constexpr size_t minimumPoints = 3;
// The running-hot detail names the apps busier than this (percent of one core), at most two.
constexpr double hotAppFloorPercent = 25;
constexpr size_t hotAppCount = 2;

double secondsBetween(Date later, Date earlier) {
  return std::chrono::duration<double>(later - earlier).count();
}

uint64_t toBytes(double value) {
  if (!(value > 0)) return 0;
  if (value >= 18446744073709551616.0) return UINT64_MAX;
  return static_cast<uint64_t>(value);
}

uint64_t addSaturating(uint64_t a, uint64_t b) {
  uint64_t sum;
  return __builtin_add_overflow(a, b, &sum) ? UINT64_MAX : sum;
}

// The points no older than `window` seconds, as the index of the first one kept.
template <class Points, class DateOf>
size_t firstWithin(const Points& points, Date now, double window, DateOf dateOf) {
  auto it = std::partition_point(points.begin(), points.end(),
                                 [&](const auto& p) { return secondsBetween(now, dateOf(p)) > window; });
  return static_cast<size_t>(it - points.begin());
}

Insight makeInsight(Insight::Kind kind, Date now, InsightTexts::Text text) {
  Insight insight;
  insight.id = UUID::random();
  insight.date = now;
  insight.kind = kind;
  insight.title = std::move(text.title);
  insight.detail = std::move(text.detail);
  return insight;
}

Insight aboutApp(Insight insight, const AppGroup& group) {
  insight.appID = group.id;
  insight.appName = group.name;
  insight.appKind = group.kind;
  insight.bundlePath = group.bundlePath;
  return insight;
}

}  // namespace

void InsightEngine::Series::dropOlderThan(Date now, double horizon) {
  while (head_ < stored_.size() && secondsBetween(now, stored_[head_].date) > horizon) ++head_;
  if (head_ > 64 && head_ * 2 > stored_.size()) {
    stored_.erase(stored_.begin(), stored_.begin() + static_cast<std::ptrdiff_t>(head_));
    head_ = 0;
  }
}

bool InsightEngine::firedRecently(Insight::Kind kind, const std::string& appID, const std::optional<UUID>& ruleID,
                                  Date now) const {
  keyScratch_.assign(rawValue(kind));
  keyScratch_ += ':';
  keyScratch_ += appID;
  if (ruleID) {
    keyScratch_ += ':';
    keyScratch_ += ruleID->string();
  }
  auto it = lastFired_.find(std::string_view(keyScratch_));
  return it != lastFired_.end() && secondsBetween(now, it->second) < thresholds.cooldown;
}

uint64_t InsightEngine::Thresholds::bytesFromGigabytes(double gigabytes) {
  if (!std::isfinite(gigabytes) || gigabytes < 0) std::abort();
  return toBytes(gigabytes * 1'073'741'824.0);
}

InsightEngine::InsightEngine(std::string systemName) : texts_(std::move(systemName)) {}

bool InsightEngine::isMuted(const std::string& appID, Date at) const {
  auto it = muted.find(appID);
  return it != muted.end() && (!it->second || *it->second > at);
}

std::string InsightEngine::repeatKey(const Insight& insight) {
  std::string key(rawValue(insight.kind));
  key += ':';
  if (insight.appID) key += *insight.appID;
  if (insight.ruleID) {
    key += ':';
    key += insight.ruleID->string();
  }
  return key;
}

void InsightEngine::seedCooldowns(const std::vector<Insight>& insights) {
  for (const Insight& insight : insights) {
    auto [it, inserted] = lastFired_.try_emplace(repeatKey(insight), insight.date);
    if (!inserted && it->second < insight.date) it->second = insight.date;
  }
}

std::vector<Insight> InsightEngine::ingest(const std::vector<AppGroup>& groups, const SystemSample& system,
                                           const std::optional<std::string>& frontmostAppID,
                                           const std::vector<IdleServer>& idleServers,
                                           const std::optional<ThermalSample>& thermal,
                                           const std::optional<NeuralEngineHolder>& neuralEngine, Date now) {
  ++tick_;
  double longestLimit = 0;
  for (const AppLimit& limit : limits) longestLimit = std::max(longestLimit, limit.minutes);
  const double horizon =
      std::max({thresholds.cpuWindow, thresholds.memoryWindow, thresholds.burstWindow, 60 * longestLimit});
  const double interval = system.interval > 0 ? system.interval : 0;

  std::vector<Insight> raised;
  for (const AppGroup& group : groups) {
    Series& series = history_[group.id];
    series.seenTick = tick_;

    const double cpu = group.cpuPercent();
    const uint64_t memory = group.memoryBytes();
    // Rates times the tick's interval: right even when the groups are reused between process samples.
    const uint64_t disk = toBytes(group.diskWriteBytesPerSec() * interval);
    const uint64_t network = toBytes((group.networkInBytesPerSec() + group.networkOutBytesPerSec()) * interval);
    const Points points = series.points();
    if (points.size() >= 2 && secondsBetween(now, points.back().date) < mergeSeconds) {
      Point& last = series.back();
      last.cpu = (last.cpu + cpu) / 2;
      last.memory = memory;
      last.disk = addSaturating(last.disk, disk);
      last.network = addSaturating(last.network, network);
    } else {
      series.append(Point{now, cpu, memory, disk, network});
    }
    series.dropOlderThan(now, horizon);

    if (isMuted(group.id, now)) continue;
    if (!frontmostAppID || *frontmostAppID != group.id) {
      sustainedCPU(group, series.points(), now, raised);
      memoryGrowth(group, series.points(), now, raised);
    }
    bursts(group, series.points(), now, raised);
    for (const AppLimit& limit : limits)
      if (limit.isOn && limit.appID == group.id) appLimit(group, limit, series.points(), now, raised);
  }
  std::erase_if(history_, [&](const auto& entry) { return entry.second.seenTick != tick_; });

  memoryPressure(groups, system.pressure, now, raised);
  idleServersRule(idleServers, now, raised);
  runningHot(groups, thermal, now, raised);
  neuralEngineBusy(neuralEngine, now, raised);
  return filterRepeats(std::move(raised));
}

void InsightEngine::sustainedCPU(const AppGroup& group, Points points, Date now, std::vector<Insight>& out) const {
  const double window = thresholds.cpuWindow;
  const size_t first = firstWithin(points, now, window, [](const Point& p) { return p.date; });
  const size_t count = points.size() - first;
  if (count < minimumPoints || secondsBetween(now, points[first].date) < windowCoverage * window) return;
  const double threshold = group.kind == GroupKind::system ? thresholds.systemCPUPercent : thresholds.cpuPercent;
  double sum = 0;
  size_t busy = 0;
  for (size_t i = first; i < points.size(); ++i) {
    sum += points[i].cpu;
    if (points[i].cpu >= busyFloorShare * threshold) ++busy;
  }
  const double average = sum / static_cast<double>(count);
  if (average >= threshold && static_cast<double>(busy) / static_cast<double>(count) >= busyPointsShare &&
      !firedRecently(Insight::Kind::sustainedCPU, group.id, std::nullopt, now))
    out.push_back(aboutApp(
        makeInsight(Insight::Kind::sustainedCPU, now, texts_.sustainedCPU(group.name, average, window)), group));
}

void InsightEngine::memoryGrowth(const AppGroup& group, Points points, Date now, std::vector<Insight>& out) const {
  if (points.empty()) return;
  const double age = secondsBetween(now, points.front().date);
  if (age < memoryGrowthMinimumAge) return;
  const uint64_t current = group.memoryBytes();
  // Growth cannot exceed the current figure, so small apps need no scan of their series.
  if (current < thresholds.memoryGrowthBytes) return;
  uint64_t baseline = UINT64_MAX;
  for (const Point& p : points) baseline = std::min(baseline, p.memory);
  if (baseline == 0 || current <= baseline) return;
  const uint64_t growth = current - baseline;
  if (growth < thresholds.memoryGrowthBytes ||
      static_cast<double>(growth) / static_cast<double>(baseline) < thresholds.memoryGrowthRatio ||
      firedRecently(Insight::Kind::memoryGrowth, group.id, std::nullopt, now))
    return;
  const double stretch = std::min(age, thresholds.memoryWindow);
  out.push_back(aboutApp(
      makeInsight(Insight::Kind::memoryGrowth, now, texts_.memoryGrowth(group.name, growth, stretch, current)),
      group));
}

void InsightEngine::bursts(const AppGroup& group, Points points, Date now, std::vector<Insight>& out) const {
  const double window = thresholds.burstWindow;
  uint64_t disk = 0, network = 0;
  for (size_t i = firstWithin(points, now, window, [](const Point& p) { return p.date; }); i < points.size(); ++i) {
    disk = addSaturating(disk, points[i].disk);
    network = addSaturating(network, points[i].network);
  }
  if (disk >= thresholds.diskBurstBytes && !firedRecently(Insight::Kind::diskBurst, group.id, std::nullopt, now))
    out.push_back(
        aboutApp(makeInsight(Insight::Kind::diskBurst, now, texts_.diskBurst(group.name, disk, window)), group));
  if (network >= thresholds.networkBurstBytes &&
      !firedRecently(Insight::Kind::networkBurst, group.id, std::nullopt, now))
    out.push_back(aboutApp(
        makeInsight(Insight::Kind::networkBurst, now, texts_.networkBurst(group.name, network, window)), group));
}

void InsightEngine::appLimit(const AppGroup& group, const AppLimit& limit, Points points, Date now,
                             std::vector<Insight>& out) const {
  const double window = std::max(60 * limit.minutes, 60.0);
  const size_t first = firstWithin(points, now, window, [](const Point& p) { return p.date; });
  const size_t count = points.size() - first;
  if (count < minimumPoints || secondsBetween(now, points[first].date) < windowCoverage * window ||
      firedRecently(Insight::Kind::appLimit, group.id, limit.id, now))
    return;

  std::optional<InsightTexts::Text> text;
  if (limit.figure == AppLimit::Figure::cpu) {
    double sum = 0;
    size_t busy = 0;
    for (size_t i = first; i < points.size(); ++i) {
      sum += points[i].cpu;
      if (points[i].cpu >= busyFloorShare * limit.limit) ++busy;
    }
    const double average = sum / static_cast<double>(count);
    if (average >= limit.limit && static_cast<double>(busy) / static_cast<double>(count) >= busyPointsShare)
      text = texts_.cpuLimit(group.name, average, window, limit.limit);
  } else {
    // One dip below the limit anywhere in the window holds the notice back.
    for (size_t i = first; i < points.size(); ++i)
      if (static_cast<double>(points[i].memory) < limit.limit) return;
    text = texts_.memoryLimit(group.name, group.memoryBytes(), toBytes(limit.limit), window);
  }
  if (!text) return;
  Insight insight = aboutApp(makeInsight(Insight::Kind::appLimit, now, std::move(*text)), group);
  insight.ruleID = limit.id;
  insight.limitFigure = limit.figure;
  out.push_back(std::move(insight));
}

void InsightEngine::memoryPressure(const std::vector<AppGroup>& groups, MemoryPressure level, Date now,
                                   std::vector<Insight>& out) {
  // Raw values are the ranks (1, 2, 4): only a rise raises.
  const bool due = level != MemoryPressure::normal && static_cast<int>(level) > static_cast<int>(lastPressure_);
  lastPressure_ = level;
  if (!due) return;
  std::vector<std::pair<std::string, uint64_t>> users;
  for (const AppGroup& group : groups) users.emplace_back(group.name, group.memoryBytes());
  const size_t count = std::min<size_t>(2, users.size());
  std::partial_sort(users.begin(), users.begin() + static_cast<std::ptrdiff_t>(count), users.end(),
                    [](const auto& a, const auto& b) { return a.second > b.second; });
  users.resize(count);
  Insight insight = makeInsight(Insight::Kind::memoryPressure, now, texts_.memoryPressure(level, users));
  insight.appID = level == MemoryPressure::critical ? "critical" : "warning";
  out.push_back(std::move(insight));
}

void InsightEngine::idleServersRule(const std::vector<IdleServer>& servers, Date now,
                                    std::vector<Insight>& out) const {
  if (static_cast<long long>(servers.size()) < thresholds.idleServerCount) return;
  std::set<int32_t> pids;
  for (const IdleServer& server : servers) pids.insert(server.pid);

  // A set that only shrank (a server was stopped) was already reported under a larger key.
  constexpr std::string_view prefix = "idleServers:";
  for (const auto& [key, date] : lastFired_) {
    if (!key.starts_with(prefix) || secondsBetween(now, date) >= thresholds.cooldown) continue;
    std::set<int32_t> fired;
    std::string_view rest = std::string_view(key).substr(key.rfind(':') + 1);
    while (!rest.empty()) {
      const size_t comma = rest.find(',');
      if (auto pid = parseNumber<int32_t>(rest.substr(0, comma))) fired.insert(*pid);
      rest = comma == std::string_view::npos ? std::string_view() : rest.substr(comma + 1);
    }
    if (std::includes(fired.begin(), fired.end(), pids.begin(), pids.end())) return;
  }

  std::string appID(prefix);
  for (auto it = pids.begin(); it != pids.end(); ++it) {
    if (it != pids.begin()) appID += ',';
    appID += std::to_string(*it);
  }
  std::vector<std::string> names;
  uint64_t memory = 0;
  std::set<uint16_t> ports;
  for (const IdleServer& server : servers) {
    names.push_back(server.name);
    memory = addSaturating(memory, server.memoryBytes);
    if (server.port != 0) ports.insert(server.port);
  }
  Insight insight = makeInsight(Insight::Kind::idleServers, now,
                                texts_.idleServers(servers.size(), names, memory, {ports.begin(), ports.end()}));
  insight.appID = std::move(appID);
  out.push_back(std::move(insight));
}

void InsightEngine::runningHot(const std::vector<AppGroup>& groups, const std::optional<ThermalSample>& thermal,
                               Date now, std::vector<Insight>& out) {
  if (!thermal || (!thermal->cpuCelsius && !thermal->hottestCelsius)) return;
  const bool atCPU = thermal->cpuCelsius.has_value();
  const double celsius = atCPU ? *thermal->cpuCelsius : *thermal->hottestCelsius;
  // Five degrees of hysteresis: hovering just under the threshold neither ends nor repeats a spell.
  if (celsius < thresholds.hotCelsius - 5) {
    hotSince_.reset();
    hotReported_ = false;
    return;
  }
  if (celsius < thresholds.hotCelsius) return;
  if (!hotSince_) hotSince_ = now;
  const double hotFor = secondsBetween(now, *hotSince_);
  if (hotReported_ || hotFor < thresholds.hotWindow) return;
  hotReported_ = true;

  std::vector<std::pair<double, const AppGroup*>> busiest;
  for (const AppGroup& group : groups)
    if (double cpu = group.cpuPercent(); cpu >= hotAppFloorPercent) busiest.emplace_back(cpu, &group);
  std::stable_sort(busiest.begin(), busiest.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
  std::vector<std::string> apps;
  for (size_t i = 0; i < busiest.size() && i < hotAppCount; ++i) apps.push_back(busiest[i].second->name);
  out.push_back(makeInsight(Insight::Kind::runningHot, now,
                            texts_.runningHot(celsius, thresholds.fahrenheit, atCPU, hotFor, apps, thermal->fanRPM)));
}

void InsightEngine::neuralEngineBusy(const std::optional<NeuralEngineHolder>& holder, Date now,
                                     std::vector<Insight>& out) {
  if (!holder) return;
  auto& points = neuralEnginePoints_;
  if (points.size() >= 2 && secondsBetween(now, points.back().first) < mergeSeconds)
    points.back().second = (points.back().second + holder->load) / 2;
  else
    points.emplace_back(now, holder->load);
  const double window = thresholds.neuralEngineWindow;
  while (!points.empty() && secondsBetween(now, points.front().first) > window) points.pop_front();

  if (points.size() < minimumPoints || secondsBetween(now, points.front().first) < windowCoverage * window) return;
  double sum = 0;
  size_t busy = 0;
  for (const auto& [date, load] : points) {
    sum += load;
    if (load >= busyFloorShare * thresholds.neuralEngineShare) ++busy;
  }
  const double count = static_cast<double>(points.size());
  const double average = sum / count;
  if (average < thresholds.neuralEngineShare || static_cast<double>(busy) / count < busyPointsShare) return;

  if (holder->app) {
    out.push_back(aboutApp(makeInsight(Insight::Kind::neuralEngineBusy, now,
                                       texts_.neuralEngineBusy(holder->app->name, average, window)),
                           *holder->app));
  } else {
    Insight insight =
        makeInsight(Insight::Kind::neuralEngineBusy, now, texts_.neuralEngineBusy(std::nullopt, average, window));
    insight.appID = "neuralEngine";
    out.push_back(std::move(insight));
  }
}

std::vector<Insight> InsightEngine::filterRepeats(std::vector<Insight> insights) {
  std::vector<Insight> kept;
  kept.reserve(insights.size());
  for (Insight& insight : insights) {
    std::string key = repeatKey(insight);
    auto it = lastFired_.find(key);
    if (it != lastFired_.end() && secondsBetween(insight.date, it->second) < thresholds.cooldown) continue;
    lastFired_[std::move(key)] = insight.date;
    kept.push_back(std::move(insight));
  }
  return kept;
}

}  // namespace omnira
