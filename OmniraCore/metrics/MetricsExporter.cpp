#include "OmniraCore/metrics/MetricsExporter.h"

#include <algorithm>
#include <chrono>
#include <set>

#include <fmt/format.h>

#include "OmniraCore/history/StrainKind.h"
#include "OmniraCore/sampling/MemoryPressure.h"

namespace omnira {

namespace {

using Type = MetricFamily::Type;

constexpr auto kRecentWindow = std::chrono::seconds(60);
// A series not seen for this long is forgotten; should it come back, its counters start
// again from zero, which Prometheus reads as a reset.
constexpr auto kForgetAfter = std::chrono::hours(1);

MetricFamily family(std::string name, std::string help, Type type) {
  return MetricFamily{std::move(name), std::move(help), type, {}};
}

void add(MetricFamily& family, MetricLabels labels, double value) {
  const std::string suffix = family.type == Type::counter ? "_total" : "";
  family.samples.push_back({suffix, std::move(labels), value});
}

void push(std::vector<MetricFamily>& out, MetricFamily family) {
  if (!family.samples.empty()) out.push_back(std::move(family));
}

void gauge(std::vector<MetricFamily>& out, std::string name, std::string help, double value) {
  auto f = family(std::move(name), std::move(help), Type::gauge);
  add(f, {}, value);
  out.push_back(std::move(f));
}

std::string folderName(const std::string& path) {
  auto trimmed = std::string_view(path);
  while (trimmed.size() > 1 && trimmed.ends_with('/')) trimmed.remove_suffix(1);
  const auto slash = trimmed.rfind('/');
  return std::string(slash == std::string_view::npos ? trimmed : trimmed.substr(slash + 1));
}

// Two sensors may share a chip and a name; the later ones are numbered so each series is one.
std::string uniqueName(std::set<std::pair<std::string, std::string>>& seen, const std::string& chip, std::string name) {
  const std::string base = name;
  for (int n = 2; !seen.insert({chip, name}).second; ++n) name = fmt::format("{} {}", base, n);
  return name;
}

}  // namespace

std::vector<MetricsExporter::Folded::Row> MetricsExporter::Folded::update(const std::map<Key, Figures>& figures,
                                                                          bool fresh, bool absolute, Date at,
                                                                          size_t limit, const Key& otherKey) {
  double cpuTotal = 0, memoryTotal = 0;
  for (const auto& [key, figure] : figures) {
    auto& s = series[key];
    s.lastSeen = at;
    if (fresh) s.recentCPU.emplace_back(at, figure.deltas[0]);
    while (!s.recentCPU.empty() && s.recentCPU.front().first < at - kRecentWindow) s.recentCPU.pop_front();
    for (const auto& [when, seconds] : s.recentCPU) cpuTotal += seconds;
    memoryTotal += figure.memoryBytes;
  }
  struct Ranked {
    const Key* key;
    double score;
  };
  std::vector<Ranked> ranked;
  ranked.reserve(figures.size());
  for (const auto& [key, figure] : figures) {
    double cpu = 0;
    for (const auto& [when, seconds] : series[key].recentCPU) cpu += seconds;
    const double score = (cpuTotal > 0 ? cpu / cpuTotal : 0) + (memoryTotal > 0 ? figure.memoryBytes / memoryTotal : 0);
    ranked.push_back({&key, score});
  }
  std::sort(ranked.begin(), ranked.end(), [](const Ranked& a, const Ranked& b) {
    return a.score != b.score ? a.score > b.score : *a.key < *b.key;
  });
  std::set<Key> top;
  for (const auto& r : ranked) {
    if (top.size() >= limit) break;
    // A real series labelled like the folded one would collide with it.
    if (*r.key != otherKey) top.insert(*r.key);
  }

  std::vector<Row> rows;
  Row folded{otherKey};
  bool anyFolded = false;
  if (absolute) other = {};
  for (const auto& [key, figure] : figures) {
    auto& s = series[key];
    const bool own = top.count(key) > 0;
    Totals& totals = own ? s.totals : other;
    if (absolute && own) totals = {};
    if (fresh || absolute)
      for (size_t i = 0; i < totals.size(); ++i) totals[i] += figure.deltas[i];
    if (own) {
      rows.push_back({key, s.totals, figure.memoryBytes, figure.residentBytes, figure.processes});
    } else {
      anyFolded = true;
      folded.memoryBytes += figure.memoryBytes;
      folded.residentBytes += figure.residentBytes;
      folded.processes += figure.processes;
    }
  }
  // Once shown, "other" stays, so that its counters do not vanish and come back.
  otherShown = otherShown || anyFolded;
  if (otherShown) {
    folded.totals = other;
    rows.push_back(std::move(folded));
  }
  std::erase_if(series, [&](const auto& entry) { return entry.second.lastSeen < at - kForgetAfter; });
  return rows;
}

void MetricsExporter::noteRaised(const std::vector<Insight>& fresh) {
  for (const auto& insight : fresh) raised_[insight.kind] += 1;
}

void MetricsExporter::noteTick(double seconds) {
  if (!(seconds >= 0)) return;
  for (size_t i = 0; i < tickBuckets.size(); ++i)
    if (seconds <= tickBuckets[i]) tickCounts_[i] += 1;
  tickCount_ += 1;
  tickSum_ += seconds;
}

std::vector<MetricFamily> MetricsExporter::update(const MetricsReadings& readings) {
  std::vector<MetricFamily> out;
  machine(readings, out);
  groups(readings, out);
  others(readings, out);
  return out;
}

void MetricsExporter::machine(const MetricsReadings& r, std::vector<MetricFamily>& out) {
  if (!r.system) return;
  const SystemSample& s = *r.system;
  const bool fresh = !lastSystemAt_ || s.timestamp != *lastSystemAt_;
  lastSystemAt_ = s.timestamp;
  if (fresh && s.interval > 0) {
    const double cores = static_cast<double>(std::max<size_t>(1, s.cpuPerCore.size()));
    cpuUser_ += s.cpuUser * cores * s.interval;
    cpuSystem_ += s.cpuSystem * cores * s.interval;
    cpuIdle_ += std::max(0.0, 1.0 - s.cpu()) * cores * s.interval;
    if (coreBusy_.size() < s.cpuPerCore.size()) coreBusy_.resize(s.cpuPerCore.size());
    for (size_t i = 0; i < s.cpuPerCore.size(); ++i) coreBusy_[i] += s.cpuPerCore[i] * s.interval;
    networkIn_ += static_cast<double>(s.networkBytesReceived);
    networkOut_ += static_cast<double>(s.networkBytesSent);
    diskRead_ += s.diskReadBytesPerSec * s.interval;
    diskWritten_ += s.diskWriteBytesPerSec * s.interval;
  }

  auto cpu = family("omnira_cpu_seconds", "CPU time of all cores by mode.", Type::counter);
  auto core = family("omnira_cpu_core_busy_seconds", "Busy CPU time of each core.", Type::counter);
  auto byCore = family("omnira_cpu_core_seconds", "CPU time of each core by mode.", Type::counter);
  const MachineCounters* k = r.counters;
  if (k && !k->cores.empty()) {
    MachineCounters::Core sum;
    for (size_t i = 0; i < k->cores.size(); ++i) {
      const auto& c = k->cores[i];
      const std::string index = std::to_string(i);
      sum.user += c.user, sum.nice += c.nice, sum.system += c.system, sum.idle += c.idle;
      add(core, {{"core", index}}, c.user + c.nice + c.system);
      add(byCore, {{"core", index}, {"mode", "user"}}, c.user);
      add(byCore, {{"core", index}, {"mode", "nice"}}, c.nice);
      add(byCore, {{"core", index}, {"mode", "system"}}, c.system);
      add(byCore, {{"core", index}, {"mode", "idle"}}, c.idle);
    }
    add(cpu, {{"mode", "user"}}, sum.user);
    add(cpu, {{"mode", "nice"}}, sum.nice);
    add(cpu, {{"mode", "system"}}, sum.system);
    add(cpu, {{"mode", "idle"}}, sum.idle);
  } else {
    // user includes nice here: the sample does not tell them apart.
    add(cpu, {{"mode", "user"}}, cpuUser_);
    add(cpu, {{"mode", "system"}}, cpuSystem_);
    add(cpu, {{"mode", "idle"}}, cpuIdle_);
    for (size_t i = 0; i < coreBusy_.size(); ++i) add(core, {{"core", std::to_string(i)}}, coreBusy_[i]);
  }
  push(out, std::move(cpu));
  push(out, std::move(core));
  push(out, std::move(byCore));
  gauge(out, "omnira_cpu_usage_ratio", "Share of all cores busy over the last interval.", s.cpu());
  gauge(out, "omnira_load_average", "Load average over one minute.", s.loadAverage);

  gauge(out, "omnira_memory_total_bytes", "Physical memory.", static_cast<double>(s.memoryTotal));
  gauge(out, "omnira_memory_used_bytes", "Memory in use.", static_cast<double>(s.memoryUsed()));
  auto memory = family("omnira_memory_bytes", "Memory by what holds it.", Type::gauge);
  add(memory, {{"kind", "app"}}, static_cast<double>(s.memoryApp));
  add(memory, {{"kind", "wired"}}, static_cast<double>(s.memoryWired));
  add(memory, {{"kind", "compressed"}}, static_cast<double>(s.memoryCompressed));
  add(memory, {{"kind", "cached"}}, static_cast<double>(s.memoryCached));
  push(out, std::move(memory));
  gauge(out, "omnira_swap_used_bytes", "Swap in use.", static_cast<double>(s.swapUsed));
  gauge(out, "omnira_memory_pressure_level", "Memory pressure: 1 normal, 2 warning, 4 critical.",
        static_cast<double>(static_cast<int>(s.pressure)));
  gauge(out, "omnira_memory_pressure_ratio", "Share of memory the kernel could not hand out without reclaiming, 0 to 1.",
        s.memoryPressureFraction);
  if (r.memoryStall) {
    auto stall = family("omnira_memory_stall_ratio",
                        "Share of the last 10 s in which some, or all, tasks waited for memory (PSI avg10).", Type::gauge);
    add(stall, {{"tasks", "some"}}, r.memoryStall->someAvg10 / 100.0);
    add(stall, {{"tasks", "full"}}, r.memoryStall->fullAvg10 / 100.0);
    out.push_back(std::move(stall));
  }

  auto counter = [&](std::string name, std::string help, std::optional<uint64_t> kernel, double summed) {
    auto f = family(std::move(name), std::move(help), Type::counter);
    add(f, {}, kernel ? static_cast<double>(*kernel) : summed);
    out.push_back(std::move(f));
  };
  counter("omnira_network_received_bytes", "Bytes received on the network interfaces backed by a device.",
          k ? k->networkReceived : std::nullopt, networkIn_);
  counter("omnira_network_sent_bytes", "Bytes sent on the network interfaces backed by a device.", k ? k->networkSent : std::nullopt,
          networkOut_);
  counter("omnira_disk_read_bytes", "Bytes read from the disks.", k ? k->diskRead : std::nullopt, diskRead_);
  counter("omnira_disk_written_bytes", "Bytes written to the disks.", k ? k->diskWritten : std::nullopt, diskWritten_);
  if (s.diskTotal > 0) {
    gauge(out, "omnira_disk_size_bytes", "Size of the volume that holds the home folder.", static_cast<double>(s.diskTotal));
    gauge(out, "omnira_disk_available_bytes", "Space left on that volume.", static_cast<double>(s.diskAvailable));
  }
  if (s.gpuUtilization) gauge(out, "omnira_gpu_busy_ratio", "Share of time the busiest GPU was busy.", *s.gpuUtilization);
  if (s.gpuMemoryBytes)
    gauge(out, "omnira_gpu_memory_bytes", "Memory all GPUs use.", static_cast<double>(*s.gpuMemoryBytes));
  if (const auto& b = s.battery) {
    gauge(out, "omnira_battery_charge_ratio", "Battery charge, 0 to 1.", b->level);
    gauge(out, "omnira_battery_charging", "1 while the battery charges.", b->charging ? 1 : 0);
    gauge(out, "omnira_battery_plugged_in", "1 while on mains power.", b->pluggedIn ? 1 : 0);
    if (b->watts) gauge(out, "omnira_battery_power_watts", "Power flowing in or out of the battery.", *b->watts);
    if (b->healthFraction)
      gauge(out, "omnira_battery_health_ratio", "Full capacity against design capacity.", *b->healthFraction);
    if (b->cycleCount) gauge(out, "omnira_battery_cycles", "Charge cycles.", *b->cycleCount);
  }

  if (const SensorSample* sensors = r.sensors) {
    auto temperatures = family("omnira_temperature_celsius", "Temperature of each sensor.", Type::gauge);
    std::set<std::pair<std::string, std::string>> seen;
    for (const auto& t : sensors->temperatures)
      add(temperatures, {{"chip", t.chip}, {"sensor", uniqueName(seen, t.chip, t.name)}}, t.celsius);
    push(out, std::move(temperatures));
    auto fans = family("omnira_fan_speed_rpm", "Speed of each fan.", Type::gauge);
    seen.clear();
    for (const auto& f : sensors->fans)
      if (f.rpm) add(fans, {{"chip", f.chip}, {"fan", uniqueName(seen, f.chip, f.label)}}, *f.rpm);
    push(out, std::move(fans));
    if (sensors->systemWatts) gauge(out, "omnira_system_power_watts", "The whole machine's draw.", *sensors->systemWatts);
  }
}

void MetricsExporter::groups(const MetricsReadings& r, std::vector<MetricFamily>& out) {
  if (!r.groups) return;
  const bool fresh = r.groupsAt && r.groupsAt != lastGroupsAt_;
  if (r.groupsAt) lastGroupsAt_ = r.groupsAt;

  std::map<Key, Figures> apps, projects;
  for (const auto& group : *r.groups) {
    auto& app = apps[{group.name, std::string(rawValue(group.kind))}];
    for (const auto& p : group.processes) {
      Totals deltas;
      if (r.lifetimeTotals) {
        ProcessNetwork::Bytes sockets;
        if (r.socketBytes)
          if (const auto it = r.socketBytes->find(p.pid); it != r.socketBytes->end()) sockets = it->second;
        deltas = {p.lifetimeCPUSeconds, static_cast<double>(p.lifetimeDiskBytesRead),
                  static_cast<double>(p.lifetimeDiskBytesWritten), static_cast<double>(sockets.in),
                  static_cast<double>(sockets.out)};
      } else {
        deltas = {static_cast<double>(p.delta.cpuNanoseconds) / 1e9, static_cast<double>(p.delta.diskBytesRead),
                  static_cast<double>(p.delta.diskBytesWritten), static_cast<double>(p.networkBytesIn),
                  static_cast<double>(p.networkBytesOut)};
      }
      const auto addTo = [&](Figures& f) {
        for (size_t i = 0; i < deltas.size(); ++i) f.deltas[i] += deltas[i];
        f.memoryBytes += static_cast<double>(p.memoryBytes);
        f.residentBytes += static_cast<double>(p.residentBytes);
        f.processes += 1;
      };
      addTo(app);
      if (p.projectPath) addTo(projects[{options_.projectPaths ? *p.projectPath : folderName(*p.projectPath)}]);
    }
  }

  const bool absolute = r.lifetimeTotals;
  const auto appRows = apps_.update(apps, fresh, absolute, r.at, options_.maxApps, {"other", "other"});
  const auto projectRows = projects_.update(projects, fresh, absolute, r.at, options_.maxApps, {"other"});

  struct Column {
    const char* name;
    const char* help;
    size_t total;  // index into Totals
  };
  const Column columns[] = {{"cpu_seconds", "CPU time of its processes.", 0},
                            {"disk_read_bytes", "Bytes its processes read from disk.", 1},
                            {"disk_written_bytes", "Bytes its processes wrote to disk.", 2},
                            {"network_received_bytes", "Bytes its processes received.", 3},
                            {"network_sent_bytes", "Bytes its processes sent.", 4}};
  const auto emit = [&](std::string_view prefix, const std::vector<Folded::Row>& rows, const std::vector<std::string>& labelNames) {
    const auto labels = [&](const Key& key) {
      MetricLabels l;
      for (size_t i = 0; i < labelNames.size(); ++i) l.emplace_back(labelNames[i], key[i]);
      return l;
    };
    for (const auto& column : columns) {
      if (absolute && column.total >= 3 && !r.socketBytes) continue;
      auto f = family(fmt::format("omnira_{}_{}", prefix, column.name), column.help, Type::counter);
      for (const auto& row : rows) add(f, labels(row.key), row.totals[column.total]);
      push(out, std::move(f));
    }
    auto resident = family(fmt::format("omnira_{}_resident_memory_bytes", prefix),
                           "Memory its processes have resident, each shared page counted in every sharer.", Type::gauge);
    auto proportional = family(fmt::format("omnira_{}_proportional_memory_bytes", prefix),
                               "Memory its processes alone keep, resident or swapped, shared pages divided among "
                               "their sharers where measured; file pages the kernel can drop are left out.",
                               Type::gauge);
    auto count = family(fmt::format("omnira_{}_processes", prefix), "Processes running in it.", Type::gauge);
    for (const auto& row : rows) {
      add(resident, labels(row.key), row.residentBytes);
      add(proportional, labels(row.key), row.memoryBytes);
      add(count, labels(row.key), row.processes);
    }
    push(out, std::move(resident));
    push(out, std::move(proportional));
    push(out, std::move(count));
  };
  emit("app", appRows, {"app", "kind"});
  emit("project", projectRows, {"project"});
}

void MetricsExporter::others(const MetricsReadings& r, std::vector<MetricFamily>& out) {
  if (r.containers) {
    auto cpu = family("omnira_container_cpu_ratio", "CPU of a container, in cores.", Type::gauge);
    auto memory = family("omnira_container_memory_bytes", "Memory a container uses.", Type::gauge);
    std::set<std::pair<std::string, std::string>> seen;
    for (const auto& c : r.containers->containers) {
      const std::string name = uniqueName(seen, c.engine, c.name);
      if (c.cpuPercent) add(cpu, {{"engine", c.engine}, {"container", name}}, *c.cpuPercent / 100.0);
      if (c.memoryInUseBytes)
        add(memory, {{"engine", c.engine}, {"container", name}}, static_cast<double>(*c.memoryInUseBytes));
    }
    push(out, std::move(cpu));
    push(out, std::move(memory));
  }
  if (r.insights) {
    std::map<Insight::Kind, double> listed;
    for (const auto& insight : *r.insights) listed[insight.kind] += 1;
    auto f = family("omnira_insights", "Insights listed under Worth a Look, by kind.", Type::gauge);
    for (const auto kind : Insight::allKinds) add(f, {{"kind", std::string(rawValue(kind))}}, listed[kind]);
    push(out, std::move(f));
  }
  if (options_.countsRaised) {
    auto f = family("omnira_insights_raised", "Insights raised since Omnira started, by kind.", Type::counter);
    for (const auto kind : Insight::allKinds) add(f, {{"kind", std::string(rawValue(kind))}}, raised_[kind]);
    push(out, std::move(f));
  }
  if (r.strain) {
    auto f = family("omnira_strain", "1 while a resource is under strain.", Type::gauge);
    for (const auto kind : allStrainKinds) add(f, {{"resource", std::string(rawValue(kind))}}, r.strain->count(kind) ? 1 : 0);
    push(out, std::move(f));
  }
  if (r.ledgers) {
    auto f = family("omnira_ai_tokens", "Tokens the AI coding tools logged, by tool, model and kind.", Type::counter);
    for (const auto& [tool, ledger] : *r.ledgers) {
      for (const auto& [model, usage] : ledger.byModel()) {
        const std::string toolName(rawValue(tool));
        add(f, {{"tool", toolName}, {"model", model}, {"kind", "input"}}, static_cast<double>(usage.input));
        add(f, {{"tool", toolName}, {"model", model}, {"kind", "output"}}, static_cast<double>(usage.output));
        add(f, {{"tool", toolName}, {"model", model}, {"kind", "cache_read"}}, static_cast<double>(usage.cacheRead));
        add(f, {{"tool", toolName}, {"model", model}, {"kind", "cache_write"}}, static_cast<double>(usage.cacheWrite));
      }
    }
    push(out, std::move(f));
  }
  if (r.self) {
    auto cpu = family("omnira_self_cpu_seconds", "CPU time Omnira itself used.", Type::counter);
    add(cpu, {}, r.self->cpuSeconds);
    out.push_back(std::move(cpu));
    if (r.self->residentBytes)
      gauge(out, "omnira_self_resident_bytes", "Memory Omnira itself keeps resident.", static_cast<double>(*r.self->residentBytes));
  }
  if (tickCount_ > 0) {
    auto f = family("omnira_tick_duration_seconds", "How long one sampling tick took.", Type::histogram);
    for (size_t i = 0; i < tickBuckets.size(); ++i)
      f.samples.push_back({"_bucket", {{"le", fmt::format("{}", tickBuckets[i])}}, tickCounts_[i]});
    f.samples.push_back({"_bucket", {{"le", "+Inf"}}, tickCount_});
    f.samples.push_back({"_sum", {}, tickSum_});
    f.samples.push_back({"_count", {}, tickCount_});
    out.push_back(std::move(f));
  }
}

}  // namespace omnira
