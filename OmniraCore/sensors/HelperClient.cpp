#include "OmniraCore/sensors/HelperClient.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <fmt/format.h>

#include "OmniraCore/bridge/BridgeSocket.h"

namespace omnira {

namespace {

using Kind = HelperClient::Failure::Kind;
using Clock = std::chrono::steady_clock;

// Replies can be long (a processes reply for thousands of pids), but not without end.
constexpr size_t kMaxReplyBytes = 8u << 20;

HelperClient::Failure failure(Kind kind, std::string message) { return HelperClient::Failure{kind, std::move(message)}; }

HelperClient::Failure fromProtocol(const HelperProtocol::Failure& failed) {
  return failure(failed.refused ? Kind::refused : Kind::badReply, failed.message);
}

template <class T>
Result<T, HelperClient::Failure> decoded(Result<T, HelperProtocol::Failure> result) {
  if (!result) return fail(fromProtocol(result.error()));
  return std::move(result).value();
}

}  // namespace

HelperClient::HelperClient() : HelperClient(Options{}) {}

HelperClient::HelperClient(Options options) : options_(std::move(options)) {}

HelperClient::~HelperClient() { close(); }

void HelperClient::close() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
  holdsFans_ = false;
}

Result<void, HelperClient::Failure> HelperClient::connect() {
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return fail(failure(Kind::badReply, fmt::format("socket: {}", std::strerror(errno))));
  // SO_SNDTIMEO also bounds a connect that waits for room in a full backlog.
  const auto ms = options_.timeout.count();
  const timeval limit{static_cast<time_t>(ms / 1000), static_cast<suseconds_t>((ms % 1000) * 1000)};
  ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  const auto address = BridgeSocket::address(options_.socket.string());
  if (!address) {
    ::close(fd);
    return fail(failure(Kind::notRunning, "The path to the helper's socket is too long."));
  }
  if (::connect(fd, reinterpret_cast<const sockaddr*>(&*address), sizeof(sockaddr_un)) != 0) {
    const int error = errno;
    ::close(fd);
    std::error_code ignored;
    const bool configured = std::filesystem::exists(options_.config, ignored);
    if ((error == ENOENT || error == ECONNREFUSED) && !configured)
      return fail(failure(Kind::notInstalled, "The privileged helper is not installed; `omnira helper install` installs it."));
    if (error == ENOENT || error == ECONNREFUSED)
      return fail(failure(Kind::notRunning, "The privileged helper is installed but not running."));
    if (error == EACCES || error == EPERM)
      return fail(failure(Kind::refused, "This user may not reach the privileged helper's socket."));
    if (error == EAGAIN || error == ETIMEDOUT)
      return fail(failure(Kind::notRunning, "The privileged helper is too busy to take a connection."));
    return fail(failure(Kind::notRunning, fmt::format("The privileged helper cannot be reached: {}.", std::strerror(error))));
  }
  fd_ = fd;
  return {};
}

// One line out, one line back, within the time-out. A close before any byte of the reply
// is a refusal: the helper closes on users it does not serve without a word.
Result<std::string, HelperClient::Failure> HelperClient::exchange(const std::string& line) {
  if (!BridgeSocket::write(fd_, line + "\n")) {
    close();
    return fail(failure(Kind::refused, "The privileged helper closed the connection without answering."));
  }
  const auto deadline = Clock::now() + options_.timeout;
  std::string reply;
  char buffer[16384];
  while (reply.size() < kMaxReplyBytes) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    pollfd wait{fd_, POLLIN, 0};
    const int ready = left > 0 ? ::poll(&wait, 1, static_cast<int>(left)) : 0;
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) {
      close();
      return fail(failure(Kind::badReply, "The privileged helper did not answer in time."));
    }
    const ssize_t n = ::recv(fd_, buffer, sizeof buffer, MSG_DONTWAIT);
    if (n < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (n <= 0) {
      close();
      if (reply.empty() || n < 0)
        return fail(failure(Kind::refused, "The privileged helper closed the connection without answering."));
      return fail(failure(Kind::badReply, "The privileged helper's reply broke off."));
    }
    const std::string_view got(buffer, static_cast<size_t>(n));
    if (const auto newline = got.find('\n'); newline != std::string_view::npos) {
      reply.append(got.substr(0, newline));
      return reply;
    }
    reply.append(got);
  }
  close();
  return fail(failure(Kind::badReply, "The privileged helper's reply is too long."));
}

