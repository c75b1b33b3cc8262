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
  std::vector<uint16_t> all;
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

std::vector<Project> Project::of(const std::vector<AppGroup>& groups, uint32_t personUID) {
  std::map<std::string, Project> byPath;
  for (const auto& group : groups) {
    for (const auto& s : group.processes) {
      if (!s.projectPath) continue;
      auto [slot, inserted] = byPath.try_emplace(*s.projectPath);
      Project& project = slot->second;
      if (inserted) {
        project.path = *s.projectPath;
        project.name = folderName(project.path);
      }
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
