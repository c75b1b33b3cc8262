#pragma once
// The bridge's listening end: binds the socket (stale file removed first, created under
// umask 077, backlog 16), accepts on its own thread ("Omnira bridge"), closes any peer of
// another user at once, and hands each request line to the handler with the peer's pid.
//
// Threads: the accept thread only accepts, checks the peer and passes the connection on.
// Reading requests and writing replies happen on one I/O thread ("Omnira bridge I/O")
// that waits on every open connection at once (epoll), so a slow or silent client never
// holds up another; each read and each write has 10 s, and a client that says nothing is
// closed after them. The handler is called on the I/O thread and must not block: it
// passes the request on and calls `reply` later, from any thread, at most once; a
// connection whose handler never replies stays open until the listener stops.
// `descriptor` is the only state the accept thread shares with the owner: one lock, the
// listener's. Owner: whoever started it (the application's bridge host, or a test);
// start() and stop() from that thread only.
//
// Failures of start() are sentences: BridgeSocket::kPathTooLong, "socket: …", "listen: …".

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include <nlohmann/json.hpp>

#include "OmniraCore/bridge/BridgeSocket.h"
#include "OmniraCore/foundation/Result.h"

namespace omnira {

class BridgeListener {
 public:
  using Reply = std::function<void(const nlohmann::ordered_json& reply)>;
  using Handler = std::function<void(nlohmann::ordered_json request, int32_t peerPID, Reply reply)>;

  static constexpr int kBacklog = 16;
  static constexpr int kTimeoutSeconds = 10;

  BridgeListener(std::string path, Handler handler);
  ~BridgeListener();  // stops
  BridgeListener(const BridgeListener&) = delete;
  BridgeListener& operator=(const BridgeListener&) = delete;

  Result<void, BridgeSocket::Failure> start();
  // Closes the socket and every connection, removes the socket file; replies that come
  // later go nowhere. Safe to call twice.
  void stop();
  bool isListening() const;
  const std::string& path() const { return path_; }

 private:
  struct IO;  // the I/O thread's state, shared with the reply callbacks

  void acceptLoop(int listening);

  std::string path_;
  Handler handler_;
  mutable std::mutex lock_;  // guards descriptor_
  int descriptor_ = -1;
  std::thread acceptThread_;
  std::shared_ptr<IO> io_;
};

}  // namespace omnira
