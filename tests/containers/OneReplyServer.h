#pragma once
// A real Unix-socket server for tests that answers one connection as told.

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

namespace omnira::testing {

// Serves one connection: reads the request, then writes each piece with a pause between
// (so the client's reads see them apart) and closes, or stays silent for `silence`.
class OneReplyServer {
 public:
  OneReplyServer(std::filesystem::path path, std::vector<std::string> pieces, std::chrono::milliseconds silence = std::chrono::milliseconds(0))
      : path_(std::move(path)) {
    fd_ = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path_.c_str(), sizeof address.sun_path - 1);
    if (::bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || ::listen(fd_, 1) != 0) return;
    thread_ = std::thread([this, pieces = std::move(pieces), silence] {
      const int client = ::accept(fd_, nullptr, nullptr);
      if (client < 0) return;
      char buffer[4096];
      while (request_.find("\r\n\r\n") == std::string::npos) {
        const ssize_t n = ::read(client, buffer, sizeof buffer);
        if (n <= 0) break;
        request_.append(buffer, static_cast<size_t>(n));
      }
      std::this_thread::sleep_for(silence);
      for (const auto& piece : pieces) {
        (void)::send(client, piece.data(), piece.size(), MSG_NOSIGNAL);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
      }
      ::close(client);
    });
  }
  ~OneReplyServer() {
    if (thread_.joinable()) thread_.join();
    ::close(fd_);
    std::filesystem::remove(path_);
  }
  const std::string& request() {
    if (thread_.joinable()) thread_.join();
    return request_;
  }

 private:
  std::filesystem::path path_;
  int fd_ = -1;
  std::thread thread_;
  std::string request_;
};

}  // namespace omnira::testing
