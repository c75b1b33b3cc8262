#include "OmniraCore/containers/ContainerSnapshot.h"

namespace omnira {

const ContainerSample* ContainerSnapshot::find(std::string_view id) const {
  for (const auto& c : containers)
    if (c.id == id) return &c;
  return nullptr;
}

std::map<uint16_t, const ContainerSample*> ContainerSnapshot::byPublishedPort() const {
  std::map<uint16_t, const ContainerSample*> ports;
  for (const auto& c : containers)
    for (const uint16_t port : c.publishedPorts) ports.emplace(port, &c);
  return ports;
}

void ContainerSnapshot::nameGroups(std::vector<AppGroup>& groups) const {
  for (auto& group : groups) {
    if (!group.id.starts_with("container:")) continue;
    const auto colon = group.id.rfind(':');
    const ContainerSample* container = find(std::string_view(group.id).substr(colon + 1));
    if (!container) continue;
    group.name = container->displayName();
    if (!container->composeFolder) continue;
    for (auto& process : group.processes) process.projectPath = container->composeFolder;
  }
}

nlohmann::ordered_json ContainerSnapshot::toJSON() const {
  nlohmann::ordered_json json;
  auto& list = json["containers"] = nlohmann::ordered_json::array();
  for (const auto& c : containers) list.push_back(c.toJSON());
  auto& engineList = json["engines"] = nlohmann::ordered_json::array();
  for (const auto& e : engines) {
    nlohmann::ordered_json row{{"name", e.name}, {"socket", e.socketPath}, {"answered", e.answered}};
    row["failure"] = e.failure ? nlohmann::ordered_json(*e.failure) : nlohmann::ordered_json();
    row["memTotalBytes"] = e.memTotalBytes ? nlohmann::ordered_json(*e.memTotalBytes) : nlohmann::ordered_json();
    engineList.push_back(std::move(row));
  }
  return json;
}

}  // namespace omnira
