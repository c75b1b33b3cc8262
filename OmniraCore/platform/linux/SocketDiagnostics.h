#pragma once
// Every TCP socket of the machine, IPv4 and IPv6, with its owner, its ends and its byte
// counters, from the kernel's socket diagnostics (a netlink dump, no root needed).
// /proc/net/tcp has neither byte counters nor a cheap way to ask for them; the dump
// gives the kernel's tcp_info of each socket, whoever owns it.
//
// Not thread-safe: one SocketDiagnostics is used by one thread at a time. A failure
// means no socket list this time (a kernel without the interface, a refused socket);
// callers show no network figures rather than wrong ones.

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/platform/linux/ParseFailure.h"

namespace omnira::platform {

struct TCPSocketInfo {
  enum class State : uint8_t { established = 1, listening = 10 };  // the kernel's TCP state numbers

  uint64_t inode = 0;  // 0 for a socket no process holds (closing, time-wait)
  uint32_t uid = 0;
  uint8_t state = 0;
  bool ipv6 = false;
  std::array<uint8_t, 16> localAddress{};  // network order; IPv4 in the first four bytes
  std::array<uint8_t, 16> remoteAddress{};
  uint16_t localPort = 0;
  uint16_t remotePort = 0;
  // What tcp_info counts: bytes received, and bytes sent that the peer acknowledged.
  // Absent on kernels too old to count them.
  std::optional<uint64_t> bytesReceived;
  std::optional<uint64_t> bytesSent;

  bool is(State s) const { return state == static_cast<uint8_t>(s); }
  // Reachable from this machine only (127.0.0.0/8, ::1, an IPv4-mapped loopback).
  bool localOnly() const;
  friend bool operator==(const TCPSocketInfo&, const TCPSocketInfo&) = default;
};

// https://man7.org/linux/man-pages/man7/sock_diag.7.html
// One buffer of the dump's netlink messages, appended to `out`. True once the dump's
// end ("done") is in the buffer. A message that says the kernel failed, or one cut
// short, fails the whole dump.
Result<bool, ParseFailure> parseInetDiagMessages(std::span<const uint8_t> bytes, std::vector<TCPSocketInfo>& out);

struct SocketDiagnosticsFailure {
  int error = 0;        // errno, 0 for a malformed reply
  std::string message;  // for debug logs
};

class SocketDiagnostics {
 public:
  SocketDiagnostics() = default;
  ~SocketDiagnostics();
  SocketDiagnostics(const SocketDiagnostics&) = delete;
  SocketDiagnostics& operator=(const SocketDiagnostics&) = delete;

  // All TCP sockets in every state, IPv4 then IPv6.
  Result<std::vector<TCPSocketInfo>, SocketDiagnosticsFailure> tcpSockets();

 private:
  Result<void, SocketDiagnosticsFailure> dump(uint8_t family, std::vector<TCPSocketInfo>& out);

  int fd_ = -1;  // opened on first use, kept
  std::vector<uint8_t> buffer_;
};

}  // namespace omnira::platform
