#pragma once
// A plain HTTP/1.1 client over a real TCP socket, for the metrics endpoint's tests: sends
// exactly the bytes given, so tests can send what a well-behaved client never would.

#include <poll.h>
#include <sys/resource.h>

#include "tests/support/LoopbackHTTP.h"

namespace omnira::testing {

struct HTTPAnswer {
  int status = 0;
  std::map<std::string, std::string> headers;  // names in lower case
  std::string body;
};

// A connected socket to 127.0.0.1:port; -1 when refused.
inline int connectTo(uint16_t port) {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = loopbackAddress(port);
  if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    ::close(fd);
    return -1;
  }
  return fd;
}

// Reads until the server closes; the guard only keeps a broken server from hanging the test.
inline std::optional<HTTPAnswer> readAnswer(int fd, int guardMilliseconds = 30000) {
  std::string text;
  char buffer[65536];
  for (;;) {
    pollfd p{fd, POLLIN, 0};
    if (::poll(&p, 1, guardMilliseconds) <= 0) return std::nullopt;
    const ssize_t got = ::recv(fd, buffer, sizeof buffer, 0);
    if (got < 0) return std::nullopt;
    if (got == 0) break;
    text.append(buffer, static_cast<size_t>(got));
  }
  const auto head = parseHead(text);
  if (!head || !head->startLine.starts_with("HTTP/1.1 ")) return std::nullopt;
  const auto status = parseNumber<int>(head->startLine.substr(9, 3));
  if (!status) return std::nullopt;
  return HTTPAnswer{*status, head->headers, text.substr(head->bodyOffset)};
}

// One request on its own connection, closed after the answer.
inline std::optional<HTTPAnswer> request(uint16_t port, const std::string& method, const std::string& path,
                                         const std::string& extraHeaders = "") {
  const int fd = connectTo(port);
  if (fd < 0) return std::nullopt;
  const bool sent = sendAll(fd, method + " " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n" +
                                    extraHeaders + "\r\n");
  auto answer = sent ? readAnswer(fd) : std::nullopt;
  ::close(fd);
  return answer;
}

// Each held connection costs a descriptor here too.
inline void raiseDescriptorLimit() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
  }
}

// A port nobody listens on right now, for a child that must be told one.
inline uint16_t freePort() { return unusedPort(); }

}  // namespace omnira::testing
