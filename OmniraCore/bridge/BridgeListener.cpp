#include "OmniraCore/bridge/BridgeListener.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <unordered_map>
#include <vector>

#include <spdlog/spdlog.h>

#include "OmniraCore/foundation/JSONText.h"

namespace omnira {

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kTimeout = std::chrono::seconds(BridgeListener::kTimeoutSeconds);

BridgeSocket::Failure failure(const char* prefix) {
  return BridgeSocket::Failure{std::string(prefix) + std::strerror(errno)};
}

void wake(int eventFD) {
  const uint64_t one = 1;
  while (::write(eventFD, &one, sizeof one) < 0 && errno == EINTR) {
  }
}

}  // namespace

// The I/O thread's state. `mutex` guards what other threads hand in (accepted
// connections, replies, the stop flag); the connections themselves belong to the I/O
// thread alone.
struct BridgeListener::IO : std::enable_shared_from_this<IO> {
  enum class State { reading, waiting, writing };
  struct Connection {
    int fd = -1;
    int32_t pid = 0;
    State state = State::reading;
    std::string buffer;  // what came in while reading, what is left to send while writing
    Clock::time_point deadline;
  };

  explicit IO(Handler handler) : handler(std::move(handler)) {}
  ~IO() {
    if (epoll >= 0) ::close(epoll);
    if (eventFD >= 0) ::close(eventFD);
  }

  bool begin() {
    epoll = ::epoll_create1(EPOLL_CLOEXEC);
    eventFD = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (epoll < 0 || eventFD < 0) return false;
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = 0;
    if (::epoll_ctl(epoll, EPOLL_CTL_ADD, eventFD, &event) != 0) return false;
    thread = std::thread([self = shared_from_this()] { self->run(); });
    ::pthread_setname_np(thread.native_handle(), "Omnira bridgeIO");
    return true;
  }

  void end() {
    {
      std::lock_guard guard(mutex);
      stopping = true;
    }
    wake(eventFD);
    if (thread.joinable()) thread.join();
  }

  // Any thread.
  void adopt(int fd, int32_t pid) {
    std::lock_guard guard(mutex);
    incoming.emplace_back(fd, pid);
    wake(eventFD);
  }
  void post(uint64_t id, std::string text) {
    std::lock_guard guard(mutex);
    if (stopping) return;
    replies.emplace_back(id, std::move(text));
    wake(eventFD);
  }

  void run() {
    std::array<epoll_event, 64> events{};
    while (true) {
      const int n = ::epoll_wait(epoll, events.data(), static_cast<int>(events.size()), waitMilliseconds());
      if (n < 0 && errno != EINTR) {
        spdlog::error("The bridge stopped reading requests: {}", std::strerror(errno));
        break;
      }
      for (int i = 0; i < n; ++i) {
        const uint64_t id = events[static_cast<size_t>(i)].data.u64;
        if (id == 0) {
          uint64_t count = 0;
          (void)::read(eventFD, &count, sizeof count);
        } else if (auto found = connections.find(id); found != connections.end()) {
          if (found->second.state == State::reading) readFrom(id, found->second);
          else if (found->second.state == State::writing) writeTo(id, found->second);
        }
      }
      decltype(incoming) accepted;
      decltype(replies) answered;
      {
        std::lock_guard guard(mutex);
        if (stopping) break;
        accepted.swap(incoming);
        answered.swap(replies);
      }
      for (const auto& [fd, pid] : accepted) open(fd, pid);
      for (auto& [id, text] : answered) {
        auto found = connections.find(id);
        if (found == connections.end() || found->second.state != State::waiting) continue;
        found->second.state = State::writing;
        found->second.buffer = std::move(text);
        found->second.deadline = Clock::now() + kTimeout;
        writeTo(id, found->second);
      }
      expire();
    }
    for (auto& [id, c] : connections) ::close(c.fd);
    connections.clear();
    std::lock_guard guard(mutex);
    for (const auto& [fd, pid] : incoming) ::close(fd);
    incoming.clear();
  }

  int waitMilliseconds() const {
    std::optional<Clock::time_point> first;
    for (const auto& [id, c] : connections)
      if (c.state != State::waiting && (!first || c.deadline < *first)) first = c.deadline;
    if (!first) return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*first - Clock::now()).count();
    return static_cast<int>(std::clamp<int64_t>(left, 0, 60'000));
  }

  void open(int fd, int32_t pid) {
    const int flags = ::fcntl(fd, F_GETFL);
    ::fcntl(fd, F_SETFL, flags | O_NONBLOCK);
    const uint64_t id = nextID++;
    epoll_event event{};
    event.events = EPOLLIN | EPOLLRDHUP;
    event.data.u64 = id;
    if (::epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event) != 0) {
      ::close(fd);
      return;
    }
    connections[id] = Connection{fd, pid, State::reading, {}, Clock::now() + kTimeout};
    readFrom(id, connections[id]);  // a quick client's line may be there already
  }

  void close(uint64_t id) {
    const auto found = connections.find(id);
    if (found == connections.end()) return;
    ::epoll_ctl(epoll, EPOLL_CTL_DEL, found->second.fd, nullptr);
    ::close(found->second.fd);
    connections.erase(found);
  }

