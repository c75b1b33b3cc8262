#include "cli/Ports.h"

#include <fmt/format.h>

#include <algorithm>

#include "OmniraCore/foundation/JSONText.h"
#include "OmniraCore/foundation/SafeText.h"
#include "cli/Format.h"

namespace omnira::cli {

namespace {

std::string connectedText(const Port& port) {
  std::string text;
  for (const auto& p : port.connectedFrom) text += (text.empty() ? "" : ", ") + fmt::format("{} ({})", terminalText(p.name), p.pid);
  if (port.remoteConnections > 0)
    text += (text.empty() ? "" : ", ") + fmt::format("{} from elsewhere", port.remoteConnections);
  return text.empty() ? "-" : text;
}

}  // namespace

int printPorts(const std::vector<Port>& all, const std::vector<uint16_t>& listenedByOthers, const PortsRequest& request,
               const std::string& home, std::FILE* out) {
  std::vector<const Port*> shown;
  std::vector<uint16_t> free, others;
  for (const auto& port : all) {
    if (request.ports.empty() || std::count(request.ports.begin(), request.ports.end(), port.port) > 0)
      shown.push_back(&port);
  }
  for (const uint16_t asked : request.ports) {
    if (std::any_of(all.begin(), all.end(), [&](const Port& p) { return p.port == asked; })) continue;
    auto& into = std::count(listenedByOthers.begin(), listenedByOthers.end(), asked) > 0 ? others : free;
    if (std::count(into.begin(), into.end(), asked) == 0) into.push_back(asked);
  }

  if (request.json) {
    nlohmann::ordered_json json;
    auto& list = json["ports"] = nlohmann::ordered_json::array();
    for (const auto* port : shown) list.push_back(port->toJSON());
    json["free"] = free;
    json["otherUsers"] = others;
    fmt::print(out, "{}\n", jsonText(json, 2));
    return 0;
  }
  if (shown.empty() && request.ports.empty()) fmt::print(out, "None of your processes listens on a TCP port.\n");
  if (!shown.empty()) {
    fmt::print(out, "{:>5}  {:<16} {:<22} {:<20} {:<24} {}\n", "PORT", "ADDRESS", "PROCESS", "APP", "PROJECT",
               "CONNECTED");
    for (const auto* port : shown) {
      const std::string address = port->localOnly ? "this computer" : "all interfaces";
      const std::string process =
          port->process ? fmt::format("{} ({})", terminalText(port->process->name), port->process->pid)
          : port->container ? "(engine's proxy)"
                            : "(not visible)";
      std::string app = port->process ? terminalText(port->process->appName) : "";
      std::optional<std::string> projectPath = port->process ? port->process->projectPath : std::nullopt;
      if (port->container) {
        // What a person knows it by is the container, not the engine's proxy that holds it.
        app = "container " + terminalText(port->container->name);
        projectPath = port->container->projectPath;
      }
      const std::string project = projectPath ? terminalText(shownPath(*projectPath, home)) : "-";
      fmt::print(out, "{:>5}  {:<16} {:<22} {:<20} {:<24} {}\n", port->port, address, fit(process, 22), fit(app, 20),
                 fit(project, 24), connectedText(*port));
    }
  }
  for (const auto* port : shown)
    if (port->container)
      fmt::print(out, "{} is published by the container {}: stop it with {}\n", port->port,
                 terminalText(port->container->name), terminalText(port->container->stopCommand));
  for (const uint16_t port : free) fmt::print(out, "{} is free.\n", port);
  for (const uint16_t port : others) fmt::print(out, "{} is taken by another user's process.\n", port);
  return 0;
}

}  // namespace omnira::cli
