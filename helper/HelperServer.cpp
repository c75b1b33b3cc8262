#include "helper/HelperServer.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include "OmniraCore/bridge/BridgeSocket.h"
#include "OmniraCore/foundation/AtomicFile.h"
#include "OmniraCore/platform/linux/FileText.h"
#include "OmniraCore/platform/linux/PowerCap.h"
#include "OmniraCore/sensors/HelperProtocol.h"

namespace omnira::helper {

namespace {

using Clock = std::chrono::steady_clock;
constexpr size_t kReadChunk = 16384;
constexpr size_t kMaxPendingReply = 16u << 20;  // a client that never reads is let go

std::string errorText() { return std::strerror(errno); }

std::vector<HelperProcessFigures> readProcesses(const platform::Roots& roots, const std::vector<int32_t>& pids) {
  std::vector<HelperProcessFigures> figures;
  for (const int32_t pid : pids) {
    const auto folder = roots.proc / std::to_string(pid);
    HelperProcessFigures process{pid, std::nullopt, std::nullopt};
    if (auto text = platform::readTextFile(folder / "io", 4096)) {
      if (auto io = platform::parsePidIO(*text)) process.io = *io;
    }
    if (auto text = platform::readTextFile(folder / "smaps_rollup", 8192)) {
      if (auto memory = platform::parseSmapsRollup(*text)) process.memory = *memory;
    }
    if (process.io || process.memory) figures.push_back(std::move(process));
  }
  return figures;
}

}  // namespace

HelperServer::HelperServer(Options options) : options_(std::move(options)), fans_(options_.roots) {}

HelperServer::~HelperServer() {
  for (auto& [id, c] : connections_) ::close(c.fd);
  if (listening_ >= 0) {
    ::close(listening_);
    ::unlink(options_.socket.c_str());
  }
}

Result<void, std::string> HelperServer::start() {
  // A run that ended without putting its fans back (a crash, a power cut) left their
  // states here.
  if (auto text = AtomicFile::read(options_.state)) {
    if (auto saved = platform::FanControl::decodeSaved(*text)) {
      if (auto restored = platform::FanControl::restoreSaved(options_.roots, *saved); restored) {
        spdlog::info("Put {} fan(s) left under manual control by an earlier run back to their own control.", saved->size());
      } else {
        spdlog::warn("Not every fan left by an earlier run could be put back: {}", restored.error().message);
      }
    } else {
      spdlog::warn("The fan state file {} could not be read and was removed.", options_.state.string());
    }
    std::error_code ignored;
    std::filesystem::remove(options_.state, ignored);
  } else if (!text.error().missing) {
    spdlog::warn("The fan state file cannot be read: {}", text.error().message);
  }

  const auto address = BridgeSocket::address(options_.socket);
  if (!address) return fail(std::string("The socket path is too long."));
  // Only a socket left by an earlier run is removed; anything else at the path is a mistake.
  struct stat existing {};
  if (::lstat(options_.socket.c_str(), &existing) == 0) {
    if (!S_ISSOCK(existing.st_mode)) return fail(fmt::format("{} exists and is not a socket.", options_.socket));
    ::unlink(options_.socket.c_str());
  }
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (fd < 0) return fail(fmt::format("The socket cannot be made: {}.", errorText()));
  const mode_t before = ::umask(0177);
  const int bound = ::bind(fd, reinterpret_cast<const sockaddr*>(&*address), sizeof(sockaddr_un));
  const int bindError = errno;
  ::umask(before);
  if (bound != 0) {
    ::close(fd);
    return fail(fmt::format("The socket {} cannot be bound: {}.", options_.socket, std::strerror(bindError)));
  }
  // Anyone may connect; who is served is decided per connection by the peer's uid.
  if (::chmod(options_.socket.c_str(), 0666) != 0 || ::listen(fd, 16) != 0) {
    const std::string reason = errorText();
    ::close(fd);
    ::unlink(options_.socket.c_str());
    return fail(fmt::format("The socket {} cannot listen: {}.", options_.socket, reason));
  }
  listening_ = fd;
  return {};
}

int HelperServer::run() {
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGTERM);
  sigaddset(&stopSignals, SIGINT);
  const int signals = ::signalfd(-1, &stopSignals, SFD_CLOEXEC | SFD_NONBLOCK);
  if (signals < 0) {
    spdlog::error("Cannot wait for signals: {}", errorText());
    return 1;
  }
  spdlog::info("Listening on {} for uid {}.", options_.socket, options_.allowedUID);

