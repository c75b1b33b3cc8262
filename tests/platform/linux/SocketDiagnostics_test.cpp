#include "OmniraCore/platform/linux/SocketDiagnostics.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <limits>
#include <thread>

#include "tests/support/Refused.h"

namespace omnira::platform {
namespace {

struct Descriptor {
  int fd = -1;
  explicit Descriptor(int f) : fd(f) {}
  ~Descriptor() { if (fd >= 0) ::close(fd); }
  uint64_t inode() const {
    struct stat info {};
    return ::fstat(fd, &info) == 0 ? info.st_ino : 0;
  }
};

const TCPSocket* withInode(const std::vector<TCPSocket>& sockets, uint64_t inode) {
  for (const auto& s : sockets)
    if (s.inode == inode) return &s;
  return nullptr;
}

void sendAll(int fd, size_t bytes) {
  std::vector<char> data(bytes, 'x');
  size_t sent = 0;
  while (sent < bytes) {
    const ssize_t n = ::send(fd, data.data() + sent, bytes - sent, MSG_NOSIGNAL);
    ASSERT_GT(n, 0);
    sent += static_cast<size_t>(n);
  }
}

void receiveAll(int fd, size_t bytes) {
  std::vector<char> data(65536);
  size_t got = 0;
  while (got < bytes) {
    const ssize_t n = ::recv(fd, data.data(), std::min(data.size(), bytes - got), 0);
    ASSERT_GT(n, 0);
    got += static_cast<size_t>(n);
  }
}

// A real connection over each loopback: the dump names both ends and the listener, with
// the bytes each end received and had acknowledged.
TEST(SocketDiagnostics, CountsTheBytesOfRealConnections) {
  for (const int family : {AF_INET, AF_INET6}) {
    SCOPED_TRACE(family == AF_INET ? "IPv4" : "IPv6");
    Descriptor listener(::socket(family, SOCK_STREAM, 0));
    sockaddr_storage address{};
    address.ss_family = static_cast<sa_family_t>(family);
    socklen_t length = family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
    if (family == AF_INET)
      reinterpret_cast<sockaddr_in*>(&address)->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    else
      reinterpret_cast<sockaddr_in6*>(&address)->sin6_addr = in6addr_loopback;
    if (::bind(listener.fd, reinterpret_cast<sockaddr*>(&address), length) != 0) {
      ASSERT_EQ(family, AF_INET6) << std::strerror(errno);
      continue;  // a machine without IPv6 loopback
    }
    ASSERT_EQ(::listen(listener.fd, 4), 0);
    ASSERT_EQ(::getsockname(listener.fd, reinterpret_cast<sockaddr*>(&address), &length), 0);
    const uint16_t port = ntohs(family == AF_INET ? reinterpret_cast<sockaddr_in*>(&address)->sin_port
                                                  : reinterpret_cast<sockaddr_in6*>(&address)->sin6_port);
    Descriptor client(::socket(family, SOCK_STREAM, 0));
    ASSERT_EQ(::connect(client.fd, reinterpret_cast<sockaddr*>(&address), length), 0);
    Descriptor server(::accept(listener.fd, nullptr, nullptr));
    ASSERT_GE(server.fd, 0);
    SocketDiagnostics diagnostics;
    // The opening handshake may count as a byte: rates come from differences, so compare those.
    auto before = diagnostics.tcpSockets();
    ASSERT_TRUE(before.ok()) << before.error().message;
    const auto* c0 = withInode(*before, client.inode());
    const auto* s0 = withInode(*before, server.inode());
    ASSERT_TRUE(c0 && s0 && c0->bytesSent && s0->bytesSent && c0->bytesReceived && s0->bytesReceived);
    const uint64_t clientSent = *c0->bytesSent, serverSent = *s0->bytesSent;
    const uint64_t clientReceived = *c0->bytesReceived, serverReceived = *s0->bytesReceived;

    sendAll(client.fd, 300'000);
    receiveAll(server.fd, 300'000);
    sendAll(server.fd, 3'000);
    receiveAll(client.fd, 3'000);
    std::vector<TCPSocket> sockets;
    // Acknowledgements cross the loopback a moment after the data: wait for them.
    for (int tries = 0; tries < 200; ++tries) {
      auto dumped = diagnostics.tcpSockets();
      ASSERT_TRUE(dumped.ok()) << dumped.error().message;
      sockets = std::move(dumped).value();
      const auto* c = withInode(sockets, client.inode());
      const auto* s = withInode(sockets, server.inode());
      if (c && s && c->bytesSent >= clientSent + 300'000 && s->bytesSent >= serverSent + 3'000) break;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    const auto* l = withInode(sockets, listener.inode());
    const auto* c = withInode(sockets, client.inode());
    const auto* s = withInode(sockets, server.inode());
    ASSERT_TRUE(l && c && s);
    EXPECT_TRUE(l->is(TCPSocket::State::listening));
    EXPECT_EQ(l->localPort, port);
    EXPECT_TRUE(l->localOnly());
    EXPECT_TRUE(c->is(TCPSocket::State::established));
    EXPECT_EQ(c->remotePort, port);
    EXPECT_EQ(c->bytesSent, clientSent + 300'000);
    EXPECT_EQ(s->bytesReceived, serverReceived + 300'000);
    EXPECT_EQ(s->bytesSent, serverSent + 3'000);
    EXPECT_EQ(c->bytesReceived, clientReceived + 3'000);
  }
}

// Replies built by hand: an old kernel's short tcp_info, the end, a refusal, cut-short messages.
TEST(SocketDiagnostics, ParsesRepliesAndRefusesBrokenOnes) {
  auto message = [](uint16_t type, const void* payload, size_t size) {
    std::vector<uint8_t> bytes(NLMSG_ALIGN(NLMSG_HDRLEN + size));
    nlmsghdr header{};
    header.nlmsg_len = static_cast<uint32_t>(NLMSG_HDRLEN + size);
    header.nlmsg_type = type;
    std::memcpy(bytes.data(), &header, sizeof header);
    std::memcpy(bytes.data() + NLMSG_HDRLEN, payload, size);
    return bytes;
  };
  inet_diag_msg diag{};
  diag.idiag_family = AF_INET;
  diag.idiag_state = 1;
  diag.idiag_inode = 4242;
  diag.idiag_uid = 1000;
  diag.id.idiag_sport = htons(3000);
  diag.id.idiag_src[0] = htonl(0x0a000001);  // 10.0.0.1
  // tcp_info as a kernel before byte counting sends it: the attribute ends before them.
  std::vector<uint8_t> payload(NLMSG_ALIGN(sizeof diag) + RTA_LENGTH(offsetof(tcp_info, tcpi_bytes_acked)));
  std::memcpy(payload.data(), &diag, sizeof diag);
  rtattr attribute{static_cast<unsigned short>(RTA_LENGTH(offsetof(tcp_info, tcpi_bytes_acked))), INET_DIAG_INFO};
  std::memcpy(payload.data() + NLMSG_ALIGN(sizeof diag), &attribute, sizeof attribute);
  auto reply = message(SOCK_DIAG_BY_FAMILY, payload.data(), payload.size());
  const int none = 0;
  const auto done = message(NLMSG_DONE, &none, sizeof none);

  std::vector<TCPSocket> sockets;
  auto parsed = parseInetDiagMessages(reply, sockets);
  ASSERT_TRUE(parsed.ok());
  EXPECT_FALSE(*parsed);  // more to come
  ASSERT_EQ(sockets.size(), 1u);
  EXPECT_EQ(sockets[0].inode, 4242u);
  EXPECT_EQ(sockets[0].localPort, 3000);
  EXPECT_FALSE(sockets[0].localOnly());
  EXPECT_EQ(sockets[0].bytesSent, std::nullopt);
  EXPECT_EQ(sockets[0].bytesReceived, std::nullopt);
  auto withEnd = reply;
  withEnd.insert(withEnd.end(), done.begin(), done.end());
  parsed = parseInetDiagMessages(withEnd, sockets);
  ASSERT_TRUE(parsed.ok());
  EXPECT_TRUE(*parsed);

  nlmsgerr refusal{};
  refusal.error = -EPERM;
  EXPECT_TRUE(testing::refusedSaying(parseInetDiagMessages(message(NLMSG_ERROR, &refusal, sizeof refusal), sockets),
                                     std::strerror(EPERM)));
  for (const int notAnErrno : {std::numeric_limits<int>::min(), 5}) {  // INT_MIN once overflowed on negation
    refusal.error = notAnErrno;
    EXPECT_TRUE(testing::refusedSaying(parseInetDiagMessages(message(NLMSG_ERROR, &refusal, sizeof refusal), sockets),
                                       "no error number"));
  }
  for (const size_t cut : {size_t{7}, size_t{NLMSG_HDRLEN + 10}, reply.size() - 4}) {
    SCOPED_TRACE(cut);
    std::vector<uint8_t> shortened(reply.begin(), reply.begin() + static_cast<std::ptrdiff_t>(cut));
    EXPECT_FALSE(parseInetDiagMessages(shortened, sockets).ok());
  }
}

}  // namespace
}  // namespace omnira::platform
