#pragma once
// The TCP ports this person's processes listen on, from one sample's socket list and
// the holders the process sampler found: what listens, where, for which app and
// project, and which of this machine's processes are connected to it right now.
// A plain value made on any thread.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "OmniraCore/containers/ContainerSnapshot.h"
#include "OmniraCore/sampling/AppGroup.h"
#include "OmniraCore/sampling/ProcessNetwork.h"
#include "OmniraCore/sampling/TCPSocket.h"

namespace omnira {

struct PortProcess {
  int32_t pid = 0;
  std::string name;
  std::string appID;
  std::string appName;
  std::optional<std::string> projectPath;
  friend bool operator==(const PortProcess&, const PortProcess&) = default;
};

struct PortContainer {
  std::string id;
  std::string name;
  std::string stopCommand;  // "docker stop shop-web-1"
  std::optional<std::string> projectPath;  // its Compose folder
  friend bool operator==(const PortContainer&, const PortContainer&) = default;
};

struct Port {
  uint16_t port = 0;
  std::vector<std::string> addresses;  // "127.0.0.1", "::1", "0.0.0.0", "::"
  bool localOnly = true;               // reachable from this machine only
  std::optional<PortProcess> process;  // absent while its holder is not known
  std::vector<PortProcess> connectedFrom;  // this machine's processes connected now, each once
  size_t remoteConnections = 0;            // connected from elsewhere
  std::optional<PortContainer> container;  // the container that publishes it

  nlohmann::ordered_json toJSON() const;
  friend bool operator==(const Port&, const Port&) = default;

  // The ports that sockets of `uid` listen on, lowest first; ports of other users'
  // processes are left out, except those a container of `containers` publishes: an
  // engine's proxy holds them for whoever runs the container.
  static std::vector<Port> of(const std::vector<TCPSocket>& sockets, const ProcessNetwork::Owners& holders,
                              const std::vector<AppGroup>& groups, uint32_t uid,
                              const ContainerSnapshot* containers = nullptr);
  // Whether any process, of any user, listens on `port`.
  static bool listened(const std::vector<TCPSocket>& sockets, uint16_t port);
};

}  // namespace omnira
