#pragma once
// The privileged helper's service: one thread, one poll loop over the listening socket,
// every connection and a signal descriptor.
//
// Who may ask: the socket is mode 0666 so the one allowed user can connect, and every
// connection whose peer (SO_PEERCRED) is neither that user nor root is closed at once,
// without a reply. Each connection may send many request lines (64 KiB each at most; a
// longer one closes it) and is closed after 10 s without a request.
//
// Fans: a connection owns the fans it set last; when it closes they go back to how they
// were. On SIGTERM or SIGINT every changed fan goes back before the loop ends. While any
// fan is changed, the remembered states are kept in the state file, so that a start after
// a crash or a power cut puts them back first.
//
// Owner: main(), on the main thread. Failures of start() are sentences.

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/platform/linux/FanControl.h"
#include "OmniraCore/platform/linux/Roots.h"

namespace omnira::helper {

class HelperServer {
 public:
  struct Options {
    std::string socket = "/run/omnira-helper.sock";
    uid_t allowedUID = 0;
    platform::Roots roots;
    std::filesystem::path state = "/var/lib/omnira-helper/fans.json";
  };

  static constexpr auto kIdle = std::chrono::seconds(10);
  static constexpr size_t kMaxConnections = 64;

  explicit HelperServer(Options options);
  ~HelperServer();
  HelperServer(const HelperServer&) = delete;
  HelperServer& operator=(const HelperServer&) = delete;

  // Puts back fans a crashed run left changed, then binds the socket.
  Result<void, std::string> start();
  // Serves until SIGTERM or SIGINT (which the caller has blocked), then puts every fan
  // back and removes the socket. Returns the exit status.
  int run();

 private:
  struct Connection {
    int fd = -1;
    uid_t uid = 0;
    std::string in;
    std::string out;
    std::chrono::steady_clock::time_point deadline;
  };

  void accept();
  void readFrom(uint64_t id, Connection& c);
  void writeTo(uint64_t id, Connection& c);
  void close(uint64_t id);
  std::string answer(uint64_t id, std::string_view line);
  void saveState();

  Options options_;
  int listening_ = -1;
  platform::FanControl fans_;
  std::map<int, uint64_t> owners_;  // fan index → the connection that set it last
  std::map<uint64_t, Connection> connections_;
  uint64_t nextID_ = 1;
};

}  // namespace omnira::helper
