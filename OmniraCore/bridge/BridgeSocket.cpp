#include "OmniraCore/bridge/BridgeSocket.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "OmniraCore/foundation/JSONText.h"

namespace omnira {

namespace {

BridgeSocket::Failure failure(std::string message) { return BridgeSocket::Failure{std::move(message)}; }

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

}  // namespace

Result<sockaddr_un, BridgeSocket::Failure> BridgeSocket::address(const std::string& path) {
  if (path.size() > kMaxPathBytes) return fail(failure(kPathTooLong));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.data(), path.size());  // the rest stays NUL
  return address;
}

bool BridgeSocket::write(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t n = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    bytes.remove_prefix(static_cast<size_t>(n));
  }
  return true;
}

std::optional<std::string> BridgeSocket::readLine(int fd) {
  std::string line;
  std::vector<char> scratch(kReadChunk);
  while (line.size() < kMaxLineBytes) {
    const ssize_t n = ::read(fd, scratch.data(), scratch.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return std::nullopt;
    const std::string_view got(scratch.data(), static_cast<size_t>(n));
    if (const auto newline = got.find('\n'); newline != std::string_view::npos) {
      line.append(got.substr(0, newline));
      return line;
    }
    line.append(got);
  }
  return std::nullopt;
}

Result<nlohmann::ordered_json, BridgeSocket::Failure> BridgeSocket::ask(const nlohmann::ordered_json& request,
                                                                        const std::string& path,
                                                                        std::chrono::seconds timeout) {
  const Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (socket.get() < 0) return fail(failure(std::string("socket: ") + std::strerror(errno)));
  const timeval limit{static_cast<time_t>(timeout.count()), 0};
  ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);

  auto address = BridgeSocket::address(path);
  if (!address) return fail(address.error());
  if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&*address), sizeof(sockaddr_un)) != 0) {
    if (errno == ENOENT || errno == ECONNREFUSED) return fail(Failure{});
    return fail(failure(std::string("connect: ") + std::strerror(errno)));
  }
  if (!write(socket.get(), jsonText(request) + "\n")) return fail(failure("Omnira closed the connection."));
  const auto line = readLine(socket.get());
  if (!line) return fail(failure("Omnira did not answer in time."));
  auto reply = nlohmann::ordered_json::parse(*line, nullptr, /*allow_exceptions=*/false);
  if (reply.is_discarded()) return fail(failure("Omnira did not answer in time."));
  return reply;
}

}  // namespace omnira
