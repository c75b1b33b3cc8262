// The omnira command. Starts fast and never loads the application's GUI libraries.

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <thread>

#include <unistd.h>

#include "OmniraCore/foundation/JSONText.h"
#include "OmniraCore/foundation/Log.h"
#include "OmniraCore/foundation/AppPaths.h"
#include "OmniraCore/containers/ContainerSampler.h"
#include "OmniraCore/bridge/BridgeSocket.h"
#include "OmniraCore/foundation/Settings.h"
#include "OmniraCore/foundation/SettingsKeys.h"
#include "OmniraCore/platform/linux/ThisMachine.h"
#include "cli/Actions.h"
#include "cli/Ask.h"
#include "cli/CanQuit.h"
#include "cli/Fans.h"
#include "cli/Helper.h"
#include "cli/McpServer.h"
#include "cli/McpSetup.h"
#include "cli/Metrics.h"
#include "cli/Containers.h"
#include "cli/Sensors.h"
#include "cli/History.h"
#include "cli/Insights.h"
#include "cli/Ports.h"
#include "cli/Projects.h"
#include "cli/Run.h"
#include "cli/SettingsCommand.h"
#include "cli/Snapshot.h"
#include "cli/UsageCommandLine.h"

namespace {

// Usage mistakes exit with 2, as shells and scripts expect.
constexpr int kUsageError = 2;

// The engines' lists, asked while the process snapshot takes its second: what names the
// container groups and the ports that containers publish.
std::future<omnira::ContainerSnapshot> listContainers() {
  return std::async(std::launch::async, [] { return omnira::ContainerSampler(omnira::ContainerSampler::forThisUser()).sample(false); });
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Omnira: an activity monitor that thinks in apps and projects, not processes."};
  app.set_version_flag("-V,--version", std::string("omnira ") + OMNIRA_VERSION);
  app.require_subcommand(1);
  bool verbose = false;
  app.add_flag("-v,--verbose", verbose, "Log what happens to standard error");

  auto* snapshot = app.add_subcommand("snapshot", "Show the machine and its apps at a glance");
  bool json = false, all = false;
  size_t top = 15;
  snapshot->add_flag("--json", json, "Print JSON: the system sample and every group with its processes");
  snapshot->add_flag("-a,--all", all, "List every group, not only the top ones");
  snapshot->add_option("-n,--top", top, "How many apps to list")->check(CLI::Range(1, 100000));

  omnira::cli::MetricsRequest metricsRequest;
  auto* metrics = app.add_subcommand("metrics", "Print the figures once in Prometheus' text format, for its textfile collector");
  metrics->add_flag("--openmetrics", metricsRequest.openMetrics, "Print OpenMetrics instead");

  auto* projects = app.add_subcommand("projects", "Developer project folders with something running in them");
  omnira::cli::ProjectsRequest projectsRequest;
  projects->add_option("name", projectsRequest.name, "A project folder's name or path, or part of one");
  projects->add_flag("--json", projectsRequest.json, "Print JSON");

  auto* portsCommand = app.add_subcommand("ports", "The TCP ports your processes listen on, or whether some are free");
  omnira::cli::PortsRequest portsRequest;
  portsCommand->add_option("port", portsRequest.ports, "Ports to ask about")->check(CLI::Range(1, 65535));
  portsCommand->add_flag("--json", portsRequest.json, "Print JSON");

  auto* canQuit = app.add_subcommand("can-quit", "Whether something can be quit without costing you anything");
  omnira::cli::CanQuitRequest canQuitRequest;
  canQuit->add_option("--pid", canQuitRequest.pid, "A process ID")->check(CLI::PositiveNumber);
  canQuit->add_option("--pids", canQuitRequest.pids, "Several process IDs, separated by commas")
      ->delimiter(',')
      ->check(CLI::PositiveNumber);
  canQuit->add_option("--port", canQuitRequest.port, "A TCP port: whatever listens on it")->check(CLI::Range(1, 65535));
  canQuit->add_option("--project", canQuitRequest.project, "A project folder's name or path");
  canQuit->add_option("name", canQuitRequest.name, "An app's or a program's name, like node");
  canQuit->add_flag("--json", canQuitRequest.json, "Print JSON");

  auto* containers = app.add_subcommand("containers", "Running containers with their CPU, memory, network and ports");
  omnira::cli::ContainersRequest containersRequest;
  containers->add_option("name", containersRequest.name, "A container's name, image, service or Compose project, or part of one");
  containers->add_flag("--json", containersRequest.json, "Print JSON");

  auto* sensors = app.add_subcommand("sensors", "Every temperature, fan, power, GPU and NPU reading, with where it comes from");
  bool sensorsJSON = false;
  sensors->add_flag("--json", sensorsJSON, "Print JSON");

  auto* mcp = app.add_subcommand("mcp", "Serve coding agents over the Model Context Protocol (standard input and output)");
  mcp->require_subcommand(0, 1);
  auto* mcpSetup = mcp->add_subcommand("setup", "Add Omnira to the agents' own MCP settings, or take it out");
  omnira::cli::McpSetupRequest setupRequest;
  mcpSetup->add_option("agent", setupRequest.agent, "claude, codex, gemini or all (the default: every installed one)");
  mcpSetup->add_flag("--remove", setupRequest.remove, "Take Omnira out again");

  auto* ask = app.add_subcommand("ask", "Ask the running Omnira one of the agents' questions");
  std::string askTool;
  std::optional<std::string> askArguments;
  ask->add_option("TOOL", askTool, "A tool's name: system_status, top_apps, ports, can_quit, ...")->required();
  ask->add_option("ARGUMENTS", askArguments, "The tool's arguments as a JSON object, like '{\"port\": 3000}'");

  auto* actions = app.add_subcommand("actions", "The agents' quit requests and what came of them");
  omnira::cli::ActionsRequest actionsRequest;
  actions->add_flag("--json", actionsRequest.json, "Print JSON");
  actions->require_subcommand(0, 1);
  auto* actionsClear = actions->add_subcommand("clear", "Empty the log of quit requests");
  actionsClear->add_flag("-y,--yes", actionsRequest.yes, "Do not ask for confirmation");

  auto* run = app.add_subcommand("run", "Run Omnira in the foreground until Ctrl-C or SIGTERM");
  omnira::cli::RunRequest runRequest;
  run->add_flag("--headless", runRequest.headless, "Run without any window (the default without a display)");
  run->add_flag("--watching", runRequest.watching,
                "Sample as if a window showed live figures: every \"refreshSeconds\", processes every tick");
  run->add_flag("--tray-only", runRequest.trayOnly,
                "With a display, start with only the status icon, no window (for a start at login)");

  auto* history = app.add_subcommand("history", "Read the history that a running Omnira records");
  history->require_subcommand(1);
  omnira::cli::HistoryRequest request;
  const std::vector<std::string> periods{"day", "week", "month", "year"};
  auto* historySystem = history->add_subcommand("system", "The machine's averages and peaks, per hour or per day");
  historySystem->add_option("-p,--period", request.period, "day, week, month or year")->check(CLI::IsMember(periods));
  historySystem->add_flag("--json", request.json, "Print JSON");
  auto* historyApps = history->add_subcommand("apps", "The top apps over a span");
  historyApps->add_option("-p,--period", request.period, "day, week, month or year")->check(CLI::IsMember(periods));
  historyApps->add_option("--by", request.by, "cpu, memory, energy, disk or network")
      ->check(CLI::IsMember({"cpu", "memory", "energy", "disk", "network"}));
  historyApps->add_option("-n,--top", request.top, "How many apps to list")->check(CLI::Range(1, 100000));
  historyApps->add_flag("--json", request.json, "Print JSON");
  auto* historyExport = history->add_subcommand("export", "Write the history as CSV files into the Downloads folder");
  historyExport->add_option("--since", request.since, "First day to export, YYYY-MM-DD");
  auto* historyDelete = history->add_subcommand("delete", "Delete history older than the kept span, or all of it");
  historyDelete->add_flag("--older", request.older, "Delete what lies past the span set in the settings");
  historyDelete->add_flag("--all", request.all, "Delete everything; recording starts again");
  historyDelete->add_flag("-y,--yes", request.yes, "Do not ask for confirmation");

  auto* settings = app.add_subcommand("settings", "List, read and change the settings; a running Omnira follows");
  settings->require_subcommand(1);
  omnira::cli::SettingsRequest settingsRequest;
  auto* settingsList = settings->add_subcommand("list", "Every setting with its value and what it does");
  settingsList->add_flag("--json", settingsRequest.json, "Print JSON");
  auto* settingsGet = settings->add_subcommand("get", "Print one setting's value");
  settingsGet->add_option("KEY", settingsRequest.key, "The setting")->required();
  auto* settingsSet = settings->add_subcommand("set", "Change a setting; the value is checked against what it takes");
  settingsSet->add_option("KEY", settingsRequest.key, "The setting")->required();
  settingsSet->add_option("VALUE", settingsRequest.value, "true/false, a number, a choice or JSON")->required();
  auto* settingsUnset = settings->add_subcommand("unset", "Put a setting back to its default");
  settingsUnset->add_option("KEY", settingsRequest.key, "The setting")->required();

  auto* insights = app.add_subcommand("insights", "Worth a Look and the strain; pin and dismiss insights");
  insights->require_subcommand(0, 1);
  omnira::cli::InsightsRequest insightsRequest;
  insights->add_flag("--json", insightsRequest.json, "Print JSON");
  auto* insightsPin = insights->add_subcommand("pin", "Keep an insight in the list until it is unpinned");
  insightsPin->add_option("ID", insightsRequest.id, "The insight's id or its first characters")->required();
  auto* insightsUnpin = insights->add_subcommand("unpin", "Let a pinned insight go like the others");
  insightsUnpin->add_option("ID", insightsRequest.id, "The insight's id or its first characters")->required();
  auto* insightsDismiss = insights->add_subcommand("dismiss", "Remove an insight, or every one that is not pinned");
  insightsDismiss->add_option("ID", insightsRequest.id, "The insight's id or its first characters");
  insightsDismiss->add_flag("--all", insightsRequest.all, "Every insight that is not pinned");

  auto* helperCommand = app.add_subcommand("helper", "The privileged helper: energy, other users' processes, fan control");
  helperCommand->require_subcommand(1);
  omnira::cli::HelperCommandRequest helperRequest;
  auto* helperInstall = helperCommand->add_subcommand("install", "Install and start it for you (asks for an administrator)");
  auto* helperUninstall = helperCommand->add_subcommand("uninstall", "Stop it, put every fan back and remove it");
  auto* helperStatus = helperCommand->add_subcommand("status", "Whether it is installed, running and answering");
  helperStatus->add_option("--socket", helperRequest.socket, "Ask a helper listening elsewhere");

  // The fans; `set` goes through the helper.
  auto* fans = app.add_subcommand("fans", "The fans with their speeds, ranges and modes, and setting their speed");
  fans->require_subcommand(0, 1);
  bool fansJSON = false;
  fans->add_flag("--json", fansJSON, "Print JSON");
  omnira::cli::FanSetRequest fanSetRequest;
  auto* fansSet = fans->add_subcommand(
      "set", "Hold a fan at a speed until Ctrl-C, or give it back with auto (through the helper)");
  fansSet->add_option("INDEX", fanSetRequest.index, "The fan's number, as `omnira fans` lists it")
      ->required()
      ->check(CLI::NonNegativeNumber);
  fansSet->add_option("SPEED", fanSetRequest.speed, "A speed in rpm (kept within the fan's range), or auto")->required();
  fansSet->add_option("--socket", fanSetRequest.socket, "Use a helper listening elsewhere");

  omnira::cli::UsageCommandLine usage(app);  // tokens, limits

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForVersion& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    fmt::print(stderr, "omnira: {}\nRun 'omnira --help' for the commands and options.\n", e.what());
    return kUsageError;
  }

