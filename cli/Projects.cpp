#include "cli/Projects.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "OmniraCore/foundation/JSONText.h"
#include "OmniraCore/foundation/SafeText.h"
#include "cli/Format.h"

namespace omnira::cli {

namespace {

constexpr size_t kProcessesShown = 8;

std::string portList(const std::vector<uint16_t>& ports) {
  std::string text;
  for (const auto port : ports) text += (text.empty() ? ":" : ", :") + std::to_string(port);
  return text;
}

}  // namespace

int printProjects(const std::vector<Project>& projects, const ProjectsRequest& request, const std::string& home,
                  std::FILE* out, std::FILE* err) {
  std::vector<const Project*> shown;
  for (const auto& project : projects)
    if (project.matches(request.name)) shown.push_back(&project);
  if (shown.empty() && !request.name.empty()) {
    fmt::print(err, "No project with something running in it matches \"{}\".\n", terminalText(request.name));
    return 1;
  }
  if (request.json) {
    auto list = nlohmann::ordered_json::array();
    for (const auto* project : shown) list.push_back(project->toJSON());
    fmt::print(out, "{}\n", jsonText(nlohmann::ordered_json{{"projects", std::move(list)}}, 2));
    return 0;
  }
  if (shown.empty()) {
    fmt::print(out, "Nothing is running in a project folder.\n");
    return 0;
  }
  for (const auto* project : shown) {
    const auto ports = project->ports();
    fmt::print(out, "{}  {}\n", terminalText(project->name), terminalText(shownPath(project->path, home)));
    fmt::print(out, "  {} process{} · CPU {:.1f}% · {}{}{}\n", project->processes.size(),
               project->processes.size() == 1 ? "" : "es", project->cpuPercent(), bytes(project->memoryBytes()),
               ports.empty() ? "" : " · ports " + portList(ports),
               project->devServerCount() > 0 ? fmt::format(" · {} dev server{}", project->devServerCount(),
                                                           project->devServerCount() == 1 ? "" : "s")
                                             : "");
    // Dev servers first, then the heaviest; a folder with hundreds of processes stays readable.
    std::vector<const ProjectProcess*> order;
    for (const auto& p : project->processes) order.push_back(&p);
    std::stable_sort(order.begin(), order.end(), [](const ProjectProcess* a, const ProjectProcess* b) {
      return std::pair(a->devServer, a->memoryBytes) > std::pair(b->devServer, b->memoryBytes);
    });
    const size_t listed = std::min(order.size(), kProcessesShown);
    for (size_t i = 0; i < listed; ++i) {
      const auto& p = *order[i];
      fmt::print(out, "    {:>7}  {:<20} {:<24} {:>6.1f}% {:>10}  {}\n", p.pid, fit(terminalText(p.name), 20),
                 fit(terminalText(p.appName), 24), p.cpuPercent, bytes(p.memoryBytes), portList(p.ports));
    }
    if (listed < order.size())
      fmt::print(out, "    … and {} more (omnira projects {} --json)\n", order.size() - listed, terminalText(project->name));
    fmt::print(out, "\n");
  }
  return 0;
}

}  // namespace omnira::cli