Result<std::string, HelperClient::Failure> HelperClient::ask(const HelperRequest& request) {
  const bool reused = fd_ >= 0;
  const bool heldFans = holdsFans_;
  if (!reused) {
    if (auto connected = connect(); !connected) return fail(connected.error());
  }
  const std::string line = HelperProtocol::encodeRequest(request);
  auto reply = exchange(line);
  // The helper drops a connection after 10 s of silence; a new one is as good for readings,
  // but a fan session that ended is not silently replaced.
  if (!reply && reused && !heldFans && request.op != HelperRequest::Op::setFan &&
      reply.error().kind == Kind::refused) {
    if (auto connected = connect(); !connected) return fail(connected.error());
    reply = exchange(line);
  }
  return reply;
}

Result<HelperHello, HelperClient::Failure> HelperClient::hello() {
  auto line = ask(HelperRequest{HelperRequest::Op::hello});
  if (!line) return fail(line.error());
  return decoded(HelperProtocol::decodeHello(*line));
}

Result<std::vector<RaplCounter>, HelperClient::Failure> HelperClient::rapl() {
  auto line = ask(HelperRequest{HelperRequest::Op::rapl});
  if (!line) return fail(line.error());
  return decoded(HelperProtocol::decodeRapl(*line));
}

Result<std::vector<HelperProcessFigures>, HelperClient::Failure> HelperClient::processes(const std::vector<int32_t>& pids) {
  std::vector<HelperProcessFigures> all;
  // Larger lists go in several requests, each within what the helper reads.
  for (size_t start = 0; start < pids.size(); start += HelperProtocol::kMaxPIDs) {
    HelperRequest request{HelperRequest::Op::processes};
    const size_t end = std::min(pids.size(), start + HelperProtocol::kMaxPIDs);
    request.pids.assign(pids.begin() + static_cast<std::ptrdiff_t>(start), pids.begin() + static_cast<std::ptrdiff_t>(end));
    auto line = ask(request);
    if (!line) return fail(line.error());
    auto part = decoded(HelperProtocol::decodeProcesses(*line));
    if (!part) return fail(part.error());
    all.insert(all.end(), part->begin(), part->end());
  }
  return all;
}

Result<std::vector<FanStatus>, HelperClient::Failure> HelperClient::fans() {
  auto line = ask(HelperRequest{HelperRequest::Op::fans});
  if (!line) return fail(line.error());
  return decoded(HelperProtocol::decodeFans(*line));
}

Result<double, HelperClient::Failure> HelperClient::setFan(int index, double rpm) {
  HelperRequest request{HelperRequest::Op::setFan};
  request.fanIndex = index;
  request.rpm = rpm;
  auto line = ask(request);
  if (!line) return fail(line.error());
  auto set = decoded(HelperProtocol::decodeFanSet(*line));
  if (!set) return fail(set.error());
  holdsFans_ = true;
  if (!set->rpm) return fail(failure(Kind::badReply, "The privileged helper did not say which speed it set."));
  return *set->rpm;
}

Result<void, HelperClient::Failure> HelperClient::setFanAutomatic(int index) {
  HelperRequest request{HelperRequest::Op::setFan};
  request.fanIndex = index;
  auto line = ask(request);
  if (!line) return fail(line.error());
  auto set = decoded(HelperProtocol::decodeFanSet(*line));
  if (!set) return fail(set.error());
  return {};
}

}  // namespace omnira
