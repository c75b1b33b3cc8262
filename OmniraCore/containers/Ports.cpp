#include "OmniraCore/containers/Ports.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>
#include <map>
#include <unordered_map>

namespace omnira {

namespace {

std::string addressText(const TCPSocket& socket) {
  char text[INET6_ADDRSTRLEN] = {};
  if (!::inet_ntop(socket.ipv6 ? AF_INET6 : AF_INET, socket.localAddress.data(), text, sizeof text)) return "?";
  return text;
}

nlohmann::ordered_json processJSON(const PortProcess& p) {
  nlohmann::ordered_json json;
  json["pid"] = p.pid;
  json["name"] = p.name;
  json["appId"] = p.appID;
  json["app"] = p.appName;
  json["project"] = p.projectPath ? nlohmann::ordered_json(*p.projectPath) : nlohmann::ordered_json();
  return json;
}

}  // namespace

nlohmann::ordered_json Port::toJSON() const {
  nlohmann::ordered_json json;
  json["port"] = port;
  json["addresses"] = addresses;
  json["localOnly"] = localOnly;
  json["process"] = process ? processJSON(*process) : nlohmann::ordered_json();
  auto& connected = json["connectedFrom"] = nlohmann::ordered_json::array();
  for (const auto& p : connectedFrom) connected.push_back(processJSON(p));
  json["remoteConnections"] = remoteConnections;
  if (container)
    json["container"] = {{"id", container->id},
                         {"name", container->name},
                         {"stop", container->stopCommand},
                         {"project", container->projectPath ? nlohmann::ordered_json(*container->projectPath)
                                                            : nlohmann::ordered_json()}};
  else
    json["container"] = nullptr;
  return json;
}

std::vector<Port> Port::of(const std::vector<TCPSocket>& sockets, const ProcessNetwork::Owners& holders,
                           const std::vector<AppGroup>& groups, uint32_t uid, const ContainerSnapshot* containers) {
  std::unordered_map<int32_t, PortProcess> processes;
  for (const auto& group : groups)
    for (const auto& s : group.processes) processes[s.pid] = PortProcess{s.pid, s.name, group.id, group.name, s.projectPath};
  const auto processOf = [&](uint64_t inode) -> std::optional<PortProcess> {
    const auto holder = holders.find(inode);
    if (holder == holders.end()) return std::nullopt;
    const auto found = processes.find(holder->second);
    if (found == processes.end()) return std::nullopt;
    return found->second;
  };

  const auto published = containers ? containers->byPublishedPort() : std::map<uint16_t, const ContainerSample*>();
  std::map<uint16_t, Port> ports;
  for (const auto& socket : sockets) {
    if (!socket.is(TCPSocket::State::listening) || socket.localPort == 0) continue;
    if (socket.uid != uid && !published.contains(socket.localPort)) continue;
    Port& port = ports[socket.localPort];
    port.port = socket.localPort;
    port.addresses.push_back(addressText(socket));
    port.localOnly = port.localOnly && socket.localOnly();
    if (!port.process) port.process = processOf(socket.inode);
  }
  // An engine in a virtual machine forwards its ports without a socket here.
  for (const auto& [number, container] : published) {
    Port& port = ports[number];
    port.port = number;
    port.container = PortContainer{container->id, container->name, container->stopCommand(), container->composeFolder};
  }
  // The server ends of its connections: a peer among the sockets is this machine's.
  std::map<std::tuple<bool, std::array<uint8_t, 16>, uint16_t>, const TCPSocket*> byLocalEnd;
  for (const auto& socket : sockets)
    if (socket.is(TCPSocket::State::established))
      byLocalEnd[{socket.ipv6, socket.localAddress, socket.localPort}] = &socket;
  for (const auto& socket : sockets) {
    if (!socket.is(TCPSocket::State::established)) continue;
    auto port = ports.find(socket.localPort);
    if (port == ports.end()) continue;
    const auto peer = byLocalEnd.find({socket.ipv6, socket.remoteAddress, socket.remotePort});
    if (peer == byLocalEnd.end() || peer->second->remotePort != socket.localPort) {
      ++port->second.remoteConnections;
      continue;
    }
    auto client = processOf(peer->second->inode);
    if (!client) continue;
    auto& connected = port->second.connectedFrom;
    if (std::none_of(connected.begin(), connected.end(), [&](const PortProcess& p) { return p.pid == client->pid; }))
      connected.push_back(std::move(*client));
  }

  std::vector<Port> list;
  list.reserve(ports.size());
  for (auto& [number, port] : ports) {
    std::sort(port.addresses.begin(), port.addresses.end());
    port.addresses.erase(std::unique(port.addresses.begin(), port.addresses.end()), port.addresses.end());
    std::sort(port.connectedFrom.begin(), port.connectedFrom.end(),
              [](const PortProcess& a, const PortProcess& b) { return a.pid < b.pid; });
    list.push_back(std::move(port));
  }
  return list;
}

bool Port::listened(const std::vector<TCPSocket>& sockets, uint16_t port) {
  return std::any_of(sockets.begin(), sockets.end(),
                     [&](const TCPSocket& s) { return s.is(TCPSocket::State::listening) && s.localPort == port; });
}

}  // namespace omnira