  omnira::setUpStandardErrorLogging("omnira", verbose ? spdlog::level::debug : spdlog::level::warn);

  if (run->parsed()) return omnira::cli::runApplication(runRequest, stderr);

  if (helperCommand->parsed()) {
    using Command = omnira::cli::HelperCommandRequest::Command;
    helperRequest.command = helperInstall->parsed()     ? Command::install
                            : helperUninstall->parsed() ? Command::uninstall
                                                        : Command::status;
    return omnira::cli::runHelper(helperRequest, stdout, stderr);
  }
  if (fansSet->parsed()) return omnira::cli::runFanSet(fanSetRequest, stdout, stderr);

  if (actions->parsed()) {
    auto paths = omnira::AppPaths::fromProcessEnvironment();
    if (!paths) {
      fmt::print(stderr, "omnira: {}\n", paths.error().message);
      return 1;
    }
    if (auto safe = paths->prepareFolders(); !safe) {
      fmt::print(stderr, "omnira: {}\n", safe.error().message);
      return 1;
    }
    actionsRequest.clear = actionsClear->parsed();
    return omnira::cli::runActions(actionsRequest, *paths, stdout, stderr);
  }

  if (mcp->parsed() || ask->parsed()) {
    auto paths = omnira::AppPaths::fromProcessEnvironment();
    if (!paths) {
      fmt::print(stderr, "omnira: {}\n", paths.error().message);
      return 1;
    }
    if (ask->parsed()) return omnira::cli::runAsk(askTool, askArguments, *paths, stdout, stderr);
    if (mcpSetup->parsed()) {
      std::error_code error;
      const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
      const auto environment = [](const std::string& name) -> std::optional<std::string> {
        const char* value = std::getenv(name.c_str());
        return value ? std::optional<std::string>(value) : std::nullopt;
      };
      return omnira::cli::runMcpSetup(setupRequest, error ? std::string(argv[0]) : self.string(), environment, stdout,
                                      stderr);
    }
    const std::string socket = omnira::BridgeSocket::path(*paths).string();
    omnira::cli::McpServer server({omnira::platform::systemName(),
                                   [settingsFile = paths->settingsFile()] {
                                     return omnira::Settings::load(settingsFile).boolean(
                                         omnira::SettingsKeys::bridgeActionsEnabled);
                                   },
                                   [socket](const nlohmann::ordered_json& request, std::chrono::seconds timeout) {
                                     return omnira::BridgeSocket::ask(request, socket, timeout);
                                   }});
    return server.run(stdin, stdout);
  }
  if (auto status = usage.run()) return *status;

