#include "OmniraCore/metrics/MetricsExporter.h"

#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <optional>
#include <set>
#include <unordered_map>

#include "OmniraCore/metrics/Exposition.h"
#include "OmniraCore/usage/DayCalendar.h"
#include "OmniraCore/usage/TokenLogs.h"
#include "tests/usage/UsageLogFiles.h"

namespace omnira {
namespace {

using namespace std::chrono_literals;

const Date t0 = Date(std::chrono::sys_days(std::chrono::year(2026) / 11 / 25));

// A process whose tick used `cpuSeconds` and read `readBytes`, keeping `memory` of its own
// and twice that resident.
ProcessSample process(int32_t pid, double cpuSeconds, uint64_t memory, std::optional<std::string> project = std::nullopt,
                      uint64_t readBytes = 0) {
  ProcessSample p;
  p.pid = pid;
  p.name = "p" + std::to_string(pid);
  p.memoryBytes = memory;
  p.residentBytes = 2 * memory;
  p.delta.cpuNanoseconds = static_cast<uint64_t>(cpuSeconds * 1e9);
  p.delta.diskBytesRead = readBytes;
  p.projectPath = std::move(project);
  return p;
}

AppGroup group(const std::string& name, std::vector<ProcessSample> processes) {
  return AppGroup("exec:" + name, name, GroupKind::app, std::nullopt, std::move(processes));
}

std::optional<double> value(const std::vector<MetricFamily>& families, std::string_view name, const MetricLabels& labels) {
  for (const auto& f : families)
    if (f.name == name)
      for (const auto& s : f.samples)
        if (s.labels == labels) return s.value;
  return std::nullopt;
}

std::set<std::string> apps(const std::vector<MetricFamily>& families) {
  std::set<std::string> names;
  for (const auto& f : families)
    if (f.name == "omnira_app_cpu_seconds")
      for (const auto& s : f.samples) names.insert(s.labels.at(0).second);
  return names;
}

// Every counter sample of `families`, by family and labels, for checking that none goes down.
std::map<std::pair<std::string, MetricLabels>, double> counters(const std::vector<MetricFamily>& families) {
  std::map<std::pair<std::string, MetricLabels>, double> out;
  for (const auto& f : families)
    if (f.type == MetricFamily::Type::counter)
      for (const auto& s : f.samples) out[{f.name, s.labels}] = s.value;
  return out;
}

TEST(MetricsExporter, FoldsAppsBeyondTheLimitIntoOther) {
  MetricsExporter exporter({.maxApps = 2});
  const std::vector<AppGroup> groups = {group("editor", {process(1, 3, 100)}),
                                        group("browser", {process(2, 2, 900), process(3, 1, 100)}),
                                        group("chat", {process(4, 0.5, 50)}),
                                        group("music", {process(5, 0.25, 10), process(6, 0, 10)})};
  MetricsReadings r{.at = t0, .groups = &groups, .groupsAt = t0};
  const auto families = exporter.update(r);

  EXPECT_EQ(apps(families), (std::set<std::string>{"browser", "editor", "other"}));
  EXPECT_DOUBLE_EQ(*value(families, "omnira_app_cpu_seconds", {{"app", "browser"}, {"kind", "app"}}), 3);
  EXPECT_DOUBLE_EQ(*value(families, "omnira_app_cpu_seconds", {{"app", "other"}, {"kind", "other"}}), 0.75);
  EXPECT_DOUBLE_EQ(*value(families, "omnira_app_processes", {{"app", "other"}, {"kind", "other"}}), 3);

  // The same groups published again (a tick without a process sample) add nothing.
  r.at = t0 + 5s;
  const auto repeated = exporter.update(r);
  EXPECT_EQ(counters(repeated), counters(families));

  // A real app called "other" never shares the folded series.
  MetricsExporter one({.maxApps = 1});
  const std::vector<AppGroup> clash = {AppGroup("name:other", "other", GroupKind::other, std::nullopt, {process(1, 9, 999)}),
                                       group("small", {process(2, 1, 1)})};
  const auto folded = one.update({.at = t0, .groups = &clash, .groupsAt = t0});
  EXPECT_EQ(apps(folded), (std::set<std::string>{"small", "other"}));
  EXPECT_DOUBLE_EQ(*value(folded, "omnira_app_cpu_seconds", {{"app", "other"}, {"kind", "other"}}), 9);

  // A single look shows what the running processes did since they started, as it is each time.
  ProcessSample writer = process(7, 0, 10);
  writer.lifetimeCPUSeconds = 40;
  writer.lifetimeDiskBytesWritten = 5000;
  std::vector<AppGroup> once = {group("writer", {writer})};
  const std::unordered_map<int32_t, ProcessNetwork::Bytes> sockets = {{7, {.in = 300, .out = 20}}};
  MetricsExporter look;
  auto seen = look.update({.at = t0, .groups = &once, .lifetimeTotals = true, .socketBytes = &sockets});
  once[0].processes[0].lifetimeDiskBytesWritten = 6000;
  seen = look.update({.at = t0 + 1s, .groups = &once, .lifetimeTotals = true, .socketBytes = &sockets});
  const MetricLabels writerApp = {{"app", "writer"}, {"kind", "app"}};
  EXPECT_DOUBLE_EQ(*value(seen, "omnira_app_cpu_seconds", writerApp), 40);
  EXPECT_DOUBLE_EQ(*value(seen, "omnira_app_disk_written_bytes", writerApp), 6000);
  EXPECT_DOUBLE_EQ(*value(seen, "omnira_app_network_received_bytes", writerApp), 300);
  EXPECT_FALSE(value(look.update({.at = t0, .groups = &once, .lifetimeTotals = true}), "omnira_app_network_sent_bytes",
                     writerApp));
}

TEST(MetricsExporter, CountersStayMonotonicWhenAnAppLeavesTheTopAndComesBack) {
  MetricsExporter exporter({.maxApps = 1});
  std::map<std::pair<std::string, MetricLabels>, double> seen;
  const auto tick = [&](Date at, std::vector<AppGroup> groups) {
    const auto families = exporter.update({.at = at, .groups = &groups, .groupsAt = at});
    for (const auto& [key, v] : counters(families)) {
      if (auto before = seen.find(key); before != seen.end()) {
        EXPECT_GE(v, before->second) << key.first;
      }
      seen[key] = v;
    }
    return families;
  };

  // The editor leads, then the build takes over for good; the editor keeps working in "other".
  auto f = tick(t0, {group("editor", {process(1, 10, 500, std::nullopt, 1000)}), group("build", {process(2, 1, 10)})});
  EXPECT_EQ(apps(f), (std::set<std::string>{"editor", "other"}));
  EXPECT_DOUBLE_EQ(*value(f, "omnira_app_disk_read_bytes", {{"app", "editor"}, {"kind", "app"}}), 1000);
  for (int i = 1; i <= 3; ++i)
    f = tick(t0 + i * 70s, {group("editor", {process(1, 1, 10, std::nullopt, 10)}), group("build", {process(2, 30, 5000)})});
  EXPECT_EQ(apps(f), (std::set<std::string>{"build", "other"}));
  // The editor's series stopped at its own past; "other" holds the build's first tick and the
  // editor's three since, without ever going down.
  EXPECT_DOUBLE_EQ(seen.at({"omnira_app_cpu_seconds", {{"app", "editor"}, {"kind", "app"}}}), 10);
  EXPECT_DOUBLE_EQ(*value(f, "omnira_app_cpu_seconds", {{"app", "other"}, {"kind", "other"}}), 1 + 3 * 1);

  // The build ends; the editor comes back to the top and goes on from its own total.
  f = tick(t0 + 400s, {group("editor", {process(1, 2, 500)})});
  EXPECT_EQ(apps(f), (std::set<std::string>{"editor", "other"}));
  EXPECT_DOUBLE_EQ(*value(f, "omnira_app_cpu_seconds", {{"app", "editor"}, {"kind", "app"}}), 12);
  EXPECT_DOUBLE_EQ(*value(f, "omnira_app_cpu_seconds", {{"app", "other"}, {"kind", "other"}}), 4);
}

TEST(MetricsExporter, NamesProjectsByFolderUnlessPathsAreAsked) {
  const std::vector<AppGroup> groups = {
      group("node", {process(1, 1, 100, "/home/ada/src/shop"), process(2, 2, 100, "/home/ada/old/shop/")}),
      group("python", {process(3, 4, 100, "/home/ada/src/model")})};
  MetricsExporter byName;
  const auto named = byName.update({.at = t0, .groups = &groups, .groupsAt = t0});
  EXPECT_DOUBLE_EQ(*value(named, "omnira_project_cpu_seconds", {{"project", "shop"}}), 3);

  MetricsExporter byPath({.projectPaths = true});
  const auto pathed = byPath.update({.at = t0, .groups = &groups, .groupsAt = t0});
  EXPECT_DOUBLE_EQ(*value(pathed, "omnira_project_cpu_seconds", {{"project", "/home/ada/src/shop"}}), 1);
  EXPECT_FALSE(value(pathed, "omnira_project_cpu_seconds", {{"project", "shop"}}));
}

TEST(MetricsExporter, AddsUpTheMachineFromRatesAndTakesKernelTotalsWhenGiven) {
  MetricsExporter exporter;
  SystemSample s;
  s.timestamp = t0;
  s.cpuUser = 0.25;
  s.cpuSystem = 0.25;
  s.cpuPerCore = {1.0, 0.0};
  s.interval = 2;
  s.networkBytesReceived = 4000;
  s.diskWriteBytesPerSec = 100;
  s.memoryTotal = 1000;
  s.pressure = MemoryPressure::warning;
  exporter.update({.at = t0, .system = &s});
  s.timestamp = t0 + 2s;
  auto f = exporter.update({.at = s.timestamp, .system = &s});
  f = exporter.update({.at = s.timestamp, .system = &s});  // the same sample again adds nothing
  EXPECT_DOUBLE_EQ(*value(f, "omnira_cpu_seconds", {{"mode", "user"}}), 2 * 0.25 * 2 * 2);
  EXPECT_DOUBLE_EQ(*value(f, "omnira_cpu_core_busy_seconds", {{"core", "0"}}), 4);
  EXPECT_DOUBLE_EQ(*value(f, "omnira_network_received_bytes", {}), 8000);
  EXPECT_FALSE(value(f, "omnira_battery_charge_ratio", {}));  // no battery, no series

  MachineCounters kernel;
  kernel.cores = {{.user = 5, .nice = 1, .system = 2, .idle = 30}, {.user = 1, .nice = 0, .system = 1, .idle = 40}};
  kernel.diskRead = 123;
  f = exporter.update({.at = s.timestamp, .system = &s, .counters = &kernel, .memoryStall = MemoryStall{12.5, 2}});
  EXPECT_DOUBLE_EQ(*value(f, "omnira_memory_stall_ratio", {{"tasks", "some"}}), 0.125);
  EXPECT_DOUBLE_EQ(*value(f, "omnira_cpu_seconds", {{"mode", "nice"}}), 1);
  EXPECT_DOUBLE_EQ(*value(f, "omnira_disk_read_bytes", {}), 123);

  // Two sensors that share a chip and a name still make two series.
  SensorSample sensors;
  sensors.temperatures = {{.name = "Composite", .chip = "nvme", .celsius = 40}, {.name = "Composite", .chip = "nvme", .celsius = 50}};
  f = exporter.update({.at = s.timestamp, .system = &s, .sensors = &sensors});
  EXPECT_DOUBLE_EQ(*value(f, "omnira_temperature_celsius", {{"chip", "nvme"}, {"sensor", "Composite 2"}}), 50);
}

TEST(MetricsExporter, CountsInsightsTokensAndTicks) {
  MetricsExporter exporter({.countsRaised = true});
  Insight hot;
  hot.kind = Insight::Kind::runningHot;
  exporter.noteRaised({hot, hot});
  exporter.noteTick(0.004);
  exporter.noteTick(0.3);
  std::map<UsageTool, TokenLedger> ledgers;  // an empty ledger gives no series, not zeros
  const std::vector<Insight> listed = {hot};
  const StrainSince strain = {{StrainKind::memory, t0}};
  const auto f = exporter.update({.at = t0, .insights = &listed, .strain = &strain, .ledgers = &ledgers});
  EXPECT_DOUBLE_EQ(*value(f, "omnira_insights_raised", {{"kind", "runningHot"}}), 2);
  EXPECT_DOUBLE_EQ(*value(f, "omnira_strain", {{"resource", "memory"}}), 1);
  EXPECT_DOUBLE_EQ(*value(f, "omnira_tick_duration_seconds", {{"le", "0.005"}}), 1);
  EXPECT_DOUBLE_EQ(*value(f, "omnira_tick_duration_seconds", {{"le", "+Inf"}}), 2);
  EXPECT_FALSE(value(f, "omnira_ai_tokens", {}));

  // Containers: CPU in cores; the same name under two engines is two series; no stats, no series.
  ContainerSnapshot containers;
  containers.containers.resize(3);
  containers.containers[0].engine = "Docker", containers.containers[0].name = "web", containers.containers[0].cpuPercent = 150;
  containers.containers[1].engine = "Podman", containers.containers[1].name = "web", containers.containers[1].cpuPercent = 50;
  containers.containers[2].engine = "Docker", containers.containers[2].name = "idle";
  const auto c = exporter.update({.at = t0, .containers = &containers});
  EXPECT_DOUBLE_EQ(*value(c, "omnira_container_cpu_ratio", {{"engine", "Docker"}, {"container", "web"}}), 1.5);
  EXPECT_FALSE(value(c, "omnira_container_cpu_ratio", {{"engine", "Docker"}, {"container", "idle"}}));
}

struct MetricsTokens : usage_testing::LogFolder {};

TEST_F(MetricsTokens, GivesEachModelsTokensByKind) {
  append(project("p") / "s.jsonl", read(usage_testing::fixtures / "claude/streamed.jsonl"));
  std::map<UsageTool, TokenLedger> ledgers;
  TokenLogs::update(ledgers[UsageTool::claude], UsageTool::claude, {claudeHome()}, dateFromSecondsSinceEpoch(0),
                    DayCalendar::fixed(std::chrono::seconds(0)));
  const auto models = ledgers[UsageTool::claude].byModel();
  ASSERT_FALSE(models.empty());
  MetricsExporter exporter;
  const auto f = exporter.update({.at = t0, .ledgers = &ledgers});
  for (const auto& [model, usage] : models) {
    const auto tokens = [&](const char* kind) {
      return value(f, "omnira_ai_tokens", {{"tool", "claude"}, {"model", model}, {"kind", kind}}).value_or(-1);
    };
    EXPECT_EQ(tokens("input"), static_cast<double>(usage.input)) << model;
    EXPECT_EQ(tokens("output"), static_cast<double>(usage.output));
    EXPECT_EQ(tokens("cache_read"), static_cast<double>(usage.cacheRead));
    EXPECT_EQ(tokens("cache_write"), static_cast<double>(usage.cacheWrite));
    EXPECT_GT(usage.total(), 0);
  }
  EXPECT_NE(renderExposition(f, ExpositionFormat::prometheusText).find("omnira_ai_tokens_total{tool=\"claude\",model=\""),
            std::string::npos);
}

}  // namespace
}  // namespace omnira
