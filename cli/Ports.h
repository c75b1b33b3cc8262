#pragma once
// `omnira ports [PORT...] [--json]`: what this person's processes listen on, and whether
// the ports asked about are free.

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "OmniraCore/containers/Ports.h"

namespace omnira::cli {

struct PortsRequest {
  std::vector<uint16_t> ports;  // empty: every port
  bool json = false;
};

// `listenedByOthers`: ports asked about that another user's process holds. Returns 0.
int printPorts(const std::vector<Port>& ports, const std::vector<uint16_t>& listenedByOthers,
               const PortsRequest& request, const std::string& home, std::FILE* out);

}  // namespace omnira::cli
