// How fast agents are answered, through the real socket, by the real bridge host answering
// from a running store, on a machine with EXTRA more idle processes (default 1,000):
//   tool calls     p50 and p99 of one `ask` round trip for top_apps, find_process and ports
//   idle clients   the same for ports while 100 clients hold connections open and say nothing
//   omnira mcp     from starting `omnira mcp` to its initialize reply, and to the reply of its
//                  first tools/call (initialize, initialized, tools/call written at once)
// Prints the figures as JSON. The host's clock moves a second per question here, so the
// rate limit, which is the person's protection and not a cost, stays out of the figures.
// Usage: omnira_bridge_probe OMNIRA_COMMAND [EXTRA [CALLS]]

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QTimer>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

#include "Omnira/BridgeHost.h"
#include "Omnira/MonitorStore.h"
#include "OmniraCore/bridge/BridgeSocket.h"
#include "bench/IdleProcesses.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using json = nlohmann::ordered_json;

double percentile(std::vector<double> values, double p) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  const size_t at = std::min(values.size() - 1, static_cast<size_t>(p * static_cast<double>(values.size())));
  return values[at];
}

double millisecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// Starts `omnira mcp` with the data folder given, writes `lines` at once, and returns the
// milliseconds from the start to each reply line, `replies` of them.
std::vector<double> mcpReplies(const std::string& command, const fs::path& data, const std::vector<std::string>& lines,
                               size_t replies) {
  int in[2], out[2];
  if (::pipe(in) != 0 || ::pipe(out) != 0) return {};
  const auto start = Clock::now();
  const pid_t child = ::fork();
  if (child == 0) {
    ::dup2(in[0], STDIN_FILENO);
    ::dup2(out[1], STDOUT_FILENO);
    ::close(in[1]);
    ::close(out[0]);
    ::setenv("XDG_DATA_HOME", data.c_str(), 1);
    ::execl(command.c_str(), command.c_str(), "mcp", nullptr);
    ::_exit(127);
  }
  ::close(in[0]);
  ::close(out[1]);
  for (const auto& line : lines) (void)!::write(in[1], (line + "\n").data(), line.size() + 1);
  std::vector<double> times;
  std::string buffer;
  char chunk[65536];
  while (times.size() < replies) {
    const ssize_t n = ::read(out[0], chunk, sizeof chunk);
    if (n <= 0) break;
    for (ssize_t i = 0; i < n; ++i)
      if (chunk[i] == '\n') times.push_back(millisecondsSince(start));
  }
  ::close(in[1]);
  ::close(out[0]);
  ::waitpid(child, nullptr, 0);
  return times;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    fmt::print(stderr, "usage: omnira_bridge_probe OMNIRA_COMMAND [EXTRA [CALLS]]\n");
    return 2;
  }
  const std::string command = argv[1];
  int extra = 1000, calls = 200;
  if (argc > 2) std::from_chars(argv[2], argv[2] + std::strlen(argv[2]), extra);
  if (argc > 3) std::from_chars(argv[3], argv[3] + std::strlen(argv[3]), calls);

  const fs::path root = fs::temp_directory_path() / ("omnira-bridge-probe-" + std::to_string(::getpid()));
  fs::remove_all(root);
  fs::create_directories(root / "data" / "Omnira");
  fs::create_directories(root / "config");
  std::ofstream(root / "config" / "settings.json") << R"({"bridgeEnabled": true, "refreshSeconds": 1})";
  omnira::bench::IdleProcesses sleepers(extra);

  int argcQt = 1;
  char name[] = "omnira_bridge_probe";
  char* argvQt[] = {name, nullptr};
  QCoreApplication app(argcQt, argvQt);
  const omnira::AppPaths paths(root / "data" / "Omnira", root / "config");
  const auto settings = omnira::Settings::load(root / "config" / "settings.json");
  omnira::MonitorStore store({paths, settings});
  store.viewerAppeared();  // processes every tick, as while an agent asks
  store.start();
  omnira::Date now = std::chrono::system_clock::now();
  omnira::BridgeHost host({paths, "Debian GNU/Linux", "", [&] { return now += std::chrono::seconds(1); }}, settings);
  host.attach(&store);
  host.applySettings(settings);

  json figures;
  std::thread client([&] {
    const std::string socket = host.socketPath();
    // Wait for the first process sample, then measure.
    for (int i = 0; i < 600; ++i) {
      auto reply = omnira::BridgeSocket::ask({{"tool", "top_apps"}}, socket, std::chrono::seconds(5));
      if (reply && (*reply)["ok"] == true) break;
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    size_t processes = 0;
    for (const auto& g : store.allGroups()) processes += g.processCount();
    figures["processes"] = processes;
    const std::vector<std::pair<std::string, json>> asks = {
        {"top_apps", json::object()}, {"find_process", {{"name", "sleep"}}}, {"ports", json::object()}};
    const auto measure = [&](const std::string& tool, const json& arguments) {
      std::vector<double> ms;
      for (int i = 0; i < calls; ++i) {
        const auto start = Clock::now();
        auto reply = omnira::BridgeSocket::ask({{"tool", tool}, {"arguments", arguments}}, socket, std::chrono::seconds(5));
        ms.push_back(millisecondsSince(start));
        if (!reply || (*reply)["ok"] != true) fmt::print(stderr, "{} was not answered\n", tool);
      }
      return json{{"p50_ms", percentile(ms, 0.5)}, {"p99_ms", percentile(ms, 0.99)}};
    };
    for (const auto& [tool, arguments] : asks) figures[tool] = measure(tool, arguments);

    std::vector<int> idle;
    for (int i = 0; i < 100; ++i) {
      const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
      auto address = omnira::BridgeSocket::address(socket);
      if (::connect(fd, reinterpret_cast<const sockaddr*>(&*address), sizeof(sockaddr_un)) == 0) idle.push_back(fd);
      else ::close(fd);
    }
    figures["idle_connections"] = idle.size();
    figures["ports_beside_idle_clients"] = measure("ports", json::object());
    for (const int fd : idle) ::close(fd);

    const std::string init =
        R"({"jsonrpc":"2.0","id":1,"method":"initialize","params":{"protocolVersion":"2025-06-18","capabilities":{},"clientInfo":{"name":"probe","version":"1"}}})";
    std::vector<double> toInit, toCall;
    for (int i = 0; i < 30; ++i) {
      auto times = mcpReplies(command, root / "data",
                              {init, R"({"jsonrpc":"2.0","method":"notifications/initialized"})",
                               R"({"jsonrpc":"2.0","id":2,"method":"tools/call","params":{"name":"ports","arguments":{}}})"},
                              2);
      if (times.size() == 2) {
        toInit.push_back(times[0]);
        toCall.push_back(times[1]);
      }
    }
    figures["mcp_initialize_reply_ms"] = {{"p50", percentile(toInit, 0.5)}, {"p99", percentile(toInit, 0.99)}};
    figures["mcp_first_call_reply_ms"] = {{"p50", percentile(toCall, 0.5)}, {"p99", percentile(toCall, 0.99)}};
    QMetaObject::invokeMethod(&app, [] { QCoreApplication::quit(); }, Qt::QueuedConnection);
  });
  app.exec();
  client.join();
  host.stop();
  store.stop();
  fs::remove_all(root);
  fmt::print("{}\n", figures.dump(2));
  return 0;
}