  if (history->parsed()) {
    using Command = omnira::cli::HistoryRequest::Command;
    request.command = historyApps->parsed()     ? Command::apps
                      : historyExport->parsed() ? Command::exportFiles
                      : historyDelete->parsed() ? Command::remove
                                                : Command::system;
    auto paths = omnira::AppPaths::fromProcessEnvironment();
    if (!paths) {
      fmt::print(stderr, "omnira: {}\n", paths.error().message);
      return 1;
    }
    if (auto safe = paths->prepareFolders(); !safe) {
      fmt::print(stderr, "omnira: {}\n", safe.error().message);
      return 1;
    }
    return omnira::cli::runHistory(request, *paths, std::chrono::system_clock::now(), stdout, stderr);
  }

  if (settings->parsed()) {
    using Command = omnira::cli::SettingsRequest::Command;
    settingsRequest.command = settingsGet->parsed()     ? Command::get
                              : settingsSet->parsed()   ? Command::set
                              : settingsUnset->parsed() ? Command::unset
                                                        : Command::list;
    auto paths = omnira::AppPaths::fromProcessEnvironment();
    if (!paths) {
      fmt::print(stderr, "omnira: {}\n", paths.error().message);
      return 1;
    }
    if (auto safe = paths->prepareFolders(); !safe) {
      fmt::print(stderr, "omnira: {}\n", safe.error().message);
      return 1;
    }
    return omnira::cli::runSettings(settingsRequest, *paths, stdout, stderr);
  }

