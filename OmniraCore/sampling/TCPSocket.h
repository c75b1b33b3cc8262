#pragma once
// One TCP socket of the machine as the platform reports it: owner, ends, state and the
// bytes it has carried. A plain value.

#include <array>
#include <cstdint>
#include <optional>

namespace omnira {

struct TCPSocket {
  enum class State : uint8_t { established = 1, listening = 10 };  // the kernel's TCP state numbers

  uint64_t inode = 0;  // 0 for a socket no process holds (closing, time-wait)
  uint32_t uid = 0;
  uint8_t state = 0;
  bool ipv6 = false;
  std::array<uint8_t, 16> localAddress{};  // network order; IPv4 in the first four bytes
  std::array<uint8_t, 16> remoteAddress{};
  uint16_t localPort = 0;
  uint16_t remotePort = 0;
  // Bytes received, and bytes sent that the peer acknowledged; absent where the
  // platform does not count them.
  std::optional<uint64_t> bytesReceived;
  std::optional<uint64_t> bytesSent;

  bool is(State s) const { return state == static_cast<uint8_t>(s); }
  // Reachable from this machine only (127.0.0.0/8, ::1, an IPv4-mapped loopback).
  bool localOnly() const {
    if (!ipv6) return localAddress[0] == 127;
    for (size_t i = 0; i < 10; ++i)
      if (localAddress[i] != 0) return false;
    if (localAddress[10] == 0 && localAddress[11] == 0) {
      for (size_t i = 12; i < 15; ++i)
        if (localAddress[i] != 0) return false;
      return localAddress[15] == 1;  // ::1
    }
    return localAddress[10] == 0xff && localAddress[11] == 0xff && localAddress[12] == 127;
  }
  friend bool operator==(const TCPSocket&, const TCPSocket&) = default;
};

}  // namespace omnira
