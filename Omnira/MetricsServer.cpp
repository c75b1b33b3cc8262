#include "Omnira/MetricsServer.h"

#include <arpa/inet.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <condition_variable>
#include <deque>
#include <functional>

#include <fmt/format.h>
#include <httplib.h>
#include <spdlog/spdlog.h>

#include "OmniraCore/foundation/Parse.h"
#include "OmniraCore/metrics/Exposition.h"

namespace omnira {

namespace {

constexpr size_t kMaxHeaderBytes = 8 * 1024;
// Connections beyond this many wait for a free thread instead of getting one.
constexpr size_t kMaxThreads = 4096;
constexpr size_t kThreadStack = 256 * 1024;
constexpr int kBacklog = 1024;

}  // namespace

struct MetricsConnections {
  std::mutex mutex;
  std::condition_variable idle;
  size_t active = 0;
  std::deque<std::function<void()>> waiting;
};

namespace {

// One thread per connection: a client that holds its connection idle, or sends its headers
// a byte at a time, holds only its own thread until the read timeout, while the next scrape
// gets a thread of its own. The library's fixed pool would queue that scrape behind them.
// The threads share their count with the server, which outlives them (see ~MetricsServer).
class ConnectionThreads : public httplib::TaskQueue {
 public:
  using Shared = MetricsConnections;

  explicit ConnectionThreads(std::shared_ptr<Shared> shared) : shared_(std::move(shared)) {}

  void enqueue(std::function<void()> fn) override {
    std::unique_lock lock(shared_->mutex);
    if (shared_->active >= kMaxThreads) {
      shared_->waiting.push_back(std::move(fn));
      return;
    }
    ++shared_->active;
    lock.unlock();
    spawn(std::move(fn));
  }

  // Waits a little for the open connections; a client that keeps trickling bytes is not
  // waited for (the server then leaves its parts alive for it).
  void shutdown() override {
    std::unique_lock lock(shared_->mutex);
    shared_->idle.wait_for(lock, std::chrono::seconds(2),
                           [this] { return shared_->active == 0 && shared_->waiting.empty(); });
  }

 private:
  struct Start {
    std::shared_ptr<Shared> shared;
    std::function<void()> fn;
  };

  void spawn(std::function<void()> fn) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, kThreadStack);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    auto* start = new Start{shared_, std::move(fn)};
    pthread_t thread;
    const int error = pthread_create(&thread, &attributes, &ConnectionThreads::run, start);
    pthread_attr_destroy(&attributes);
    if (error == 0) return;
    // Out of threads: this connection is served on the accepting thread rather than
    // dropped, which would leak its socket.
    spdlog::warn("Cannot start a thread for a metrics connection: {}", std::strerror(error));
    run(start);
  }

  static void* run(void* argument) {
    std::unique_ptr<Start> start(static_cast<Start*>(argument));
    Shared& shared = *start->shared;
    std::function<void()> fn = std::move(start->fn);
    while (fn) {
      fn();
      std::lock_guard lock(shared.mutex);
      fn = nullptr;
      if (!shared.waiting.empty()) {
        fn = std::move(shared.waiting.front());
        shared.waiting.pop_front();
      } else {
        --shared.active;
        shared.idle.notify_all();
      }
    }
    return nullptr;
  }

  std::shared_ptr<Shared> shared_;
};

// Each connection costs a descriptor; the soft limit is often 1,024.
void raiseDescriptorLimit() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= limit.rlim_max) return;
  limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 65536);
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

// The library's server, with its listening socket in reach: its compiled-in backlog of 5
// would refuse a burst of connections before the accepting thread sees them.
class MetricsServer::Listener : public httplib::Server {
 public:
  void widenBacklog() { ::listen(svr_sock_, kBacklog); }
};

Result<MetricsServer::Endpoint, MetricsServer::Failure> MetricsServer::parseAddress(std::string_view address) {
  const auto refuse = [&] {
    return fail(Failure{fmt::format("\"{}\" is not an address and port like 127.0.0.1:9464 or [::1]:9464.", address)});
  };
  std::string_view host, port;
  if (address.starts_with('[')) {
    const auto close = address.find(']');
    if (close == std::string_view::npos || address.substr(close + 1, 1) != ":") return refuse();
    host = address.substr(1, close - 1);
    port = address.substr(close + 2);
  } else {
    const auto colon = address.rfind(':');
    if (colon == std::string_view::npos) return refuse();
    host = address.substr(0, colon);
    port = address.substr(colon + 1);
    if (host.find(':') != std::string_view::npos) return refuse();  // a bare IPv6 address needs brackets
  }
  const auto number = parseNumber<uint16_t>(port);
  if (host.empty() || !number) return refuse();
  return Endpoint{std::string(host), *number};
}

bool MetricsServer::isLoopback(std::string_view host) {
  if (host == "localhost") return true;
  const std::string text(host);
  in_addr v4{};
  if (::inet_pton(AF_INET, text.c_str(), &v4) == 1) return (ntohl(v4.s_addr) >> 24) == 127;
  in6_addr v6{};
  if (::inet_pton(AF_INET6, text.c_str(), &v6) == 1) return IN6_IS_ADDR_LOOPBACK(&v6);
  return false;
}