  if (insights->parsed()) {
    using Command = omnira::cli::InsightsRequest::Command;
    insightsRequest.command = insightsPin->parsed()       ? Command::pin
                              : insightsUnpin->parsed()   ? Command::unpin
                              : insightsDismiss->parsed() ? Command::dismiss
                                                          : Command::list;
    auto paths = omnira::AppPaths::fromProcessEnvironment();
    if (!paths) {
      fmt::print(stderr, "omnira: {}\n", paths.error().message);
      return 1;
    }
    if (auto safe = paths->prepareFolders(); !safe) {
      fmt::print(stderr, "omnira: {}\n", safe.error().message);
      return 1;
    }
    return omnira::cli::runInsights(insightsRequest, *paths, std::chrono::system_clock::now(), stdout, stderr);
  }

  if (sensors->parsed()) {
    const auto reading = omnira::cli::readSensors(/*withPeripherals=*/true);
    bool fahrenheit = false;
    if (auto paths = omnira::AppPaths::fromProcessEnvironment()) {
      if (auto settings = omnira::Settings::read(paths->settingsFile()))
        fahrenheit = settings->string(omnira::SettingsKeys::temperatureUnit) == "fahrenheit";
    }
    fmt::print("{}", sensorsJSON ? omnira::cli::sensorsJSON(reading.sample, reading.peripherals)
                                 : omnira::cli::sensorsText(reading.sample, reading.peripherals, fahrenheit));
    return 0;
  }

