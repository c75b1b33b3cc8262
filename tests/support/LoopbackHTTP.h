#pragma once
// Loopback TCP and HTTP/1.1 message pieces that the tests' own HTTP server and raw client
// share. Plain functions on descriptors the caller owns; no threads of their own.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "OmniraCore/foundation/Parse.h"

namespace omnira::testing {

inline sockaddr_in loopbackAddress(uint16_t port = 0) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

// A port on which nothing listens right now: bound once, then closed.
inline uint16_t unusedPort() {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = loopbackAddress();
  ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
  socklen_t length = sizeof address;
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
  ::close(fd);
  return ntohs(address.sin_port);
}

// False when the peer went away first.
inline bool sendAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) return false;
    bytes.remove_prefix(static_cast<size_t>(sent));
  }
  return true;
}

struct HTTPHead {
  std::string_view startLine;
  std::map<std::string, std::string> headers;  // names in lower case
  size_t bodyOffset = 0;
  // The Content-Length, 0 when absent or not a number.
  size_t contentLength() const {
    const auto found = headers.find("content-length");
    return found == headers.end() ? 0 : parseNumber<size_t>(found->second).value_or(0);
  }
};

// The head of the message that starts `text`; nothing until its blank line has come.
inline std::optional<HTTPHead> parseHead(std::string_view text) {
  const auto end = text.find("\r\n\r\n");
  if (end == std::string_view::npos) return std::nullopt;
  HTTPHead head;
  head.bodyOffset = end + 4;
  std::string_view lines = text.substr(0, end);
  const auto first = lines.find("\r\n");
  head.startLine = lines.substr(0, first);
  lines = first == std::string_view::npos ? std::string_view{} : lines.substr(first + 2);
  forEachLine(lines, [&](std::string_view line) {
    const auto colon = line.find(':');
    if (colon != std::string_view::npos) head.headers[lowered(line.substr(0, colon))] = std::string(trim(line.substr(colon + 1)));
  });
  return head;
}

}  // namespace omnira::testing
