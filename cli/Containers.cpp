#include "cli/Containers.h"

#include <fmt/format.h>

#include <algorithm>
#include <vector>

#include "OmniraCore/foundation/JSONText.h"
#include "OmniraCore/foundation/SafeText.h"
#include "cli/Format.h"

namespace omnira::cli {

namespace {

std::string orDash(const std::optional<double>& bytesPerSecond) { return bytesPerSecond ? rate(*bytesPerSecond) : "-"; }

std::string memoryText(const ContainerSample& c) {
  if (!c.memoryInUseBytes) return "-";
  return c.memoryLimitBytes ? bytes(*c.memoryInUseBytes) + " / " + bytes(*c.memoryLimitBytes) : bytes(*c.memoryInUseBytes);
}

std::string portsText(const ContainerSample& c) {
  std::string text;
  for (const auto port : c.publishedPorts) text += (text.empty() ? ":" : ", :") + std::to_string(port);
  return text.empty() ? "-" : text;
}

// Why an engine showed nothing, with what a person can do about the usual cause.
std::string engineFailure(const ContainerSnapshot::Engine& engine) {
  std::string line = fmt::format("{} ({}) did not answer: {}.", engine.name, engine.socketPath, engine.failure.value_or("?"));
  if (engine.failure && engine.failure->find("Permission denied") != std::string::npos)
    line += " Your user may not use it: join the \"docker\" group, or run a rootless engine.";
  return line;
}

}  // namespace

int printContainers(const ContainerSnapshot& snapshot, const ContainersRequest& request, const std::string& home,
                    std::FILE* out, std::FILE* err) {
  std::vector<const ContainerSample*> shown;
  for (const auto& c : snapshot.containers)
    if (c.matches(request.name)) shown.push_back(&c);

  if (request.json) {
    auto json = snapshot.toJSON();
    auto& list = json["containers"] = nlohmann::ordered_json::array();
    for (const auto* c : shown) list.push_back(c->toJSON());
    fmt::print(out, "{}\n", jsonText(json, 2));
  } else if (!shown.empty()) {
    fmt::print(out, "{:<24} {:<20} {:>7} {:>21} {:>10} {:>10}  {:<14} {}\n", "NAME", "IMAGE", "CPU", "MEMORY", "NET IN",
               "NET OUT", "PORTS", "PROJECT");
    for (const auto* c : shown) {
      std::string project = c->composeFolder ? terminalText(shownPath(*c->composeFolder, home)) : "-";
      if (c->composeService) project += " (" + terminalText(*c->composeService) + ")";
      fmt::print(out, "{:<24} {:<20} {:>7} {:>21} {:>10} {:>10}  {:<14} {}\n", fit(terminalText(c->name), 24),
                 fit(terminalText(c->image), 20), c->cpuPercent ? fmt::format("{:.1f}%", *c->cpuPercent) : "-",
                 memoryText(*c), orDash(c->networkInBytesPerSec), orDash(c->networkOutBytesPerSec), fit(portsText(*c), 14),
                 project);
    }
  }

  const bool anyAnswered = std::any_of(snapshot.engines.begin(), snapshot.engines.end(),
                                       [](const auto& e) { return e.answered; });
  if (!request.json) {
    if (snapshot.engines.empty())
      fmt::print(out, "No container engine runs on this computer (no Docker or Podman socket was found).\n");
    else if (anyAnswered && snapshot.containers.empty())
      fmt::print(out, "No containers are running.\n");
    for (const auto& engine : snapshot.engines)
      if (!engine.answered) fmt::print(err, "{}\n", terminalText(engineFailure(engine)));
  }
  if (shown.empty() && !request.name.empty()) {
    if (!snapshot.containers.empty()) fmt::print(err, "No running container matches \"{}\".\n", terminalText(request.name));
    return 1;
  }
  return 0;
}

}  // namespace omnira::cli
