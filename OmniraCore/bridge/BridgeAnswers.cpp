#include "OmniraCore/bridge/BridgeAnswers.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <map>
#include <set>

#include "OmniraCore/bridge/Bridge.h"
#include "OmniraCore/containers/QuitCheck.h"
#include "OmniraCore/foundation/Parse.h"
#include "OmniraCore/history/HistoryDatabase.h"
#include "OmniraCore/usage/DayCalendar.h"

namespace omnira {

namespace {

using json = nlohmann::ordered_json;
using Answers = BridgeAnswers;

// Rounded for reading: agents quote these figures to people.
double round1(double x) { return std::round(x * 10) / 10; }
double round2(double x) { return std::round(x * 100) / 100; }
double mb(double bytes) { return round1(bytes / 1e6); }
double gb(double bytes) { return round2(bytes / 1e9); }
json orNull(const std::optional<double>& x) { return x ? json(round1(*x)) : json(); }
json orNull(const std::optional<std::string>& s) { return s ? json(*s) : json(); }
json orNull(const std::optional<int>& x) { return x ? json(*x) : json(); }
double secondsBetween(Date from, Date to) { return std::chrono::duration<double>(to - from).count(); }
int64_t epochSeconds(Date date) { return std::chrono::duration_cast<std::chrono::seconds>(date.time_since_epoch()).count(); }

// "2026-11-25T14:05+01:00": local time, as the person reads it, with its offset.
std::string localTime(Date date) {
  std::string out = formatLocal(date, "%Y-%m-%dT%H:%M%z");
  if (out.size() >= 5) out.insert(out.size() - 2, ":");
  return out;
}
std::string localTime(int64_t epoch) { return localTime(Date(std::chrono::seconds(epoch))); }

// The arguments as the schema names them. A value of the wrong type is a mistake the agent
// hears about, not a silent default.
class Arguments {
 public:
  explicit Arguments(const json& given) : given_(given.is_object() ? given : empty()) {}

  bool has(const char* key) const { return given_.contains(key) && !given_.at(key).is_null(); }
  std::optional<std::string> text(const char* key) {
    if (!has(key)) return std::nullopt;
    if (given_.at(key).is_string()) return given_.at(key).get<std::string>();
    wrong(key, "a text");
    return std::nullopt;
  }
  std::optional<int64_t> integer(const char* key) {
    if (!has(key)) return std::nullopt;
    if (auto value = whole(given_.at(key))) return value;
    wrong(key, "a whole number");
    return std::nullopt;
  }
  std::optional<std::vector<int64_t>> integers(const char* key) {
    if (!has(key)) return std::nullopt;
    const json& list = given_.at(key);
    std::vector<int64_t> values;
    if (list.is_array()) {
      for (const auto& item : list) {
        auto value = whole(item);
        if (!value) break;
        values.push_back(*value);
      }
      if (values.size() == list.size()) return values;
    }
    wrong(key, "a list of whole numbers");
    return std::nullopt;
  }
  const std::optional<std::string>& mistake() const { return mistake_; }

 private:
  static const json& empty() {
    static const json none = json::object();
    return none;
  }
  static std::optional<int64_t> whole(const json& value) {
    if (value.is_number_integer()) return value.get<int64_t>();
    if (value.is_number_float() && std::trunc(value.get<double>()) == value.get<double>() &&
        std::fabs(value.get<double>()) < 9e15)
      return static_cast<int64_t>(value.get<double>());
    return std::nullopt;
  }
  void wrong(const char* key, const char* what) {
    if (!mistake_) mistake_ = fmt::format("Give {} as {}.", key, what);
  }

