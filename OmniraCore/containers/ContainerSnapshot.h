#pragma once
// One look at the container engines: the running containers of every engine whose socket
// is present, and each engine's state. A plain value made by the container sampler.

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "OmniraCore/containers/ContainerSample.h"
#include "OmniraCore/sampling/AppGroup.h"

namespace omnira {

struct ContainerSnapshot {
  struct Engine {
    std::string name;
    std::string socketPath;
    bool answered = false;
    std::optional<std::string> failure;  // why it showed no containers
    std::optional<uint64_t> memTotalBytes;  // the memory the engine's machine has
    friend bool operator==(const Engine&, const Engine&) = default;
  };
  std::vector<ContainerSample> containers;  // by engine, then name
  std::vector<Engine> engines;              // every engine whose socket is present
  bool withStats = false;

  // The container with the id (64 hexadecimal digits), if any engine runs it.
  const ContainerSample* find(std::string_view id) const;
  // Published port → the container publishing it.
  std::map<uint16_t, const ContainerSample*> byPublishedPort() const;
  // Names the groups of containers' processes ("container:<engine>:<id>", found from
  // their control groups) after their containers, and gives a Compose container's
  // processes its project folder. Ids stay as they are: the history keys by them.
  void nameGroups(std::vector<AppGroup>& groups) const;
  nlohmann::ordered_json toJSON() const;
  friend bool operator==(const ContainerSnapshot&, const ContainerSnapshot&) = default;
};

}  // namespace omnira