  void readFrom(uint64_t id, Connection& c) {
    std::array<char, BridgeSocket::kReadChunk> scratch{};
    while (true) {
      if (c.buffer.size() >= BridgeSocket::kMaxLineBytes) return close(id);
      const ssize_t n = ::read(c.fd, scratch.data(), scratch.size());
      if (n < 0 && errno == EINTR) continue;
      if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;
      if (n <= 0) return close(id);  // gone before a whole line
      const std::string_view got(scratch.data(), static_cast<size_t>(n));
      const auto newline = got.find('\n');
      c.buffer.append(got.substr(0, newline));
      if (newline != std::string_view::npos) break;  // what follows it is dropped
    }
    auto request = nlohmann::ordered_json::parse(c.buffer, nullptr, /*allow_exceptions=*/false);
    c.buffer.clear();
    if (request.is_discarded()) return close(id);
    // Nothing more is read from it: interest ends until the reply is ready.
    epoll_event event{};
    event.data.u64 = id;
    ::epoll_ctl(epoll, EPOLL_CTL_MOD, c.fd, &event);
    c.state = State::waiting;
    handler(std::move(request), c.pid, [weak = weak_from_this(), id](const nlohmann::ordered_json& reply) {
      if (auto io = weak.lock()) io->post(id, jsonText(reply) + "\n");
    });
  }

  void writeTo(uint64_t id, Connection& c) {
    while (!c.buffer.empty()) {
      const ssize_t n = ::send(c.fd, c.buffer.data(), c.buffer.size(), MSG_NOSIGNAL);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
        epoll_event event{};
        event.events = EPOLLOUT;
        event.data.u64 = id;
        ::epoll_ctl(epoll, EPOLL_CTL_MOD, c.fd, &event);
        return;
      }
      if (n <= 0) break;  // the client left: nothing to do about it
      c.buffer.erase(0, static_cast<size_t>(n));
    }
    close(id);
  }

  void expire() {
    const auto now = Clock::now();
    std::vector<uint64_t> late;
    for (const auto& [id, c] : connections)
      if (c.state != State::waiting && c.deadline <= now) late.push_back(id);
    for (const uint64_t id : late) close(id);
  }

  Handler handler;
  int epoll = -1;
  int eventFD = -1;
  std::thread thread;
  std::mutex mutex;
  std::vector<std::pair<int, int32_t>> incoming;
  std::vector<std::pair<uint64_t, std::string>> replies;
  bool stopping = false;
  std::unordered_map<uint64_t, Connection> connections;  // the I/O thread's
  uint64_t nextID = 1;                                    // 0 is the wake-up
};

BridgeListener::BridgeListener(std::string path, Handler handler) : path_(std::move(path)), handler_(std::move(handler)) {}

BridgeListener::~BridgeListener() { stop(); }

bool BridgeListener::isListening() const {
  std::lock_guard guard(lock_);
  return descriptor_ >= 0;
}

Result<void, BridgeSocket::Failure> BridgeListener::start() {
  if (isListening()) return {};
  std::error_code ignored;
  std::filesystem::create_directories(std::filesystem::path(path_).parent_path(), ignored);
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return fail(failure("socket: "));
  const auto address = BridgeSocket::address(path_);
  if (!address) {
    ::close(fd);
    return fail(address.error());
  }
  // A socket file left by a run that crashed must not block this one.
  ::unlink(path_.c_str());
  const mode_t before = ::umask(0077);
  const int bound = ::bind(fd, reinterpret_cast<const sockaddr*>(&*address), sizeof(sockaddr_un));
  const int bindError = errno;
  ::umask(before);
  if (bound != 0 || ::listen(fd, kBacklog) != 0) {
    if (bound != 0) errno = bindError;
    auto failed = failure("listen: ");
    ::close(fd);
    return fail(std::move(failed));
  }
  auto io = std::make_shared<IO>(handler_);
  if (!io->begin()) {
    auto failed = failure("listen: ");
    ::close(fd);
    ::unlink(path_.c_str());
    return fail(std::move(failed));
  }
  io_ = std::move(io);
  {
    std::lock_guard guard(lock_);
    descriptor_ = fd;
  }
  acceptThread_ = std::thread([this, fd] { acceptLoop(fd); });
  ::pthread_setname_np(acceptThread_.native_handle(), "Omnira bridge");
  return {};
}

void BridgeListener::acceptLoop(int listening) {
  const uid_t person = ::getuid();
  while (true) {
    // stop() shuts the socket down, which wakes this wait.
    pollfd wait{listening, POLLIN, 0};
    if (::poll(&wait, 1, -1) < 0 && errno != EINTR) return;
    if (!isListening()) return;
    const int fd = ::accept4(listening, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) {
      if (errno == EINTR || errno == EAGAIN || errno == ECONNABORTED) continue;
      if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
        // Out of descriptors for now: waiting beats leaving the loop for good.
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        continue;
      }
      return;
    }
    ucred peer{};
    socklen_t length = sizeof peer;
    if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0 || peer.uid != person) {
      ::close(fd);  // only the person's own processes may ask
      continue;
    }
    io_->adopt(fd, static_cast<int32_t>(peer.pid));
  }
}

void BridgeListener::stop() {
  int fd = -1;
  {
    std::lock_guard guard(lock_);
    fd = descriptor_;
    descriptor_ = -1;
  }
  if (fd >= 0) ::shutdown(fd, SHUT_RDWR);
  if (acceptThread_.joinable()) acceptThread_.join();
  if (fd >= 0) {
    ::close(fd);
    ::unlink(path_.c_str());
  }
  if (io_) {
    io_->end();
    io_.reset();
  }
}

}  // namespace omnira
