#pragma once
// The replies of a Docker-compatible engine API that the container figures need: the
// running containers, the engine's memory, and one stats sample of a container.
// Decoding tolerates missing keys, extra keys and null where engines send it; a body
// that is no JSON, or not the shape asked for, fails with a short text.
//
// Any thread; no state. Every call is one UnixHTTP request with a 2 s time-out.

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OmniraCore/containers/UnixHTTP.h"
#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/foundation/Result.h"

namespace omnira {

class DockerAPI {
 public:
  using Failure = UnixHTTP::Failure;
  static constexpr std::chrono::milliseconds kTimeout{2000};

  struct Summary {
    struct Port {
      std::optional<uint16_t> publicPort;  // published on this computer
      uint16_t privatePort = 0;
      std::string type;  // "tcp", "udp"
      friend bool operator==(const Port&, const Port&) = default;
    };
    std::string id;
    std::string name;  // the first name, less its leading "/"
    std::string image;
    std::string status;  // "Up 3 minutes"
    std::map<std::string, std::string> labels;
    std::vector<Port> ports;

    std::optional<std::string> composeProject() const { return label("com.docker.compose.project"); }
    std::optional<std::string> composeService() const { return label("com.docker.compose.service"); }
    std::optional<std::string> composeWorkingDir() const { return label("com.docker.compose.project.working_dir"); }
    std::vector<uint16_t> publishedPorts() const;  // lowest first, each once
    std::optional<std::string> label(const std::string& key) const;
  };

  struct Info {
    uint64_t memTotal = 0;  // the memory the engine's machine has
  };

  struct Stats {
    struct CPU {
      uint64_t totalUsage = 0;                 // ns of CPU the container used
      std::optional<uint64_t> systemUsage;     // ns of the host
      std::optional<uint32_t> onlineCPUs;
    };
    struct Memory {
      uint64_t usage = 0;
      uint64_t limit = 0;
      std::optional<uint64_t> inactiveFile;  // "inactive_file", else "total_inactive_file"
      // In use: the usage less the inactive file cache, never below 0.
      uint64_t inUse() const;
    };
    struct BlockIO {
      uint64_t readBytes = 0;
      uint64_t writeBytes = 0;
    };
    std::optional<Date> read;  // when the engine took it; absent when it gives no time
    CPU cpu;
    CPU previousCPU;  // "precpu_stats": the engine's own previous sample, when it keeps one
    Memory memory;
    uint64_t networkReceived = 0;
    uint64_t networkSent = 0;
    BlockIO blockIO;
  };

  static Result<std::vector<Summary>, Failure> decodeList(std::string_view body);
  static Result<Info, Failure> decodeInfo(std::string_view body);
  static Result<Stats, Failure> decodeStats(std::string_view body);

  static Result<std::vector<Summary>, Failure> list(const std::string& socketPath,
                                                    std::chrono::milliseconds timeout = kTimeout);
  static Result<Info, Failure> info(const std::string& socketPath, std::chrono::milliseconds timeout = kTimeout);
  static Result<Stats, Failure> stats(const std::string& socketPath, const std::string& id,
                                      std::chrono::milliseconds timeout = kTimeout);
};

}  // namespace omnira
