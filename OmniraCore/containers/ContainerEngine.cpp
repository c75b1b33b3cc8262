#include "OmniraCore/containers/ContainerEngine.h"

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <set>

#include "OmniraCore/containers/DockerAPI.h"
#include "OmniraCore/containers/UnixHTTP.h"

namespace omnira {

std::vector<ContainerEngine> ContainerEngine::known(const std::string& home, const AppPaths::Environment& environment) {
  std::vector<ContainerEngine> rows;
  if (auto host = environment("DOCKER_HOST"); host && host->starts_with("unix://") && host->size() > 7)
    rows.push_back({"Docker", host->substr(7), std::nullopt});
  rows.push_back({"Docker", home + "/.docker/run/docker.sock", "Docker.app"});
  rows.push_back({"OrbStack", home + "/.orbstack/run/docker.sock", "OrbStack.app"});
  rows.push_back({"Colima", home + "/.colima/default/docker.sock", std::nullopt});
  rows.push_back({"Rancher Desktop", home + "/.rd/docker.sock", "Rancher Desktop.app"});
  rows.push_back({"Podman", home + "/.local/share/containers/podman/machine/podman.sock", "Podman Desktop.app"});
  rows.push_back({"Docker Desktop", home + "/.docker/desktop/docker.sock", std::nullopt});
  if (auto runtime = environment("XDG_RUNTIME_DIR"); runtime && !runtime->empty()) {
    rows.push_back({"Docker", *runtime + "/docker.sock", std::nullopt});
    rows.push_back({"Podman", *runtime + "/podman/podman.sock", std::nullopt});
  }
  rows.push_back({"Docker", "/var/run/docker.sock", std::nullopt});
  rows.push_back({"Podman", "/run/podman/podman.sock", std::nullopt});

  std::vector<ContainerEngine> engines;
  std::set<std::string> seen;
  for (auto& row : rows) {
    std::error_code error;
    const auto real = std::filesystem::weakly_canonical(row.socketPath, error);
    if (!seen.insert(error ? row.socketPath : real.string()).second) continue;
    engines.push_back(std::move(row));
  }
  return engines;
}

bool ContainerEngine::isPresent() const {
  struct stat info {};
  return ::stat(socketPath.c_str(), &info) == 0 && S_ISSOCK(info.st_mode);
}

bool ContainerEngine::runs() const {
  return isPresent() && UnixHTTP::get("/_ping", socketPath, DockerAPI::kTimeout).ok();
}

}  // namespace omnira
