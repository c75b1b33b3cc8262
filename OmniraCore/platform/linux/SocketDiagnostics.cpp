#include "OmniraCore/platform/linux/SocketDiagnostics.h"

#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <limits>

#include <fmt/format.h>

namespace omnira::platform {
namespace {

// The messages come from the kernel but the buffer is ours: read every field by copy,
// never through a pointer into it, so that a short or odd message cannot be misread.
template <class T>
bool copyAt(std::span<const uint8_t> bytes, size_t offset, T& into) {
  if (offset > bytes.size() || bytes.size() - offset < sizeof(T)) return false;
  std::memcpy(&into, bytes.data() + offset, sizeof(T));
  return true;
}

uint16_t fromNetworkOrder(uint16_t port) { return static_cast<uint16_t>((port >> 8) | (port << 8)); }

// Older kernels send a shorter tcp_info: a field counts only when the attribute holds it whole.
std::optional<uint64_t> tcpInfoField(std::span<const uint8_t> info, size_t offset) {
  uint64_t value = 0;
  if (!copyAt(info, offset, value)) return std::nullopt;
  return value;
}

void readAttributes(std::span<const uint8_t> attributes, TCPSocket& socket) {
  size_t at = 0;
  while (true) {
    rtattr header{};
    if (!copyAt(attributes, at, header) || header.rta_len < sizeof(rtattr) ||
        header.rta_len > attributes.size() - at) {
      return;
    }
    if (header.rta_type == INET_DIAG_INFO) {
      const auto info = attributes.subspan(at + RTA_LENGTH(0), header.rta_len - RTA_LENGTH(0));
      socket.bytesReceived = tcpInfoField(info, offsetof(tcp_info, tcpi_bytes_received));
      socket.bytesSent = tcpInfoField(info, offsetof(tcp_info, tcpi_bytes_acked));
    }
    const size_t next = at + RTA_ALIGN(header.rta_len);
    if (next <= at || next >= attributes.size()) return;
    at = next;
  }
}

}  // namespace

Result<bool, ParseFailure> parseInetDiagMessages(std::span<const uint8_t> bytes, std::vector<TCPSocket>& out) {
  size_t at = 0;
  while (at < bytes.size()) {
    nlmsghdr header{};
    if (!copyAt(bytes, at, header)) return fail(ParseFailure{"a message header cut short"});
    if (header.nlmsg_len < sizeof(nlmsghdr) || header.nlmsg_len > bytes.size() - at) {
      return fail(ParseFailure{fmt::format("a message of {} bytes where {} are left", header.nlmsg_len, bytes.size() - at)});
    }
    const auto message = bytes.subspan(at + NLMSG_HDRLEN, header.nlmsg_len - NLMSG_HDRLEN);
    if (header.nlmsg_type == NLMSG_DONE) return true;
    if (header.nlmsg_type == NLMSG_ERROR) {
      nlmsgerr error{};
      if (!copyAt(message, 0, error)) return fail(ParseFailure{"an error message cut short"});
      if (error.error == 0) return true;  // an acknowledgement: nothing more is coming
      // The kernel sends a negative errno; anything else is not one (and INT_MIN has no negation).
      if (error.error < 0 && error.error > std::numeric_limits<int>::min())
        return fail(ParseFailure{fmt::format("the kernel refused the dump: {}", std::strerror(-error.error))});
      return fail(ParseFailure{fmt::format("the kernel refused the dump with {}, which is no error number", error.error)});
    }
    if (header.nlmsg_type == SOCK_DIAG_BY_FAMILY || header.nlmsg_type == TCPDIAG_GETSOCK) {
      inet_diag_msg diag{};
      if (!copyAt(message, 0, diag)) return fail(ParseFailure{"a socket message cut short"});
      TCPSocket& socket = out.emplace_back();
      socket.inode = diag.idiag_inode;
      socket.uid = diag.idiag_uid;
      socket.state = diag.idiag_state;
      socket.ipv6 = diag.idiag_family == AF_INET6;
      std::memcpy(socket.localAddress.data(), diag.id.idiag_src, socket.ipv6 ? 16 : 4);
      std::memcpy(socket.remoteAddress.data(), diag.id.idiag_dst, socket.ipv6 ? 16 : 4);
      socket.localPort = fromNetworkOrder(diag.id.idiag_sport);
      socket.remotePort = fromNetworkOrder(diag.id.idiag_dport);
      const size_t attributes = NLMSG_ALIGN(sizeof(inet_diag_msg));
      if (message.size() > attributes) readAttributes(message.subspan(attributes), socket);
    }
    const size_t next = at + NLMSG_ALIGN(header.nlmsg_len);
    if (next <= at) break;
    at = next;
  }
  return false;
}

SocketDiagnostics::~SocketDiagnostics() {
  if (fd_ >= 0) ::close(fd_);
}

Result<std::vector<TCPSocket>, SocketDiagnosticsFailure> SocketDiagnostics::tcpSockets() {
  if (fd_ < 0) {
    fd_ = ::socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_SOCK_DIAG);
    if (fd_ < 0) return fail(SocketDiagnosticsFailure{errno, fmt::format("socket diagnostics: {}", std::strerror(errno))});
    // A machine's dump comes in many replies; a page-sized buffer would cut them short.
    buffer_.resize(64 * 1024);
  }
  std::vector<TCPSocket> sockets;
  if (auto dumped = dump(sockets); !dumped) {
    // The socket may hold the rest of a broken dump: start the next one on a new socket.
    ::close(fd_);
    fd_ = -1;
    return fail(dumped.error());
  }
  return sockets;
}

