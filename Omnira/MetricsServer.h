#pragma once
// The /metrics endpoint: answers Prometheus' scrapes with the snapshot of the last tick,
// in the text format or in OpenMetrics as the Accept header asks. It never samples.
//
// Threads: start() and publish() are called on the main thread; the server accepts on
// its own thread ("Omnira metrics") and answers each connection on a thread of its own, so
// idle or slow clients hold only their own thread, never the tick or another scrape.
// The snapshot is owned by the server's State behind one mutex: publish() swaps the
// pointer, a scrape copies it and renders outside the lock.
//
// Access: a bearer token, when set, is checked on every request in constant time. Only
// /metrics with GET or HEAD is served: 404 for other paths, 405 for other methods, 401 with
// WWW-Authenticate for a missing or wrong token, 431 for headers over 8 KiB, 503 before
// the first tick. Bodies of errors are empty.
//
// Stop (the destructor) waits up to 2 s for open connections; a client still trickling its
// headers after that keeps the library's server (not this object) alive until it times out.
//
// Failures: start() refuses a malformed address, a non-loopback address without a token,
// and an address it cannot bind, each with a sentence for the log.

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/metrics/MetricFamily.h"

namespace httplib {
class Server;
}

namespace omnira {

struct MetricsConnections;

class MetricsServer {
 public:
  struct Options {
    std::string address = "127.0.0.1:9464";  // host:port, [v6]:port; port 0 takes a free one
    std::string token;                       // empty: no token asked
  };
  struct Failure {
    std::string message;
  };
  struct Endpoint {
    std::string host;
    uint16_t port = 0;
  };

  static Result<std::unique_ptr<MetricsServer>, Failure> start(const Options& options);
  ~MetricsServer();
  MetricsServer(const MetricsServer&) = delete;
  MetricsServer& operator=(const MetricsServer&) = delete;

  void publish(std::shared_ptr<const MetricsSnapshot> snapshot);
  // The port it listens on (the one bound when the address asked for port 0).
  uint16_t port() const { return port_; }

  // "127.0.0.1:9464", "[::1]:9464", "localhost:9464"; the failure is a sentence.
  static Result<Endpoint, Failure> parseAddress(std::string_view address);
  static bool isLoopback(std::string_view host);
  // Equal in length and bytes, in time that depends only on the lengths.
  static bool sameSecret(std::string_view a, std::string_view b);

 private:
  // What the request handler reads; shared with it, so that it outlives this object.
  struct State {
    std::string authorization;  // "Bearer <token>", empty when none is asked
    std::mutex mutex;           // guards snapshot only
    std::shared_ptr<const MetricsSnapshot> snapshot;
  };

  MetricsServer() = default;
  class Listener;
  std::shared_ptr<State> state_;
  std::unique_ptr<Listener> server_;
  std::shared_ptr<MetricsConnections> connections_;  // the connection threads' count
  std::thread thread_;
  uint16_t port_ = 0;
};

}  // namespace omnira
