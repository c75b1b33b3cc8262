#include "OmniraCore/foundation/Parse.h"
#include "OmniraCore/containers/Projects.h"

#include <algorithm>
#include <cctype>
#include <map>

namespace omnira {

namespace {


std::string folderName(const std::string& path) {
  const auto slash = path.find_last_of('/');
  return slash == std::string::npos || slash + 1 == path.size() ? path : path.substr(slash + 1);
}

}  // namespace

double Project::cpuPercent() const {
  double total = 0;
  for (const auto& p : processes) total += p.cpuPercent;
  return total;
}

uint64_t Project::memoryBytes() const {
  uint64_t total = 0;
  for (const auto& p : processes) total += p.memoryBytes;
  return total;
}

std::vector<uint16_t> Project::ports() const {
  std::vector<uint16_t> all = containerPorts;
  for (const auto& p : processes) all.insert(all.end(), p.ports.begin(), p.ports.end());
  std::sort(all.begin(), all.end());
  all.erase(std::unique(all.begin(), all.end()), all.end());
  return all;
}

size_t Project::devServerCount() const {
  return static_cast<size_t>(std::count_if(processes.begin(), processes.end(), [](const auto& p) { return p.devServer; }));
}

nlohmann::ordered_json Project::toJSON() const {
  nlohmann::ordered_json json;
  json["path"] = path;
  json["name"] = name;
  json["cpuPercent"] = cpuPercent();
  json["memoryBytes"] = memoryBytes();
  json["ports"] = ports();
  json["devServers"] = devServerCount();
  json["containers"] = containers;
  auto& list = json["processes"] = nlohmann::ordered_json::array();
  for (const auto& p : processes) {
    nlohmann::ordered_json process;
    process["pid"] = p.pid;
    process["name"] = p.name;
    process["appId"] = p.appID;
    process["app"] = p.appName;
    process["cpuPercent"] = p.cpuPercent;
    process["memoryBytes"] = p.memoryBytes;
    process["ports"] = p.ports;
    process["devServer"] = p.devServer;
    list.push_back(std::move(process));
  }
  return json;
}

std::vector<Project> Project::of(const std::vector<AppGroup>& groups, uint32_t personUID,
                                 const ContainerSnapshot* containers) {
  std::map<std::string, Project> byPath;
  const auto projectAt = [&](const std::string& path) -> Project& {
    auto [slot, inserted] = byPath.try_emplace(path);
    if (inserted) {
      slot->second.path = path;
      slot->second.name = folderName(path);
    }
    return slot->second;
  };
  if (containers)
    for (const auto& c : containers->containers)
      if (c.composeFolder) {
        Project& project = projectAt(*c.composeFolder);
        project.containers.push_back(c.name);
        project.containerPorts.insert(project.containerPorts.end(), c.publishedPorts.begin(), c.publishedPorts.end());
      }
  for (const auto& group : groups) {
    for (const auto& s : group.processes) {
      if (!s.projectPath) continue;
      Project& project = projectAt(*s.projectPath);
      project.processes.push_back(ProjectProcess{s.pid, s.name, group.id, group.name, s.cpuPercent, s.memoryBytes,
                                                 s.listeningPorts, !s.listeningPorts.empty() && s.uid == personUID});
    }
  }
  std::vector<Project> projects;
  projects.reserve(byPath.size());
  for (auto& [path, project] : byPath) {
    std::sort(project.processes.begin(), project.processes.end(),
              [](const auto& a, const auto& b) { return a.pid < b.pid; });
    projects.push_back(std::move(project));
  }
  std::stable_sort(projects.begin(), projects.end(),
                   [](const Project& a, const Project& b) { return lowered(a.name) < lowered(b.name); });
  return projects;
}

bool Project::matches(std::string_view query) const {
  if (query.empty()) return true;
  const auto wanted = lowered(query);
  return lowered(name).find(wanted) != std::string::npos || lowered(path).find(wanted) != std::string::npos;
}

}  // namespace omnira