bool MetricsServer::sameSecret(std::string_view a, std::string_view b) {
  // Every byte of the longer one is looked at, whatever differs first.
  const size_t length = std::max(a.size(), b.size());
  unsigned difference = a.size() == b.size() ? 0u : 1u;
  for (size_t i = 0; i < length; ++i) {
    const auto x = static_cast<unsigned char>(i < a.size() ? a[i] : 0);
    const auto y = static_cast<unsigned char>(i < b.size() ? b[i] : 0);
    difference |= static_cast<unsigned>(x ^ y);
  }
  return difference == 0;
}

Result<std::unique_ptr<MetricsServer>, MetricsServer::Failure> MetricsServer::start(const Options& options) {
  auto endpoint = parseAddress(options.address);
  if (!endpoint) return fail(endpoint.error());
  if (!isLoopback(endpoint->host) && options.token.empty())
    return fail(Failure{fmt::format("The metrics endpoint is not started: {} can be reached from other computers, so it "
                                    "needs a token (set metricsToken) or a loopback address such as 127.0.0.1.",
                                    options.address)});

  raiseDescriptorLimit();
  std::unique_ptr<MetricsServer> server(new MetricsServer());
  server->state_ = std::make_shared<State>();
  if (!options.token.empty()) server->state_->authorization = "Bearer " + options.token;
  server->server_ = std::make_unique<Listener>();
  auto& http = *server->server_;
  server->connections_ = std::make_shared<MetricsConnections>();
  http.new_task_queue = [shared = server->connections_] { return new ConnectionThreads(shared); };
  http.set_read_timeout(5, 0);
  http.set_write_timeout(5, 0);
  http.set_keep_alive_timeout(5);
  http.set_payload_max_length(64 * 1024);
  // Address reuse for a quick restart, but not the library's SO_REUSEPORT, which would let a
  // second server share the port instead of being refused.
  http.set_socket_options([](socket_t socket) {
    int yes = 1;
    ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  });
  http.set_pre_routing_handler([state = server->state_](const httplib::Request& request, httplib::Response& response) {
    size_t headerBytes = 0;
    for (const auto& [name, value] : request.headers) headerBytes += name.size() + value.size() + 4;
    if (headerBytes > kMaxHeaderBytes) {
      response.status = 431;
      return httplib::Server::HandlerResponse::Handled;
    }
    if (!state->authorization.empty() && !sameSecret(request.get_header_value("Authorization"), state->authorization)) {
      response.status = 401;
      response.set_header("WWW-Authenticate", "Bearer realm=\"omnira\"");
      return httplib::Server::HandlerResponse::Handled;
    }
    if (request.path != "/metrics") {
      response.status = 404;
      return httplib::Server::HandlerResponse::Handled;
    }
    if (request.method != "GET" && request.method != "HEAD") {
      response.status = 405;
      response.set_header("Allow", "GET, HEAD");
      return httplib::Server::HandlerResponse::Handled;
    }
    std::shared_ptr<const MetricsSnapshot> snapshot;
    {
      std::lock_guard lock(state->mutex);
      snapshot = state->snapshot;
    }
    if (!snapshot) {
      response.status = 503;
      response.set_header("Retry-After", "1");
      return httplib::Server::HandlerResponse::Handled;
    }
    const auto format = negotiateExposition(request.get_header_value("Accept"));
    response.status = 200;
    response.set_content(renderExposition(*snapshot, format), std::string(contentType(format)));
    return httplib::Server::HandlerResponse::Handled;
  });

  if (endpoint->port == 0) {
    const int port = http.bind_to_any_port(endpoint->host);
    if (port <= 0) return fail(Failure{fmt::format("The metrics endpoint cannot listen on {}.", options.address)});
    server->port_ = static_cast<uint16_t>(port);
  } else {
    if (!http.bind_to_port(endpoint->host, endpoint->port))
      return fail(Failure{fmt::format("The metrics endpoint cannot listen on {}: the address is in use or not this "
                                      "computer's.", options.address)});
    server->port_ = endpoint->port;
  }
  http.widenBacklog();
  server->thread_ = std::thread([listener = server->server_.get()] {
    pthread_setname_np(pthread_self(), "Omnira metrics");
    listener->listen_after_bind();
  });
  // The library's stop() does nothing until its loop has begun, so a server stopped right
  // after starting would never end.
  for (int i = 0; i < 5000 && !http.is_running(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  return server;
}

MetricsServer::~MetricsServer() {
  if (server_) server_->stop();
  if (thread_.joinable()) thread_.join();
  if (!connections_) return;
  std::lock_guard lock(connections_->mutex);
  if (connections_->active > 0 || !connections_->waiting.empty()) {
    // Their threads still run inside the library's server: it stays, for them, until the process ends.
    spdlog::warn("The metrics endpoint stopped with {} connections still sending; they are left to time out.",
                 connections_->active);
    (void)server_.release();
  }
}

void MetricsServer::publish(std::shared_ptr<const MetricsSnapshot> snapshot) {
  std::lock_guard lock(state_->mutex);
  state_->snapshot = std::move(snapshot);
}

}  // namespace omnira