Result<void, SocketDiagnosticsFailure> SocketDiagnostics::dump(std::vector<TCPSocket>& out) {
  // The older request form dumps both address families in one pass over the kernel's
  // socket tables; asking per family walks the tables, which are sized by memory and
  // mostly empty, once for each.
  struct {
    nlmsghdr header;
    inet_diag_req request;
  } ask{};
  ask.header.nlmsg_len = sizeof ask;
  ask.header.nlmsg_type = TCPDIAG_GETSOCK;
  ask.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  ask.request.idiag_family = AF_INET;  // ignored for a dump: every family comes
  ask.request.idiag_states = ~0u;
  ask.request.idiag_ext = 1u << (INET_DIAG_INFO - 1);
  sockaddr_nl kernel{};
  kernel.nl_family = AF_NETLINK;
  if (::sendto(fd_, &ask, sizeof ask, 0, reinterpret_cast<const sockaddr*>(&kernel), sizeof kernel) < 0) {
    return fail(SocketDiagnosticsFailure{errno, fmt::format("socket diagnostics request: {}", std::strerror(errno))});
  }
  while (true) {
    iovec vector{buffer_.data(), buffer_.size()};
    msghdr message{};
    message.msg_iov = &vector;
    message.msg_iovlen = 1;
    const ssize_t n = ::recvmsg(fd_, &message, 0);
    if (n < 0) {
      if (errno == EINTR) continue;
      return fail(SocketDiagnosticsFailure{errno, fmt::format("socket diagnostics reply: {}", std::strerror(errno))});
    }
    if (n == 0) return fail(SocketDiagnosticsFailure{0, "socket diagnostics: the reply ended early"});
    if (message.msg_flags & MSG_TRUNC) return fail(SocketDiagnosticsFailure{0, "socket diagnostics: a reply was cut short"});
    auto parsed = parseInetDiagMessages(std::span<const uint8_t>(buffer_.data(), static_cast<size_t>(n)), out);
    if (!parsed) return fail(SocketDiagnosticsFailure{0, "socket diagnostics: " + parsed.error().message});
    if (*parsed) return {};
  }
}

}  // namespace omnira::platform