  if (fans->parsed() && !fansSet->parsed()) {
    const auto reading = omnira::cli::readSensors(/*withPeripherals=*/false);
    fmt::print("{}", fansJSON ? omnira::cli::fansJSON(reading.sample) : omnira::cli::fansText(reading.sample));
    return 0;
  }

  if (containers->parsed()) {
    // Two readings a second apart, as `docker stats` takes them: CPU and rates are deltas.
    omnira::ContainerSampler sampler(omnira::ContainerSampler::forThisUser());
    const auto started = std::chrono::steady_clock::now();
    auto first = sampler.sample(/*withStats=*/true);
    if (!first.containers.empty()) std::this_thread::sleep_until(started + std::chrono::seconds(1));
    const auto second = first.containers.empty() ? std::move(first) : sampler.sample(/*withStats=*/true);
    const char* home = std::getenv("HOME");
    return omnira::cli::printContainers(second, containersRequest, home ? home : "", stdout, stderr);
  }

  if (projects->parsed()) {
    auto engines = listContainers();
    auto snap = omnira::cli::takeSnapshot(/*projects=*/true);
    const auto listed = engines.get();
    listed.nameGroups(snap.groups);
    const char* home = std::getenv("HOME");
    return omnira::cli::printProjects(omnira::Project::of(snap.groups, ::getuid(), &listed), projectsRequest,
                                      home ? home : "", stdout, stderr);
  }

  if (canQuit->parsed()) {
    if (const auto mistake = canQuitRequest.mistake()) {
      fmt::print(stderr, "omnira: {}\n", *mistake);
      return kUsageError;
    }
    auto engines = listContainers();
    auto snap = omnira::cli::takeSnapshot(/*projects=*/true);
    omnira::QuitCheck::Context context;
    context.containers = engines.get();
    context.containers.nameGroups(snap.groups);
    context.groups = snap.groups;
    context.personUID = ::geteuid();
    context.ports = omnira::Port::of(snap.sockets, snap.socketHolders, snap.groups, context.personUID, &context.containers);
    if (canQuitRequest.port) canQuitRequest.portListened = omnira::Port::listened(snap.sockets, *canQuitRequest.port);
    context.omniraPIDs = {::getpid()};
    if (auto paths = omnira::AppPaths::fromProcessEnvironment())
      if (auto running = omnira::cli::runningOmnira(*paths)) context.omniraPIDs.push_back(*running);
    context.askerChain = omnira::QuitCheck::ancestors(snap.groups, ::getppid());
    for (const auto& group : snap.groups)
      if (group.kind == omnira::GroupKind::system) context.systemName = group.name;
    return omnira::cli::printCanQuit(omnira::QuitCheck(std::move(context)), canQuitRequest, stdout, stderr);
  }

  if (portsCommand->parsed()) {
    auto engines = listContainers();
    auto snap = omnira::cli::takeSnapshot(/*projects=*/true);
    const auto listed = engines.get();
    listed.nameGroups(snap.groups);
    std::vector<uint16_t> others;
    for (const uint16_t port : portsRequest.ports)
      if (omnira::Port::listened(snap.sockets, port)) others.push_back(port);
    const char* home = std::getenv("HOME");
    return omnira::cli::printPorts(omnira::Port::of(snap.sockets, snap.socketHolders, snap.groups, ::geteuid(), &listed),
                                   others, portsRequest, home ? home : "", stdout);
  }

  if (metrics->parsed()) return omnira::cli::runMetrics(metricsRequest, stdout, stderr);

  if (snapshot->parsed()) {
    auto snap = omnira::cli::takeSnapshot();
    // Only a machine that runs containers pays for asking the engines their names.
    if (std::any_of(snap.groups.begin(), snap.groups.end(), [](const auto& g) { return g.id.starts_with("container:"); }))
      listContainers().get().nameGroups(snap.groups);
    if (auto paths = omnira::AppPaths::fromProcessEnvironment())
      snap.strain = omnira::cli::sampleStrain(snap.system, *paths, omnira::Settings::load(paths->settingsFile()),
                                              snap.system.timestamp);
    if (json) {
      fmt::print("{}\n", omnira::jsonText(omnira::cli::snapshotJSON(snap), 2));
    } else {
      fmt::print("{}", omnira::cli::snapshotText(snap, all ? snap.groups.size() : top));
    }
  }
  return 0;
}
