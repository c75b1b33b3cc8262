#include "OmniraCore/containers/ServerWatcher.h"

#include <unordered_map>

namespace omnira {

std::vector<IdleServer> ServerWatcher::ingest(const std::vector<Port>& ports, const std::vector<AppGroup>& groups,
                                              Date now) {
  std::unordered_map<int32_t, const ProcessSample*> samples;
  for (const auto& group : groups)
    for (const auto& s : group.processes) samples[s.pid] = &s;

  struct Server {
    const ProcessSample* sample = nullptr;
    uint16_t port = 0;  // its lowest
    bool used = false;
    std::string name;
  };
  std::map<int32_t, Server> servers;
  for (const auto& port : ports) {
    if (!port.process || !port.process->projectPath) continue;
    const auto found = samples.find(port.process->pid);
    if (found == samples.end()) continue;
    Server& server = servers[port.process->pid];
    if (!server.sample) {
      server.sample = found->second;
      server.port = port.port;
      const auto& path = *port.process->projectPath;
      server.name = path.substr(path.find_last_of('/') + 1);
    }
    server.used = server.used || !port.connectedFrom.empty() || port.remoteConnections > 0;
  }

  std::map<std::pair<int32_t, Date>, Watched> still;
  std::vector<IdleServer> idle;
  for (const auto& [pid, server] : servers) {
    const auto key = std::pair(pid, server.sample->startedAt);
    Watched watched = watched_.contains(key) ? watched_.at(key) : Watched{now};
    if (server.used || server.sample->cpuPercent > kBusyCPUPercent) watched.lastActive = now;
    if (now - watched.lastActive >= kIdleAfter)
      idle.push_back(IdleServer{pid, server.name, server.sample->memoryBytes, server.port});
    still.emplace(key, watched);
  }
  watched_ = std::move(still);
  return idle;
}

}  // namespace omnira
