#pragma once
// The container engines a person may run, and where each keeps its API socket, in the
// order they are tried: $DOCKER_HOST when it names a unix:// socket; Docker Desktop,
// OrbStack, Colima, Rancher Desktop and Podman's machine in the home folder; Docker
// Desktop for Linux; rootless Docker and rootless Podman in the runtime folder; the
// system's Docker (/var/run/docker.sock) and rootful Podman (/run/podman/podman.sock).
// Two rows that reach one socket (/var/run is /run) are one engine.
//
// Whether an engine is there: on Linux no app bundle says an engine is installed, and a
// socket file exists only while its engine runs or its service manager listens for it.
// So isPresent and mightRun both mean "a socket is at the path"; runs means it answered
// a ping within the 2 s time-out, the most an engine that does not answer may cost.
//
// Any thread; a plain value.

#include <optional>
#include <string>
#include <vector>

#include "OmniraCore/foundation/AppPaths.h"

namespace omnira {

struct ContainerEngine {
  std::string name;
  std::string socketPath;
  std::optional<std::string> appBundle;  // none on Linux

  static std::vector<ContainerEngine> known(const std::string& home, const AppPaths::Environment& environment);

  bool isPresent() const;
  bool mightRun() const { return isPresent(); }
  bool runs() const;
  friend bool operator==(const ContainerEngine&, const ContainerEngine&) = default;
};

}  // namespace omnira
