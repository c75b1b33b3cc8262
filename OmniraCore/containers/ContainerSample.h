#pragma once
// One running container as the container sampler last saw it: who it is (from the
// engine's list) and, when stats were asked for, what it uses. Figures that need two
// stats readings (CPU, network and block rates) are absent after the first one.
// A plain value made on any thread.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

namespace omnira {

struct ContainerSample {
  std::string engine;      // "Docker", "Podman", ...: the engine's row name
  std::string socketPath;  // the engine's API socket
  std::string id;          // 64 hexadecimal digits
  std::string name;        // without the leading "/"
  std::string image;
  std::string status;      // "Up 3 minutes"
  std::vector<uint16_t> publishedPorts;  // lowest first, each once
  std::optional<std::string> composeProject, composeService, composeFolder;

  // From stats; absent when stats were not asked for or the call failed.
  std::optional<uint64_t> memoryInUseBytes;
  std::optional<uint64_t> memoryLimitBytes;
  std::optional<double> cpuPercent;  // of one core, like a process's
  std::optional<double> networkInBytesPerSec, networkOutBytesPerSec;
  std::optional<double> diskReadBytesPerSec, diskWriteBytesPerSec;

  // The short id the engines' own commands show.
  std::string shortID() const { return id.substr(0, 12); }
  // What a person calls it: the Compose service with its project, else its name.
  std::string displayName() const;
  // The engine's command that stops it: "docker stop shop-web-1".
  std::string stopCommand() const;
  // Whether `query` names it: its name, image, Compose service or project, or part of
  // one, ignoring ASCII case; an empty query names every container.
  bool matches(std::string_view query) const;

  nlohmann::ordered_json toJSON() const;
  friend bool operator==(const ContainerSample&, const ContainerSample&) = default;
};

}  // namespace omnira
