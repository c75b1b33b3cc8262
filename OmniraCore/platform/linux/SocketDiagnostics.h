#pragma once
// Every TCP socket of the machine, IPv4 and IPv6, with its owner, its ends and its byte
// counters, from the kernel's socket diagnostics (a netlink dump, no root needed).
// /proc/net/tcp has neither byte counters nor a cheap way to ask for them; the dump
// gives the kernel's tcp_info of each socket, whoever owns it.
//
// Not thread-safe: one SocketDiagnostics is used by one thread at a time. A failure
// means no socket list this time (a kernel without the interface, a refused socket);
// callers show no network figures rather than wrong ones.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/platform/linux/ParseFailure.h"
#include "OmniraCore/sampling/TCPSocket.h"

namespace omnira::platform {

// https://man7.org/linux/man-pages/man7/sock_diag.7.html
// One buffer of the dump's netlink messages, appended to `out`. True once the dump's
// end ("done") is in the buffer. A message that says the kernel failed, or one cut
// short, fails the whole dump.
Result<bool, ParseFailure> parseInetDiagMessages(std::span<const uint8_t> bytes, std::vector<TCPSocket>& out);

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

  // All TCP sockets in every state, IPv4 and IPv6.
  Result<std::vector<TCPSocket>, SocketDiagnosticsFailure> tcpSockets();

 private:
  Result<void, SocketDiagnosticsFailure> dump(std::vector<TCPSocket>& out);

  int fd_ = -1;  // opened on first use, kept
  std::vector<uint8_t> buffer_;
};

}  // namespace omnira::platform
