#pragma once
// A real HTTP/1.1 server on 127.0.0.1 for transport tests: one thread, one connection at a
// time, each answered by the handler and closed. A handler that returns nothing keeps the
// client waiting until the server stops (for timeouts).

#include <poll.h>

#include <functional>
#include <thread>

#include "tests/support/LoopbackHTTP.h"

namespace omnira::testing {

struct ReceivedRequest {
  std::string head;  // request line and headers
  std::string body;
};

class LocalHTTPServer {
 public:
  using Handler = std::function<std::optional<std::string>(const ReceivedRequest&)>;

  explicit LocalHTTPServer(Handler handler) : handler_(std::move(handler)) {
    listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
    int one = 1;
    ::setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in address = loopbackAddress();
    if (::bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || ::listen(listener_, 8) != 0)
      return;
    socklen_t length = sizeof address;
    ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(address.sin_port);
    if (::pipe(stop_) != 0) return;
    thread_ = std::thread([this] { run(); });
  }

  ~LocalHTTPServer() {
    if (thread_.joinable()) {
      char byte = 0;
      (void)!::write(stop_[1], &byte, 1);
      thread_.join();
    }
    ::close(stop_[0]);
    ::close(stop_[1]);
    ::close(listener_);
  }

  int port() const { return port_; }
  std::string url(const std::string& path) const { return "http://127.0.0.1:" + std::to_string(port_) + path; }

  static std::string answer(int status, const std::string& reason, const std::string& body,
                            const std::string& extraHeaders = "") {
    return "HTTP/1.1 " + std::to_string(status) + " " + reason + "\r\nContent-Length: " +
           std::to_string(body.size()) + "\r\nConnection: close\r\n" + extraHeaders + "\r\n" + body;
  }

  // A port on which nothing listens: bound once, then closed.
  static int closedPort() { return unusedPort(); }

 private:
  bool waitReadable(int fd) {
    pollfd fds[2] = {{fd, POLLIN, 0}, {stop_[0], POLLIN, 0}};
    return ::poll(fds, 2, -1) > 0 && (fds[1].revents & POLLIN) == 0;
  }

  void run() {
    while (waitReadable(listener_)) {
      int client = ::accept(listener_, nullptr, nullptr);
      if (client < 0) continue;
      serve(client);
      ::close(client);
    }
  }

  void serve(int client) {
    std::string data;
    char buffer[65536];
    std::optional<HTTPHead> head;
    while (!(head = parseHead(data)) || data.size() < head->bodyOffset + head->contentLength()) {
      if (!waitReadable(client)) return;
      const ssize_t got = ::read(client, buffer, sizeof buffer);
      if (got <= 0) return;
      data.append(buffer, static_cast<size_t>(got));
    }
    ReceivedRequest request{data.substr(0, head->bodyOffset - 4), data.substr(head->bodyOffset, head->contentLength())};
    const auto reply = handler_(request);
    if (!reply) {
      pollfd stop{stop_[0], POLLIN, 0};
      ::poll(&stop, 1, -1);
      return;
    }
    sendAll(client, *reply);
  }

  Handler handler_;
  int listener_ = -1;
  int port_ = 0;
  int stop_[2] = {-1, -1};
  std::thread thread_;
};

}  // namespace omnira::testing
