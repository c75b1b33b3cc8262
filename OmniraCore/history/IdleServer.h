#pragma once
// A dev server that listens on a port but has had nothing to do for a while. Found by the
// project scanner; here is only what the insight engine reads.

#include <cstdint>
#include <string>

namespace omnira {

struct IdleServer {
  int32_t pid = 0;
  std::string name;  // as the person knows it: the project or the command
  uint64_t memoryBytes = 0;
  uint16_t port = 0;
  friend bool operator==(const IdleServer&, const IdleServer&) = default;
};

}  // namespace omnira
