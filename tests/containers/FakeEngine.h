#pragma once
// A real Unix-socket server that answers any number of connections the way a container
// engine would, or would not: each request's path goes to `answer`, whose reply is sent
// after its delay, then its further pieces a moment apart (so a client's reads see them
// apart). A delay longer than the test is an engine that hangs; the server ends every wait
// when it is destroyed.

#include <sys/socket.h>
#include <sys/un.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace omnira::testing {

class FakeEngine {
 public:
  struct Reply {
    std::string text;  // the reply, status line included
    std::chrono::milliseconds delay{0};
    std::vector<std::string> more{};  // sent after it, 20 ms apart
  };
  using Answer = std::function<Reply(const std::string& path)>;

  static Reply json(std::string body, int status = 200) {
    return {"HTTP/1.1 " + std::to_string(status) + " X\r\nContent-Type: application/json\r\n\r\n" + std::move(body)};
  }

  FakeEngine(std::filesystem::path path, Answer answer) : path_(std::move(path)), answer_(std::move(answer)) {
    std::filesystem::remove(path_);
    fd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path_.c_str(), sizeof address.sun_path - 1);
    if (::bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || ::listen(fd_, 64) != 0) return;
    acceptor_ = std::thread([this] { acceptLoop(); });
  }
  ~FakeEngine() {
    {
      std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    wake_.notify_all();
    if (acceptor_.joinable()) acceptor_.join();
    for (auto& handler : handlers_) handler.join();
    ::close(fd_);
    std::filesystem::remove(path_);
  }
  std::string path() const { return path_.string(); }
  // Paths asked so far, in the order they arrived, and the whole requests.
  std::vector<std::string> asked() const {
    std::lock_guard lock(mutex_);
    return asked_;
  }
  std::vector<std::string> requests() const {
    std::lock_guard lock(mutex_);
    return requests_;
  }

 private:
  void acceptLoop() {
    while (true) {
      pollfd p{fd_, POLLIN, 0};
      if (::poll(&p, 1, 20) > 0) {
        const int client = ::accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC);
        if (client >= 0) handlers_.emplace_back([this, client] { serve(client); });
      }
      std::lock_guard lock(mutex_);
      if (stopping_) return;
    }
  }
  void serve(int client) {
    std::string request;
    char buffer[4096];
    while (request.find("\r\n\r\n") == std::string::npos) {
      const ssize_t n = ::read(client, buffer, sizeof buffer);
      if (n <= 0) break;
      request.append(buffer, static_cast<size_t>(n));
    }
    const auto start = request.find(' ') + 1;
    const std::string path = request.substr(start, request.find(' ', start) - start);
    {
      std::lock_guard lock(mutex_);
      asked_.push_back(path);
      requests_.push_back(request);
    }
    const Reply reply = answer_(path);
    {
      std::unique_lock lock(mutex_);
      if (wake_.wait_for(lock, reply.delay, [this] { return stopping_; })) {
        ::close(client);
        return;
      }
    }
    (void)::send(client, reply.text.data(), reply.text.size(), MSG_NOSIGNAL);
    for (const auto& piece : reply.more) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      (void)::send(client, piece.data(), piece.size(), MSG_NOSIGNAL);
    }
    ::close(client);
  }

  std::filesystem::path path_;
  Answer answer_;
  int fd_ = -1;
  std::thread acceptor_;
  std::vector<std::thread> handlers_;  // touched by the acceptor only, then joined
  mutable std::mutex mutex_;           // guards stopping_, asked_ and requests_
  std::condition_variable wake_;
  bool stopping_ = false;
  std::vector<std::string> asked_;
  std::vector<std::string> requests_;
};

}  // namespace omnira::testing