  bool stopping = false;
  while (!stopping) {
    std::vector<pollfd> waits{{signals, POLLIN, 0}, {listening_, POLLIN, 0}};
    std::vector<uint64_t> ids;
    auto first = Clock::time_point::max();
    for (const auto& [id, c] : connections_) {
      waits.push_back({c.fd, static_cast<short>(c.out.empty() ? POLLIN : POLLOUT), 0});
      ids.push_back(id);
      first = std::min(first, c.deadline);
    }
    int timeout = -1;
    if (first != Clock::time_point::max())
      timeout = static_cast<int>(std::clamp<int64_t>(
          std::chrono::ceil<std::chrono::milliseconds>(first - Clock::now()).count(), 0, 60'000));
    const int n = ::poll(waits.data(), waits.size(), timeout);
    if (n < 0 && errno != EINTR) {
      spdlog::error("The helper stopped waiting for requests: {}", errorText());
      break;
    }
    if (n > 0) {
      if (waits[0].revents & POLLIN) {
        signalfd_siginfo info{};
        if (::read(signals, &info, sizeof info) > 0)
          spdlog::info("Stopping on signal {}.", info.ssi_signo);
        stopping = true;
        break;
      }
      if (waits[1].revents & POLLIN) accept();
      for (size_t i = 0; i < ids.size(); ++i) {
        const short events = waits[i + 2].revents;
        if (!events) continue;
        auto found = connections_.find(ids[i]);
        if (found == connections_.end()) continue;
        if (events & POLLOUT) writeTo(ids[i], found->second);
        else readFrom(ids[i], found->second);
      }
    }
    const auto now = Clock::now();
    std::vector<uint64_t> late;
    for (const auto& [id, c] : connections_)
      if (c.deadline <= now) late.push_back(id);
    for (const uint64_t id : late) close(id);
  }
  ::close(signals);
  while (!connections_.empty()) close(connections_.begin()->first);
  const bool hadFans = !fans_.changed().empty();
  if (auto restored = fans_.restore(); !restored) {
    spdlog::warn("Not every fan could be put back: {}", restored.error().message);
  } else {
    if (hadFans) spdlog::info("Every fan set through the helper is back under its own control.");
    std::error_code ignored;
    std::filesystem::remove(options_.state, ignored);
  }
  return 0;
}

void HelperServer::accept() {
  while (true) {
    const int fd = ::accept4(listening_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (fd < 0) {
      if (errno == EINTR || errno == ECONNABORTED) continue;
      if (errno != EAGAIN && errno != EWOULDBLOCK) spdlog::warn("A connection could not be accepted: {}", errorText());
      return;
    }
    ucred peer{};
    socklen_t length = sizeof peer;
    if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0) {
      ::close(fd);
      continue;
    }
    if (peer.uid != options_.allowedUID && peer.uid != 0) {
      spdlog::warn("Closed a connection from uid {} (process {}): the helper serves uid {} only.", peer.uid, peer.pid,
                   options_.allowedUID);
      ::close(fd);
      continue;
    }
    if (connections_.size() >= kMaxConnections) {
      spdlog::warn("Closed a connection from process {}: {} are open already.", peer.pid, kMaxConnections);
      ::close(fd);
      continue;
    }
    connections_[nextID_++] = Connection{fd, peer.uid, {}, {}, Clock::now() + kIdle};
  }
}

void HelperServer::readFrom(uint64_t id, Connection& c) {
  char scratch[kReadChunk];
  const ssize_t n = ::recv(c.fd, scratch, sizeof scratch, 0);
  if (n < 0 && (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK)) return;
  if (n <= 0) return close(id);
  c.in.append(scratch, static_cast<size_t>(n));
  size_t newline;
  while ((newline = c.in.find('\n')) != std::string::npos) {
    const std::string line = c.in.substr(0, newline);
    c.in.erase(0, newline + 1);
    if (line.size() > HelperProtocol::kMaxLineBytes) return close(id);
    c.out += answer(id, line);
    c.out += '\n';
    c.deadline = Clock::now() + kIdle;
    if (c.out.size() > kMaxPendingReply) return close(id);
  }
  if (c.in.size() > HelperProtocol::kMaxLineBytes) {
    spdlog::warn("Closed a connection that sent a request longer than {} bytes.", HelperProtocol::kMaxLineBytes);
    return close(id);
  }
  if (!c.out.empty()) writeTo(id, c);
}

void HelperServer::writeTo(uint64_t id, Connection& c) {
  while (!c.out.empty()) {
    const ssize_t n = ::send(c.fd, c.out.data(), c.out.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;  // poll waits for room
    if (n <= 0) return close(id);
    c.out.erase(0, static_cast<size_t>(n));
  }
}

void HelperServer::close(uint64_t id) {
  const auto found = connections_.find(id);
  if (found == connections_.end()) return;
  ::close(found->second.fd);
  connections_.erase(found);
  bool changed = false;
  for (auto it = owners_.begin(); it != owners_.end();) {
    if (it->second != id) {
      ++it;
      continue;
    }
    const int index = it->first;
    it = owners_.erase(it);
    changed = true;
    if (auto restored = fans_.restore(index); restored)
      spdlog::info("Fan {} is back under its own control: the connection that set it closed.", index);
    else
      spdlog::warn("Fan {} could not be put back: {}", index, restored.error().message);
  }
  if (changed) saveState();
}

std::string HelperServer::answer(uint64_t id, std::string_view line) {
  auto request = HelperProtocol::decodeRequest(line);
  if (!request) return HelperProtocol::encodeFailure(request.error());
  switch (request->op) {
    case HelperRequest::Op::hello:
      return HelperProtocol::encodeHello({HelperProtocol::kVersion, options_.allowedUID});
    case HelperRequest::Op::rapl: {
      auto counters = platform::readRaplCounters(options_.roots);
      if (!counters)
        return HelperProtocol::encodeFailure(
            fmt::format("The energy counters cannot be read: {}.", std::strerror(counters.error().error)));
      return HelperProtocol::encodeRapl(*counters);
    }
    case HelperRequest::Op::processes:
      return HelperProtocol::encodeProcesses(readProcesses(options_.roots, request->pids));
    case HelperRequest::Op::fans:
      return HelperProtocol::encodeFans(fans_.fans());
    case HelperRequest::Op::setFan: {
      const int index = request->fanIndex;
      if (!request->rpm) {
        auto done = fans_.setAutomatic(index);
        owners_.erase(index);
        saveState();
        if (!done) return HelperProtocol::encodeFailure(done.error().message);
        spdlog::info("Fan {} is back under its own control, as asked.", index);
        return HelperProtocol::encodeFanSet({index, std::nullopt});
      }
      auto set = fans_.setSpeed(index, *request->rpm);
      const auto changed = fans_.changed();
      // A write that failed halfway may still have changed the mode: the fan is owned either way.
      if (std::any_of(changed.begin(), changed.end(), [&](const auto& s) { return s.fan.index == index; }))
        owners_[index] = id;
      saveState();
      if (!set) return HelperProtocol::encodeFailure(set.error().message);
      spdlog::info("Fan {} set to {:.0f} rpm.", index, *set);
      return HelperProtocol::encodeFanSet({index, *set});
    }
  }
  return HelperProtocol::encodeFailure("The helper knows no such request.");
}

void HelperServer::saveState() {
  const auto changed = fans_.changed();
  std::error_code ignored;
  if (changed.empty()) {
    std::filesystem::remove(options_.state, ignored);
    return;
  }
  if (auto written = AtomicFile::write(options_.state, platform::FanControl::encodeSaved(changed), 0600); !written)
    spdlog::warn("The fans' states could not be kept on disk: {}", written.error().message);
}

}  // namespace omnira::helper
