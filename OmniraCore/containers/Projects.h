#pragma once
// Developer projects with something running in them, from one tick's app groups: a
// project is a folder that processes work in (their projectPath, found from their
// working directories by the process sampler), with those processes, their apps, the
// ports they listen on and their summed figures. A plain value made on any thread.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "OmniraCore/containers/ContainerSnapshot.h"
#include "OmniraCore/sampling/AppGroup.h"

namespace omnira {

struct ProjectProcess {
  int32_t pid = 0;
  std::string name;
  std::string appID;
  std::string appName;
  double cpuPercent = 0;
  uint64_t memoryBytes = 0;
  std::vector<uint16_t> ports;
  // A process of the person that listens on a TCP port in a project: a dev server.
  bool devServer = false;
  friend bool operator==(const ProjectProcess&, const ProjectProcess&) = default;
};

struct Project {
  std::string path;
  std::string name;  // the folder's own name
  std::vector<ProjectProcess> processes;  // by pid
  // Containers whose Compose folder it is, by name: "shop-web-1".
  std::vector<std::string> containers;
  std::vector<uint16_t> containerPorts;  // what those containers publish

  double cpuPercent() const;
  uint64_t memoryBytes() const;
  std::vector<uint16_t> ports() const;  // its processes' and containers', lowest first, each once
  size_t devServerCount() const;

  nlohmann::ordered_json toJSON() const;
  friend bool operator==(const Project&, const Project&) = default;

  // Projects of the groups' processes and of the Compose containers, by name then path.
  // `personUID` owns dev servers.
  static std::vector<Project> of(const std::vector<AppGroup>& groups, uint32_t personUID,
                                 const ContainerSnapshot* containers = nullptr);
  // Whether `query` names this project: its name or path, or part of either, ignoring case.
  bool matches(std::string_view query) const;
};

}  // namespace omnira