  const json& given_;
  std::optional<std::string> mistake_;
};

struct Located {
  const AppGroup* group = nullptr;
  const ProcessSample* process = nullptr;
};

std::map<int32_t, Located> byPID(const BridgeReadings& r) {
  std::map<int32_t, Located> map;
  for (const auto& g : r.groups)
    for (const auto& p : g.processes) map[p.pid] = {&g, &p};
  return map;
}

// An app by its name: the one whose name it is (ignoring case), else the only one whose
// name holds it; several holding it is the agent's to settle.
struct AppMatch {
  const AppGroup* group = nullptr;
  std::vector<std::string> others;
};
AppMatch matchApp(const std::vector<AppGroup>& groups, const std::string& name) {
  const auto wanted = lowered(name);
  AppMatch match;
  for (const auto& g : groups)
    if (lowered(g.name) == wanted) return {&g, {}};
  for (const auto& g : groups)
    if (lowered(g.name).find(wanted) != std::string::npos) {
      if (!match.group) match.group = &g;
      match.others.push_back(g.name);
    }
  if (match.others.size() > 1) match.group = nullptr;
  return match;
}
json appNotFound(const std::string& name, const AppMatch& match) {
  if (match.others.size() > 1) {
    std::string list;
    for (size_t i = 0; i < match.others.size() && i < 10; ++i) list += (i ? ", " : "") + match.others[i];
    auto reply = Answers::refused("More than one app matches “" + name + "”: " + list + ". Give the full name.");
    reply["other_matches"] = match.others;
    return reply;
  }
  return Answers::refused("No running app matches “" + name + "”. Use top_apps to see what is running.");
}

std::optional<std::string> overALimit(const BridgeReadings& r, const AppGroup& g) {
  for (const auto& limit : r.limits) {
    if (!limit.isOn || limit.appID != g.id) continue;
    const bool cpu = limit.figure == AppLimit::Figure::cpu;
    const double now = cpu ? g.cpuPercent() : static_cast<double>(g.memoryBytes());
    if (now > limit.limit)
      return cpu ? fmt::format("CPU {:.0f}% against your limit of {:.0f}%", now, limit.limit)
                 : fmt::format("memory {:.0f} MB against your limit of {:.0f} MB", now / 1e6, limit.limit / 1e6);
  }
  return std::nullopt;
}

json processRow(const BridgeReadings& r, const AppGroup& g, const ProcessSample& p, Date now) {
  json row;
  row["pid"] = p.pid;
  row["name"] = p.name;
  row["app"] = g.name;
  if (p.helperRole) row["role"] = rawValue(*p.helperRole);
  row["user"] = p.uid == r.personUID ? "you" : p.uid == 0 ? "root" : "another user";
  row["project"] = orNull(p.projectPath);
  row["running_minutes"] = p.startedAt.time_since_epoch().count() > 0 ? json(round1(secondsBetween(p.startedAt, now) / 60)) : json();
  row["cpu_percent"] = round1(p.cpuPercent);
  row["memory_mb"] = mb(static_cast<double>(p.memoryBytes));
  row["ports"] = p.listeningPorts;
  if (p.containerID) {
    const auto id = p.containerID->substr(p.containerID->find(':') + 1);
    const auto* c = r.containers.find(id);
    row["container"] = c ? c->name : id.substr(0, 12);
  }
  row["parent_pid"] = p.parentPID;
  return row;
}

// The history's app rows over a span, summed per app.
struct AppTotal {
  std::string id, name, kind;
  double seconds = 0, cpuSeconds = 0, energy = 0, memoryByteSeconds = 0;
  int64_t peak = 0, in = 0, out = 0, read = 0, written = 0;
  double memoryAverage() const { return seconds > 0 ? memoryByteSeconds / seconds : 0; }
  json toJSON() const {
    json row;
    row["app"] = name;
    row["kind"] = kind;
    row["seen_minutes"] = round1(seconds / 60);
    row["cpu_average_percent"] = seconds > 0 ? round1(cpuSeconds / seconds * 100) : 0.0;
    row["cpu_minutes"] = round1(cpuSeconds / 60);
    row["memory_average_mb"] = mb(memoryAverage());
    row["memory_peak_mb"] = mb(static_cast<double>(peak));
    row["energy_wh"] = round2(energy / 3600);
    row["disk_read_mb"] = mb(static_cast<double>(read));
    row["disk_written_mb"] = mb(static_cast<double>(written));
    row["network_received_mb"] = mb(static_cast<double>(in));
    row["network_sent_mb"] = mb(static_cast<double>(out));
    return row;
  }
};
std::optional<std::map<std::string, AppTotal>> appTotals(HistoryDatabase& db, Bridge::Period period, Date now) {
  const int64_t to = epochSeconds(now) + 1;
  const int64_t from = to - Bridge::seconds(period);
  // A day or less reads the hour rows; longer spans the day rows, which reach further back.
  auto rows = Bridge::seconds(period) <= 86'400
                  ? db.apps(HistoryDatabase::AppTable::hours, HistoryDatabase::periodStart(HistoryDatabase::AppTable::hours, Date(std::chrono::seconds(from))), to)
                  : db.apps(HistoryDatabase::AppTable::days,
                            HistoryDatabase::periodStart(HistoryDatabase::AppTable::days, Date(std::chrono::seconds(from))), to);
  if (!rows) return std::nullopt;
  std::map<std::string, AppTotal> totals;
  for (const auto& row : *rows) {
    auto& t = totals[row.appId];
    t.id = row.appId;
    t.name = row.name;
    t.kind = row.kind;
    t.seconds += row.seconds;
    t.cpuSeconds += row.cpuSeconds;
    t.energy += row.energyJoules;
    t.memoryByteSeconds += row.memoryByteSeconds;
    t.peak = std::max(t.peak, row.peakMemoryBytes);
    t.in += row.networkBytesIn;
    t.out += row.networkBytesOut;
    t.read += row.diskBytesRead;
    t.written += row.diskBytesWritten;
  }
  return totals;
}

// Tools ---------------------------------------------------------------------------------

json systemStatus(const BridgeReadings& r, Date now) {
  if (!r.system) return Answers::refused(Answers::kNoReading);
  const SystemSample& s = *r.system;
  json j;
  j["measured_seconds_ago"] = round1(std::max(0.0, secondsBetween(s.timestamp, now)));
  const double busiest = s.cpuPerCore.empty() ? 0 : *std::max_element(s.cpuPerCore.begin(), s.cpuPerCore.end());
  j["cpu"] = {{"percent", round1(s.cpu() * 100)},
              {"user_percent", round1(s.cpuUser * 100)},
              {"system_percent", round1(s.cpuSystem * 100)},
              {"cores", s.cpuPerCore.size()},
              {"busiest_core_percent", round1(busiest * 100)},
              {"load_average", round2(s.loadAverage)}};
  j["memory"] = {{"used_gb", gb(static_cast<double>(s.memoryUsed()))},
                 {"total_gb", gb(static_cast<double>(s.memoryTotal))},
                 {"used_percent", round1(s.memoryUsedFraction() * 100)},
                 {"cached_gb", gb(static_cast<double>(s.memoryCached))},
                 {"pressure", memoryPressureName(s.pressure)},
                 {"pressure_percent", round1(s.memoryPressureFraction * 100)},
                 {"swap_used_gb", gb(static_cast<double>(s.swapUsed))}};
  j["disk"] = {{"free_gb", gb(static_cast<double>(s.diskAvailable))},
               {"total_gb", gb(static_cast<double>(s.diskTotal))},
               {"used_percent", round1(s.diskUsedFraction() * 100)},
               {"read_mb_per_s", mb(s.diskReadBytesPerSec)},
               {"write_mb_per_s", mb(s.diskWriteBytesPerSec)}};
  j["network"] = {{"received_mb_per_s", mb(s.networkInBytesPerSec)}, {"sent_mb_per_s", mb(s.networkOutBytesPerSec)}};
  std::vector<std::string> missing;
  if (s.gpuUtilization)
    j["gpu"] = {{"percent", round1(*s.gpuUtilization * 100)},
                {"memory_gb", s.gpuMemoryBytes ? json(gb(static_cast<double>(*s.gpuMemoryBytes))) : json()}};
  else {
    j["gpu"] = nullptr;
    missing.push_back("GPU");
  }
  if (s.neuralEngineActive)
    j["neural_engine"] = {{"busy", *s.neuralEngineActive}, {"watts", orNull(s.neuralEngineWatts)}};
  else {
    j["neural_engine"] = nullptr;
    missing.push_back("Neural Engine");
  }
  if (s.battery) {
    const auto& b = *s.battery;
    j["battery"] = {{"percent", round1(b.level * 100)},
                    {"charging", b.charging},
                    {"plugged_in", b.pluggedIn},
                    {"minutes_left", orNull(b.minutesRemaining)},
                    {"health_percent", b.healthFraction ? json(round1(*b.healthFraction * 100)) : json()},
                    {"cycles", b.cycleCount ? json(*b.cycleCount) : json()}};
  } else {
    j["battery"] = nullptr;
  }
  const SensorSample* sensors = r.sensors ? &*r.sensors : nullptr;
  if (sensors && sensors->hasTemperature()) {
    auto& t = j["temperatures"] = {{"cpu_celsius", orNull(sensors->cpuCelsius)},
                                   {"hottest_celsius", orNull(sensors->hottestCelsius)},
                                   {"hottest_sensor", sensors->hottestName},
                                   {"hot_limit_celsius", round1(r.hotCelsius)}};
    if (sensors->throttledCPUs)
      t["cpus_slowed_to_cool"] = *sensors->throttledCPUs;
  } else {
    j["temperatures"] = nullptr;
    missing.push_back("temperatures");
  }
  if (sensors && !sensors->fans.empty()) {
    auto& fans = j["fans"] = json::array();
    for (const auto& f : sensors->fans)
      fans.push_back({{"fan", f.label},
                      {"rpm", orNull(f.rpm)},
                      {"maximum_rpm", orNull(f.maximumRPM)},
                      {"mode", rawValue(f.mode)}});
  } else {
    j["fans"] = nullptr;
    missing.push_back("fans");
  }
  std::optional<double> draw = sensors ? sensors->systemWatts : std::nullopt;
  if (!draw && s.battery && !s.battery->pluggedIn && s.battery->watts) draw = std::fabs(*s.battery->watts);
  j["power_watts"] = draw ? json(round1(*draw)) : json();
  if (sensors && sensors->cpuWatts) j["cpu_power_watts"] = round1(*sensors->cpuWatts);
  if (!draw && !(sensors && sensors->cpuWatts)) missing.push_back("power draw");
  auto& strain = j["strain"] = json::array();
  for (const auto& [kind, since] : r.strain)
    strain.push_back({{"resource", rawValue(kind)}, {"since", localTime(since)}, {"minutes", round1(secondsBetween(since, now) / 60)}});
  std::vector<const AppGroup*> busy;
  for (const auto& g : r.groups) busy.push_back(&g);
  std::sort(busy.begin(), busy.end(), [](auto* a, auto* b) { return a->cpuPercent() > b->cpuPercent(); });
  auto& busiestApps = j["busiest_apps"] = json::array();
  for (size_t i = 0; i < busy.size() && i < 3; ++i)
    busiestApps.push_back({{"app", busy[i]->name},
                           {"cpu_percent", round1(busy[i]->cpuPercent())},
                           {"memory_mb", mb(static_cast<double>(busy[i]->memoryBytes()))}});
  j["uptime_hours"] = round1(s.uptime / 3600);
  std::string list;
  for (size_t i = 0; i < missing.size(); ++i)
    list += (i == 0 ? "" : i + 1 == missing.size() ? " or " : ", ") + missing[i];
  j["not_measured_note"] = "This computer gives Omnira no " + list + " readings.";
  j["cpu_note"] = "cpu percent is of all cores; an app's cpu_percent is of one core, so it may pass 100.";
  return Answers::ok(std::move(j));
}

json topApps(Arguments& a, const BridgeReadings& r, Date now) {
  const auto by = a.text("by");
  const auto periodText = a.text("period");
  auto limit = a.integer("limit");
  if (a.mistake()) return Answers::refused(*a.mistake());
  const auto metric = by ? Bridge::metric(*by) : Bridge::Metric::memory;
  if (!metric) return Answers::refused("Give by as memory, cpu, power, disk or network.");
  const auto period = periodText ? Bridge::period(*periodText) : Bridge::Period::now;
  if (!period) return Answers::refused(Answers::kBadPeriod);
  const size_t count = static_cast<size_t>(std::clamp<int64_t>(limit.value_or(10), 1, Bridge::limit));

  json j;
  j["by"] = Bridge::rawValue(*metric);
  j["period"] = Bridge::rawValue(*period);
  if (*period == Bridge::Period::now) {
    if (r.groups.empty()) return Answers::refused(Answers::kNoReading);
    const auto measure = [&](const AppGroup& g) -> double {
      switch (*metric) {
        case Bridge::Metric::memory: return static_cast<double>(g.memoryBytes());
        case Bridge::Metric::cpu: return g.cpuPercent();
        case Bridge::Metric::power: return g.powerWatts();
        case Bridge::Metric::disk: return g.diskReadBytesPerSec() + g.diskWriteBytesPerSec();
        case Bridge::Metric::network: return g.networkInBytesPerSec() + g.networkOutBytesPerSec();
      }
      return 0;
    };
    std::vector<const AppGroup*> ranked;
    for (const auto& g : r.groups) ranked.push_back(&g);
    std::stable_sort(ranked.begin(), ranked.end(), [&](auto* x, auto* y) { return measure(*x) > measure(*y); });
    if (r.groupsAt) j["measured_seconds_ago"] = round1(std::max(0.0, secondsBetween(*r.groupsAt, now)));
    auto& apps = j["apps"] = json::array();
    for (size_t i = 0; i < ranked.size() && i < count; ++i) {
      const AppGroup& g = *ranked[i];
      apps.push_back({{"app", g.name},
                      {"kind", rawValue(g.kind)},
                      {"processes", g.processCount()},
                      {"memory_mb_with_helpers", mb(static_cast<double>(g.memoryBytes()))},
                      {"cpu_percent_with_helpers", round1(g.cpuPercent())},
                      {"power_watts", round1(g.powerWatts())},
                      {"disk_mb_per_s", mb(g.diskReadBytesPerSec() + g.diskWriteBytesPerSec())},
                      {"network_mb_per_s", mb(g.networkInBytesPerSec() + g.networkOutBytesPerSec())},
                      {"over_a_limit_you_set", orNull(overALimit(r, g))}});
    }
    j["more_apps"] = ranked.size() > count ? ranked.size() - count : 0;
    j["note"] = "cpu_percent is of one core. power_watts is an estimate from CPU time: this computer has no per-app "
                "power counter.";
    return Answers::ok(std::move(j));
  }

  if (!r.history) return Answers::refused(Answers::kHistoryEmpty);
  auto totals = appTotals(*r.history, *period, now);
  if (!totals || totals->empty()) return Answers::refused(Answers::kHistoryEmpty);
  std::vector<AppTotal> ranked;
  for (auto& [id, t] : *totals) ranked.push_back(std::move(t));
  const auto measure = [&](const AppTotal& t) -> double {
    switch (*metric) {
      case Bridge::Metric::memory: return t.memoryAverage();
      case Bridge::Metric::cpu: return t.cpuSeconds;
      case Bridge::Metric::power: return t.energy;
      case Bridge::Metric::disk: return static_cast<double>(t.read + t.written);
      case Bridge::Metric::network: return static_cast<double>(t.in + t.out);
    }
    return 0;
  };
  std::stable_sort(ranked.begin(), ranked.end(), [&](const auto& x, const auto& y) { return measure(x) > measure(y); });
  auto& apps = j["apps"] = json::array();
  for (size_t i = 0; i < ranked.size() && i < count; ++i) apps.push_back(ranked[i].toJSON());
  j["more_apps"] = ranked.size() > count ? ranked.size() - count : 0;
  j["note"] = "Added up from the history while Omnira ran; memory is the average while the app ran, cpu_minutes "
              "are minutes of one core.";
  return Answers::ok(std::move(j));
}

json appDetails(Arguments& a, const BridgeReadings& r, Date now) {
  const auto name = a.text("name");
  const auto periodText = a.text("period");
  if (a.mistake()) return Answers::refused(*a.mistake());
  if (!name || trim(*name).empty()) return Answers::refused(Answers::kNameMissing);
  const auto period = periodText ? Bridge::period(*periodText) : Bridge::Period::day;
  if (!period || *period == Bridge::Period::now) return Answers::refused(Answers::kBadPeriod);
  if (r.groups.empty()) return Answers::refused(Answers::kNoReading);
  const auto match = matchApp(r.groups, std::string(trim(*name)));
  if (!match.group) return appNotFound(std::string(trim(*name)), match);
  const AppGroup& g = *match.group;

  json j;
  j["app"] = g.name;
  j["kind"] = rawValue(g.kind);
  j["desktop_entry"] = orNull(g.bundlePath);
  j["memory_mb_with_helpers"] = mb(static_cast<double>(g.memoryBytes()));
  j["cpu_percent_with_helpers"] = round1(g.cpuPercent());
  j["network_mb_per_s"] = mb(g.networkInBytesPerSec() + g.networkOutBytesPerSec());
  j["disk_mb_per_s"] = mb(g.diskReadBytesPerSec() + g.diskWriteBytesPerSec());
  j["over_a_limit_you_set"] = orNull(overALimit(r, g));
  std::set<uint16_t> ports;
  std::set<std::string> folders;
  std::vector<const ProcessSample*> processes;
  for (const auto& p : g.processes) {
    processes.push_back(&p);
    ports.insert(p.listeningPorts.begin(), p.listeningPorts.end());
    if (p.projectPath) folders.insert(*p.projectPath);
  }
  std::sort(processes.begin(), processes.end(), [](auto* x, auto* y) { return x->memoryBytes > y->memoryBytes; });
  j["ports"] = std::vector<uint16_t>(ports.begin(), ports.end());
  j["projects"] = std::vector<std::string>(folders.begin(), folders.end());
  auto& list = j["processes"] = json::array();
  for (size_t i = 0; i < processes.size() && i < Bridge::portLimit; ++i) list.push_back(processRow(r, g, *processes[i], now));
  j["more_processes"] = processes.size() > Bridge::portLimit ? processes.size() - Bridge::portLimit : 0;

  json used;
  used["period"] = Bridge::rawValue(*period);
  if (!r.historyShared) {
    used["note"] = "The person does not share their history with assistants.";
  } else if (auto totals = r.history ? appTotals(*r.history, *period, now) : std::nullopt;
             totals && totals->contains(g.id)) {
    used.update(totals->at(g.id).toJSON());
    used.erase("app");
    used.erase("kind");
  } else {
    used["note"] = "Omnira has no readings of this app for this period yet. It records them while it runs.";
  }
  j["used"] = std::move(used);
  return Answers::ok(std::move(j));
}

json history(Arguments& a, const BridgeReadings& r, Date now) {
  const auto periodText = a.text("period");
  if (a.mistake()) return Answers::refused(*a.mistake());
  const auto period = periodText ? Bridge::period(*periodText) : Bridge::Period::day;
  if (!period || *period == Bridge::Period::now) return Answers::refused(Answers::kBadPeriod);
  if (!r.history) return Answers::refused(Answers::kHistoryEmpty);
  auto rows = r.history->readings(epochSeconds(now) - Bridge::seconds(*period));
  if (!rows || rows->empty()) return Answers::refused(Answers::kHistoryEmpty);

  using Row = HistoryDatabase::ReadingRow;
  double seconds = 0;
  for (const Row& row : *rows) seconds += row.seconds;
  const auto average = [&](auto field) -> std::optional<double> {
    double sum = 0, weight = 0;
    for (const Row& row : *rows)
      if (const std::optional<double> v = field(row)) {
        sum += *v * row.seconds;
        weight += row.seconds;
      }
    return weight > 0 ? std::optional(sum / weight) : std::nullopt;
  };
  // The highest value and the local time of its five minutes.
  const auto peak = [&](auto field) -> std::pair<std::optional<double>, std::optional<int64_t>> {
    std::optional<double> best;
    std::optional<int64_t> at;
    for (const Row& row : *rows)
      if (const std::optional<double> v = field(row); v && (!best || *v > *best)) {
        best = v;
        at = row.start;
      }
    return {best, at};
  };
  const auto minutesWhere = [&](auto test) {
    double s = 0;
    for (const Row& row : *rows)
      if (test(row)) s += row.seconds;
    return round1(s / 60);
  };
  const auto put = [&](json& j, const char* key, const std::pair<std::optional<double>, std::optional<int64_t>>& p,
                       const char* when) {
    j[key] = orNull(p.first);
    if (when) j[when] = p.second ? json(localTime(*p.second)) : json();
  };

  json j;
  j["period"] = Bridge::rawValue(*period);
  j["from"] = localTime(rows->front().start);
  j["minutes_measured"] = round1(seconds / 60);
  j["cpu_average_percent"] = orNull(average([](const Row& x) { return std::optional(x.cpuPercentAverage); }));
  put(j, "cpu_peak_percent", peak([](const Row& x) { return std::optional(x.cpuPercentPeak); }), "cpu_peak_at");
  j["minutes_at_90_percent_or_more"] = minutesWhere([](const Row& x) { return x.cpuPercentPeak >= 90; });
  j["memory_average_gb"] = orNull(average([](const Row& x) { return std::optional(static_cast<double>(x.memoryUsedBytesAverage) / 1e9); }));
  put(j, "memory_peak_gb", peak([](const Row& x) { return std::optional(static_cast<double>(x.memoryUsedBytesPeak) / 1e9); }),
      "memory_peak_at");
  const auto pressurePeak = peak([](const Row& x) { return x.memoryPressurePercentPeak; });
  put(j, "memory_pressure_peak_percent", pressurePeak, "memory_pressure_peak_at");
  j["pressure_average_percent"] = orNull(average([](const Row& x) { return x.memoryPressurePercentAverage; }));
  j["pressure_peak_percent"] = orNull(pressurePeak.first);
  j["minutes_under_pressure"] = minutesWhere([](const Row& x) { return x.memoryPressureLevelPeak != "normal"; });
  put(j, "swap_peak_gb", peak([](const Row& x) { return std::optional(static_cast<double>(x.swapUsedBytesPeak) / 1e9); }), nullptr);
  put(j, "gpu_peak_percent", peak([](const Row& x) { return x.gpuPercentPeak; }), nullptr);
  put(j, "neural_engine_peak_percent", peak([](const Row& x) { return x.neuralEnginePercentPeak; }), nullptr);
  j["power_average_watts"] = orNull(average([](const Row& x) { return x.powerWattsAverage; }));
  j["cpu_average_celsius"] = orNull(average([](const Row& x) { return x.cpuCelsiusAverage; }));
  put(j, "cpu_peak_celsius", peak([](const Row& x) { return x.cpuCelsiusPeak; }), nullptr);
  put(j, "hottest_sensor_peak_celsius", peak([](const Row& x) { return x.hottestCelsiusPeak; }), "hottest_at");
  j["hot_limit_celsius"] = round1(r.hotCelsius);
  const double hot = r.hotCelsius;
  j["minutes_at_the_hot_limit"] = minutesWhere([hot](const Row& x) { return x.hottestCelsiusPeak && *x.hottestCelsiusPeak >= hot; });
  j["minutes_linux_slowed_the_computer_to_cool_it"] =
      minutesWhere([](const Row& x) { return x.thermalStatePeak != "nominal"; });

  // Stretches at a limit: runs of five-minute readings that reached it.
  struct Limit {
    const char* name;
    std::function<bool(const Row&)> reached;
  };
  const std::vector<Limit> limits = {
      {"cpu_at_90_percent", [](const Row& x) { return x.cpuPercentPeak >= 90; }},
      {"memory_under_pressure", [](const Row& x) { return x.memoryPressureLevelPeak != "normal"; }},
      {"hot", [hot](const Row& x) { return x.hottestCelsiusPeak && *x.hottestCelsiusPeak >= hot; }},
      {"slowed_to_cool", [](const Row& x) { return x.thermalStatePeak != "nominal"; }}};
  struct Stretch {
    const char* limit;
    int64_t from, to;
  };
  std::vector<Stretch> stretches;
  for (const auto& limit : limits) {
    std::optional<Stretch> open;
    for (const Row& row : *rows) {
      const int64_t end = row.start + static_cast<int64_t>(std::ceil(row.seconds));
      if (limit.reached(row)) {
        if (open && row.start <= open->to + 300) open->to = end;
        else {
          if (open) stretches.push_back(*open);
          open = Stretch{limit.name, row.start, end};
        }
      }
    }
    if (open) stretches.push_back(*open);
  }
  std::sort(stretches.begin(), stretches.end(), [](const auto& x, const auto& y) { return x.from > y.from; });
  auto& shown = j["stretches_at_a_limit"] = json::array();
  for (size_t i = 0; i < stretches.size() && i < Bridge::limit; ++i)
    shown.push_back({{"limit", stretches[i].limit},
                     {"from", localTime(stretches[i].from)},
                     {"to", localTime(stretches[i].to)},
                     {"minutes", round1(static_cast<double>(stretches[i].to - stretches[i].from) / 60)}});
  j["at_a_limit_not_shown"] = stretches.size() > Bridge::limit ? stretches.size() - Bridge::limit : 0;

  // A timeline of at most 24 steps over the span.
  const int64_t first = rows->front().start, last = rows->back().start + 300;
  const int64_t step = std::max<int64_t>(300, ((last - first) / 24 + 299) / 300 * 300);
  auto& timeline = j["timeline"] = json::array();
  for (int64_t from = first; from < last; from += step) {
    double s = 0, cpu = 0, peakCPU = 0, memory = 0, pressure = 0;
    for (const Row& row : *rows) {
      if (row.start < from || row.start >= from + step) continue;
      s += row.seconds;
      cpu += row.cpuPercentAverage * row.seconds;
      memory += static_cast<double>(row.memoryUsedBytesAverage) * row.seconds;
      peakCPU = std::max(peakCPU, row.cpuPercentPeak);
      pressure = std::max(pressure, row.memoryPressurePercentPeak.value_or(0));
    }
    if (s <= 0) continue;
    timeline.push_back({{"from", localTime(from)},
                        {"cpu_average_percent", round1(cpu / s)},
                        {"cpu_peak_percent", round1(peakCPU)},
                        {"memory_average_gb", gb(memory / s)},
                        {"pressure_peak_percent", round1(pressure)}});
  }
  j["note"] = "From readings Omnira keeps every five minutes: the average and the highest of each. Time the computer "
              "slept or Omnira was closed is not in them. cpu percent is of all cores. A stretch at a limit is made of "
              "five-minute readings that reached the limit at least once, so its minutes are an upper bound.";
  return Answers::ok(std::move(j));
}

json findProcess(Arguments& a, const BridgeReadings& r, Date now) {
  const auto name = a.text("name");
  const auto pid = a.integer("pid");
  const auto port = a.integer("port");
  if (a.mistake()) return Answers::refused(*a.mistake());
  if (r.groups.empty()) return Answers::refused(Answers::kNoReading);
  const auto processes = byPID(r);
  json j;
  // Built apart: a reference into an ordered object does not survive the next key.
  json found = json::array();
  if (pid) {
    const auto it = processes.find(static_cast<int32_t>(*pid));
    if (it == processes.end()) return Answers::refused(fmt::format("No process Omnira can see has PID {}.", *pid));
    found.push_back(processRow(r, *it->second.group, *it->second.process, now));
  } else if (port) {
    if (*port < 1 || *port > 65535) return Answers::refused("Give port as a TCP port, 1 to 65535.");
    j["port"] = *port;
    for (const auto& p : r.ports) {
      if (p.port != *port) continue;
      if (p.process)
        if (const auto it = processes.find(p.process->pid); it != processes.end())
          found.push_back(processRow(r, *it->second.group, *it->second.process, now));
      if (p.container) j["container"] = {{"name", p.container->name}, {"stop", p.container->stopCommand}};
    }
    const bool held = std::count(r.listening.begin(), r.listening.end(), *port) > 0;
    if (found.empty() && !j.contains("container"))
      j["note"] = held ? fmt::format("Port {} is held by another user's process, which Omnira does not show.", *port)
                       : fmt::format("Nothing is listening on port {}: it is free.", *port);
  } else if (name && !trim(*name).empty()) {
    const auto wanted = lowered(trim(*name));
    std::vector<Located> hits;
    for (const auto& [id, at] : processes)
      if (lowered(at.process->name).find(wanted) != std::string::npos) hits.push_back(at);
    std::sort(hits.begin(), hits.end(), [](const Located& x, const Located& y) {
      return x.process->memoryBytes > y.process->memoryBytes;
    });
    for (size_t i = 0; i < hits.size() && i < Bridge::limit; ++i) found.push_back(processRow(r, *hits[i].group, *hits[i].process, now));
    j["more_processes"] = hits.size() > Bridge::limit ? hits.size() - Bridge::limit : 0;
    if (hits.empty()) j["note"] = "No running process is called “" + std::string(trim(*name)) + "”.";
  } else {
    return Answers::refused(Answers::kUnknownProcess);
  }
  j["processes"] = std::move(found);
  return Answers::ok(std::move(j));
}

json projectJSON(const Project& p, const BridgeReadings& r, bool whole) {
  json j;
  j["name"] = p.name;
  j["path"] = p.path;
  j["process_count"] = p.processes.size();
  j["memory_mb"] = mb(static_cast<double>(p.memoryBytes()));
  j["cpu_percent"] = round1(p.cpuPercent());
  j["ports"] = p.ports();
  j["containers"] = p.containers;
  auto& servers = j["dev_servers"] = json::array();
  for (const auto& proc : p.processes) {
    if (!proc.devServer) continue;
    const auto idle = std::find_if(r.idleServers.begin(), r.idleServers.end(), [&](const IdleServer& s) { return s.pid == proc.pid; });
    servers.push_back({{"pid", proc.pid}, {"name", proc.name}, {"ports", proc.ports}, {"idle", idle != r.idleServers.end()}});
  }
  std::vector<const ProjectProcess*> order;
  for (const auto& proc : p.processes) order.push_back(&proc);
  std::stable_sort(order.begin(), order.end(), [](auto* x, auto* y) { return x->memoryBytes > y->memoryBytes; });
  const size_t shown = whole ? order.size() : std::min<size_t>(order.size(), 5);
  auto& list = j["processes"] = json::array();
  for (size_t i = 0; i < shown; ++i)
    list.push_back({{"pid", order[i]->pid},
                    {"name", order[i]->name},
                    {"app", order[i]->appName},
                    {"cpu_percent", round1(order[i]->cpuPercent)},
                    {"memory_mb", mb(static_cast<double>(order[i]->memoryBytes))},
                    {"ports", order[i]->ports}});
  if (shown < order.size()) j["more_processes"] = order.size() - shown;
  return j;
}

json projects(Arguments& a, const BridgeReadings& r) {
  const auto name = a.text("name");
  if (a.mistake()) return Answers::refused(*a.mistake());
  if (r.groups.empty()) return Answers::refused(Answers::kNoReading);
  json j;
  auto& list = j["projects"] = json::array();
  const std::string wanted = name ? std::string(trim(*name)) : std::string();
  for (const auto& p : r.projects)
    if (p.matches(wanted)) list.push_back(projectJSON(p, r, !wanted.empty()));
  if (!wanted.empty() && list.empty())
    return Answers::refused("No project folder with something running in it matches “" + wanted + "”.");
  auto& idle = j["dev_servers_left_running"] = json::array();
  for (const auto& s : r.idleServers)
    idle.push_back({{"pid", s.pid}, {"name", s.name}, {"port", s.port}, {"memory_mb", mb(static_cast<double>(s.memoryBytes))}});
  j["note"] = "A dev server is a process of yours that listens on a TCP port in a project folder; one left running "
              "has had no connection and almost no CPU for 30 minutes.";
  return Answers::ok(std::move(j));
}

json whatsWrong(const BridgeReadings& r, Date now) {
  if (!r.system) return Answers::refused(Answers::kNoReading);
  const SystemSample& s = *r.system;
  json j;
  auto& insights = j["insights"] = json::array();
  for (size_t i = 0; i < r.insights.size() && i < Bridge::limit; ++i) {
    const Insight& n = r.insights[i];
    insights.push_back({{"kind", rawValue(n.kind)},
                        {"title", n.title},
                        {"detail", n.detail},
                        {"app", orNull(n.appName)},
                        {"noticed", localTime(n.date)}});
  }
  auto& strain = j["strain"] = json::array();
  for (const auto& [kind, since] : r.strain)
    strain.push_back({{"resource", rawValue(kind)}, {"since", localTime(since)}, {"minutes", round1(secondsBetween(since, now) / 60)}});
  auto& cpu = j["apps_holding_the_cpu"] = json::array();
  std::vector<const AppGroup*> busy;
  for (const auto& g : r.groups)
    if (g.cpuPercent() >= 50) busy.push_back(&g);
  std::sort(busy.begin(), busy.end(), [](auto* x, auto* y) { return x->cpuPercent() > y->cpuPercent(); });
  for (size_t i = 0; i < busy.size() && i < 5; ++i)
    cpu.push_back({{"app", busy[i]->name}, {"cpu_percent", round1(busy[i]->cpuPercent())}});
  const bool pressed = s.pressure != MemoryPressure::normal || r.strain.contains(StrainKind::memory);
  j["memory"] = {{"under_pressure", pressed},
                 {"pressure", memoryPressureName(s.pressure)},
                 {"pressure_percent", round1(s.memoryPressureFraction * 100)},
                 {"used_gb", gb(static_cast<double>(s.memoryUsed()))},
                 {"total_gb", gb(static_cast<double>(s.memoryTotal))},
                 {"swap_used_gb", gb(static_cast<double>(s.swapUsed))}};
  auto& hot = j["making_it_hot"] = json::array();
  const SensorSample* sensors = r.sensors ? &*r.sensors : nullptr;
  const std::optional<double> celsius =
      sensors ? (sensors->cpuCelsius ? sensors->cpuCelsius : sensors->hottestCelsius) : std::nullopt;
  // Warm as the hot insight counts it: within 5 degrees of the limit.
  const bool warm = celsius && *celsius >= r.hotCelsius - 5;
  if (warm || (sensors && sensors->throttledCPUs && *sensors->throttledCPUs > 0)) {
    std::vector<const AppGroup*> heaters;
    for (const auto& g : r.groups)
      if (g.cpuPercent() >= 10) heaters.push_back(&g);
    std::sort(heaters.begin(), heaters.end(), [](auto* x, auto* y) { return x->cpuPercent() > y->cpuPercent(); });
    for (size_t i = 0; i < heaters.size() && i < 5; ++i)
      hot.push_back({{"app", heaters[i]->name}, {"cpu_percent", round1(heaters[i]->cpuPercent())}});
  }
  auto& awake = j["keeping_it_awake"] = json::array();
  for (const auto& b : r.sleepBlockers)
    awake.push_back({{"who", b.who}, {"why", b.why}, {"what", b.what}, {"pid", b.pid}});
  auto& left = j["dev_servers_left_behind"] = json::array();
  for (const auto& srv : r.idleServers)
    left.push_back({{"pid", srv.pid}, {"name", srv.name}, {"port", srv.port}, {"memory_mb", mb(static_cast<double>(srv.memoryBytes))}});
  const bool calm = j["insights"].empty() && j["strain"].empty() && j["apps_holding_the_cpu"].empty() && !pressed &&
                    j["dev_servers_left_behind"].empty();
  j["summary"] = calm ? "Nothing stands out right now." : "See the lists: each names what stands out.";
  if (!celsius) {
    j["temperatures_note"] = "This computer gives Omnira no temperature readings, so nothing is said about heat.";
  } else {
    j["temperature"] = {{"celsius", round1(*celsius)},
                        {"at", sensors->cpuCelsius ? "cpu" : "hottest sensor"},
                        {"hot_limit_celsius", round1(r.hotCelsius)},
                        {"cpus_slowed_to_cool", orNull(sensors->throttledCPUs)}};
  }
  return Answers::ok(std::move(j));
}

json ports(Arguments& a, const BridgeReadings& r) {
  const auto one = a.integer("port");
  const auto several = a.integers("ports");
  if (a.mistake()) return Answers::refused(*a.mistake());
  std::vector<int64_t> asked = several.value_or(std::vector<int64_t>{});
  if (one) asked.push_back(*one);
  if (asked.size() > Bridge::limit) return Answers::refused("Give at most 20 ports.");
  for (const int64_t p : asked)
    if (p < 1 || p > 65535) return Answers::refused(fmt::format("{} is not a TCP port: give 1 to 65535.", p));
  const auto isAsked = [&](uint16_t p) { return asked.empty() || std::count(asked.begin(), asked.end(), p) > 0; };
  const auto processes = byPID(r);

  json j;
  auto& list = j["ports"] = json::array();
  size_t listed = 0, more = 0;
  for (const auto& p : r.ports) {
    if (!isAsked(p.port)) continue;
    if (listed >= Bridge::portLimit) {
      ++more;
      continue;
    }
    ++listed;
    json row;
    row["port"] = p.port;
    row["reachable_from"] = p.localOnly ? "this computer only" : "all interfaces";
    row["addresses"] = p.addresses;
    if (p.process) {
      row["pid"] = p.process->pid;
      row["process"] = p.process->name;
      row["app"] = p.process->appName;
      row["project"] = orNull(p.process->projectPath);
    } else {
      row["pid"] = nullptr;
      row["process"] = nullptr;
      row["app"] = nullptr;
      row["project"] = p.container ? orNull(p.container->projectPath) : json();
    }
    row["container"] = p.container ? json{{"name", p.container->name}, {"stop", p.container->stopCommand}} : json();
    auto& connected = row["connected_from"] = json::array();
    for (const auto& c : p.connectedFrom) connected.push_back({{"pid", c.pid}, {"name", c.name}, {"app", c.appName}});
    row["remote_connections"] = p.remoteConnections;
    list.push_back(std::move(row));
  }
  if (more > 0) j["more_ports"] = more;
  std::vector<int64_t> free, others;
  for (const int64_t p : asked) {
    if (std::any_of(r.ports.begin(), r.ports.end(), [&](const Port& x) { return x.port == p; })) continue;
    (std::count(r.listening.begin(), r.listening.end(), p) > 0 ? others : free).push_back(p);
  }
  j["free"] = free;
  j["held_by_other_users"] = others;
  return Answers::ok(std::move(j));
}

json containers(Arguments& a, const BridgeReadings& r, Date now) {
  const auto name = a.text("name");
  if (a.mistake()) return Answers::refused(*a.mistake());
  json j;
  auto& list = j["containers"] = json::array();
  for (const auto& c : r.containers.containers) {
    if (!c.matches(name.value_or(""))) continue;
    list.push_back({{"name", c.name},
                    {"id", c.shortID()},
                    {"image", c.image},
                    {"status", c.status},
                    {"engine", c.engine},
                    {"cpu_percent", orNull(c.cpuPercent)},
                    {"memory_mb", c.memoryInUseBytes ? json(mb(static_cast<double>(*c.memoryInUseBytes))) : json()},
                    {"memory_limit_mb", c.memoryLimitBytes ? json(mb(static_cast<double>(*c.memoryLimitBytes))) : json()},
                    {"network_received_mb_per_s", c.networkInBytesPerSec ? json(mb(*c.networkInBytesPerSec)) : json()},
                    {"network_sent_mb_per_s", c.networkOutBytesPerSec ? json(mb(*c.networkOutBytesPerSec)) : json()},
                    {"published_ports", c.publishedPorts},
                    {"compose_project", orNull(c.composeProject)},
                    {"compose_service", orNull(c.composeService)},
                    {"compose_folder", orNull(c.composeFolder)},
                    {"stop", c.stopCommand()}});
  }
  auto& engines = j["engines"] = json::array();
  for (const auto& e : r.containers.engines)
    engines.push_back({{"name", e.name}, {"socket", e.socketPath}, {"answered", e.answered}, {"failure", orNull(e.failure)}});
  if (r.containers.engines.empty()) j["note"] = "No container engine runs on this computer.";
  else if (!r.containers.withStats && !r.containers.containers.empty())
    j["note"] = "CPU, memory and network come with the next look at the engines, within about 10 seconds: ask again.";
  else if (name && j["containers"].empty())
    j["note"] = "No running container matches “" + *name + "”.";
  (void)now;
  return Answers::ok(std::move(j));
}

json canQuit(Arguments& a, const BridgeReadings& r, int32_t asker) {
  const auto name = a.text("name");
  const auto pid = a.integer("pid");
  const auto pids = a.integers("pids");
  const auto port = a.integer("port");
  const auto project = a.text("project");
  if (a.mistake()) return Answers::refused(*a.mistake());
  const int targets = (name ? 1 : 0) + (pid ? 1 : 0) + (pids ? 1 : 0) + (port ? 1 : 0) + (project ? 1 : 0);
  if (targets != 1) return Answers::refused("Give one of: name (an app), pid, pids, port or project.");
  if (r.groups.empty()) return Answers::refused(Answers::kNoReading);
  if (pids && pids->size() > Bridge::limit) return Answers::refused("Give at most 20 pids.");

  const QuitCheck check(r.quitContext(asker));

  std::vector<QuitJudgement> judged;
  std::vector<std::string> notFound;
  std::string nothing;  // where nothing of the person's runs
  bool perProcess = false;
  if (pid || pids) {
    std::vector<int64_t> list = pids.value_or(std::vector<int64_t>{});
    if (pid) list.push_back(*pid);
    perProcess = list.size() > 1;
    for (const int64_t p : list) {
      if (auto j = check.process(static_cast<int32_t>(p))) judged.push_back(std::move(*j));
      else notFound.push_back(fmt::format("No process Omnira can see has PID {}.", p));
    }
    if (judged.empty()) return Answers::refused(notFound.front());
  } else if (port) {
    if (auto j = check.port(static_cast<uint16_t>(std::clamp<int64_t>(*port, 0, 65535)))) judged.push_back(std::move(*j));
    else nothing = fmt::format("on port {}.", *port);
  } else if (project) {
    judged = check.project(std::string(trim(*project)));
    perProcess = true;
    if (judged.empty())
      for (const auto& p : r.projects)
        if (p.matches(trim(*project))) {
          judged = check.project(p.path);
          break;
        }
    if (judged.empty()) nothing = "in a project folder called “" + std::string(trim(*project)) + "”.";
  } else {
    const std::string wanted(trim(*name));
    const auto match = matchApp(r.groups, wanted);
    if (match.group && match.group->kind != GroupKind::system && lowered(match.group->name) != lowered(wanted) &&
        !check.named(wanted).empty()) {
      // "node" names the program before an app that merely holds the word.
      judged = check.named(wanted);
      perProcess = true;
    } else if (match.group) {
      // An app is judged by the processes nothing else in it started; the rest stop with them.
      std::set<int32_t> inApp;
      for (const auto& p : match.group->processes) inApp.insert(p.pid);
      for (const auto& p : match.group->processes)
        if (!inApp.contains(p.parentPID))
          if (auto j = check.process(p.pid)) judged.push_back(std::move(*j));
    } else if (auto named = check.named(wanted); !named.empty()) {
      judged = std::move(named);
      perProcess = true;
    } else if (match.others.size() > 1) {
      return appNotFound(wanted, match);
    } else {
      return Answers::refused("No running app matches “" + wanted + "”. Use top_apps to see what is running.");
    }
  }

  json j;
  auto& verdicts = j["verdicts"] = json::array();
  std::vector<int32_t> askable, withoutAsking;
  for (const auto& v : judged) {
    verdicts.push_back(v.toJSON());
    if (v.verdict != QuitVerdict::doNot && v.pid > 0) askable.push_back(v.pid);
    if (v.verdict == QuitVerdict::safe && v.pid > 0) withoutAsking.push_back(v.pid);
  }
  j["can_be_asked_about"] = askable;
  j["quitWithoutAsking"] = withoutAsking;
  if (!notFound.empty()) j["not_found"] = notFound;
  const auto all = [&](QuitVerdict verdict) {
    return !judged.empty() && std::all_of(judged.begin(), judged.end(), [&](const auto& x) { return x.verdict == verdict; });
  };
  std::string summary;
  if (judged.empty()) summary = "Nothing of the person's is running " + nothing;
  else if (judged.size() == 1 && all(QuitVerdict::safe))
    summary = fmt::format("{} ({}) is safe to quit without asking. That needs the person's yes too: tell them, don't "
                          "just run it.", judged[0].name, judged[0].pid);
  else if (judged.size() == 1) summary = judged[0].reason;
  else if (all(QuitVerdict::safe)) summary = "All of them are safe to quit. That needs the person's yes too: tell them, don't just run it.";
  else if (all(QuitVerdict::doNot)) summary = "None of those can be quit. Each has its reason.";
  else {
    summary = "Not all of them are safe to quit: each has its own line.";
    if (perProcess) summary += " Ask to quit one at a time, by pid, so the person is asked about each.";
  }
  j["summary"] = summary;
  return Answers::ok(std::move(j));
}

json agents(Arguments& a, const BridgeReadings& r, int32_t asker, Date now) {
  const auto name = a.text("name");
  if (a.mistake()) return Answers::refused(*a.mistake());
  if (r.groups.empty()) return Answers::refused(Answers::kNoReading);
  const auto chain = QuitCheck::ancestors(r.groups, asker);
  const std::string wanted = lowered(trim(name.value_or("")));
  json j;
  auto& list = j["sessions"] = json::array();
  for (const auto& session : r.agents) {
    const bool matches = wanted.empty() || lowered(session.agent).find(wanted) != std::string::npos ||
                         lowered(session.agentName).find(wanted) != std::string::npos ||
                         (session.project && lowered(*session.project).find(wanted) != std::string::npos);
    if (!matches) continue;
    auto row = session.toJSON(now);
    row["is_asking"] = std::count(chain.begin(), chain.end(), session.pid) > 0;
    list.push_back(std::move(row));
  }
  if (list.empty())
    j["note"] = wanted.empty() ? "No coding agent is running on this computer."
                               : "No running agent session matches “" + std::string(trim(*name)) + "”.";
  return Answers::ok(std::move(j));
}

}  // namespace

BridgeAnswers::json BridgeAnswers::respond(std::string_view tool, const json& arguments, const BridgeReadings& readings,
                                           int32_t asker, Date now) {
  Arguments a(arguments);
  if (tool == "system_status") return systemStatus(readings, now);
  if (tool == "top_apps") return topApps(a, readings, now);
  if (tool == "app_details") return appDetails(a, readings, now);
  if (tool == "history") return history(a, readings, now);
  if (tool == "find_process") return findProcess(a, readings, now);
  if (tool == "projects") return projects(a, readings);
  if (tool == "whats_wrong") return whatsWrong(readings, now);
  if (tool == "ports") return ports(a, readings);
  if (tool == "containers") return containers(a, readings, now);
  if (tool == "can_quit") return canQuit(a, readings, asker);
  if (tool == "agents") return agents(a, readings, asker, now);
  return refused("Omnira has no tool called “" + std::string(tool) + "”.");
}

}  // namespace omnira
