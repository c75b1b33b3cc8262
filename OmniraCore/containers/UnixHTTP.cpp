#include "OmniraCore/foundation/Parse.h"
#include "OmniraCore/containers/UnixHTTP.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <vector>

namespace omnira {

namespace {

constexpr std::string_view kCRLF = "\r\n";

UnixHTTP::Failure failure(std::string message) { return UnixHTTP::Failure{std::move(message)}; }


class Socket {
 public:
  Socket() : fd_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {}
  ~Socket() {
    if (fd_ >= 0) ::close(fd_);
  }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;
  int fd() const { return fd_; }

 private:
  int fd_;
};

}  // namespace

Result<std::string, UnixHTTP::Failure> UnixHTTP::get(std::string_view path, const std::string& socketPath,
                                                     std::chrono::milliseconds timeout) {
  if (socketPath.size() > kMaxPathBytes) return fail(failure("The socket path is too long."));
  Socket socket;
  if (socket.fd() < 0) return fail(failure(std::string("socket ") + std::strerror(errno)));
  timeval limit{};
  limit.tv_sec = static_cast<time_t>(timeout.count() / 1000);
  limit.tv_usec = static_cast<suseconds_t>((timeout.count() % 1000) * 1000);
  ::setsockopt(socket.fd(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  ::setsockopt(socket.fd(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);

  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, socketPath.data(), socketPath.size());
  if (::connect(socket.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    return fail(failure(std::string("connect ") + std::strerror(errno)));

  std::string request = "GET ";
  request.append(path);
  request += " HTTP/1.1\r\nHost: localhost\r\nAccept: application/json\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
  for (size_t sent = 0; sent < request.size();) {
    // A server that hangs up must not kill this process with SIGPIPE.
    const ssize_t n = ::send(socket.fd(), request.data() + sent, request.size() - sent, MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return fail(failure("write"));
    sent += static_cast<size_t>(n);
  }

  // The time-out bounds the whole reply, not each read: an engine that trickles a byte
  // at a time must not hold its caller longer than one that says nothing.
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  std::string reply;
  std::vector<char> buffer(65536);
  while (true) {
    const auto left = std::chrono::duration_cast<std::chrono::microseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return fail(failure(std::string("read ") + std::strerror(EAGAIN)));
    timeval wait{};
    wait.tv_sec = static_cast<time_t>(left.count() / 1000000);
    wait.tv_usec = static_cast<suseconds_t>(left.count() % 1000000);
    ::setsockopt(socket.fd(), SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
    const ssize_t n = ::recv(socket.fd(), buffer.data(), buffer.size(), 0);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return fail(failure(std::string("read ") + std::strerror(errno)));
    if (n == 0) break;
    if (reply.size() + static_cast<size_t>(n) > kMaxReplyBytes) return fail(failure("read: the reply is too large"));
    reply.append(buffer.data(), static_cast<size_t>(n));
  }
  return body(reply);
}

Result<std::string, UnixHTTP::Failure> UnixHTTP::body(std::string_view reply) {
  const auto end = reply.find("\r\n\r\n");
  if (end == std::string_view::npos) return fail(failure("no header"));
  const std::string_view head = reply.substr(0, end);
  const std::string_view content = reply.substr(end + 4);

  const auto lineEnd = head.find(kCRLF);
  const std::string_view statusLine = head.substr(0, lineEnd);
  const auto space = statusLine.find(' ');
  std::string_view code = space == std::string_view::npos ? std::string_view() : statusLine.substr(space + 1);
  code = code.substr(0, code.find(' '));
  if (!(code.starts_with('2') || code == "304")) return fail(failure("status " + std::string(code)));

  bool chunked = false;
  std::string_view headers = lineEnd == std::string_view::npos ? std::string_view() : head.substr(lineEnd + 2);
  while (!headers.empty()) {
    const auto next = headers.find(kCRLF);
    const std::string line = lowered(headers.substr(0, next));
    if (line.starts_with("transfer-encoding:") && line.find("chunked") != std::string::npos) chunked = true;
    if (next == std::string_view::npos) break;
    headers.remove_prefix(next + 2);
  }
  if (!chunked) return std::string(content);
  return dechunk(content);
}

Result<std::string, UnixHTTP::Failure> UnixHTTP::dechunk(std::string_view chunked) {
  std::string out;
  while (true) {
    const auto lineEnd = chunked.find(kCRLF);
    if (lineEnd == std::string_view::npos) return fail(failure("a chunk size line is cut short"));
    std::string_view sizeText = chunked.substr(0, lineEnd);
    sizeText = sizeText.substr(0, sizeText.find(';'));  // chunk extensions
    while (!sizeText.empty() && sizeText.back() == ' ') sizeText.remove_suffix(1);
    size_t size = 0;
    const auto [ptr, ec] = std::from_chars(sizeText.data(), sizeText.data() + sizeText.size(), size, 16);
    if (sizeText.empty() || ec != std::errc() || ptr != sizeText.data() + sizeText.size())
      return fail(failure("a chunk size is not a hexadecimal number"));
    chunked.remove_prefix(lineEnd + 2);
    if (size == 0) return out;
    if (size > chunked.size() || chunked.size() - size < 2 || chunked.substr(size, 2) != kCRLF)
      return fail(failure("a chunk is cut short"));
    out.append(chunked.substr(0, size));
    chunked.remove_prefix(size + 2);
  }
}

}  // namespace omnira
