#include "OmniraCore/containers/ServerWatcher.h"

#include <gtest/gtest.h>

namespace omnira {
namespace {

using namespace std::chrono_literals;

struct Server {
  int32_t pid;
  uint16_t port;
  double cpu = 0;
  bool connected = false;
  const char* project = "/src/web";
};

// One tick's ports and groups with these servers listening.
std::pair<std::vector<Port>, std::vector<AppGroup>> tick(const std::vector<Server>& servers) {
  std::vector<Port> ports;
  std::vector<ProcessSample> samples;
  for (const auto& s : servers) {
    Port port;
    port.port = s.port;
    port.process = PortProcess{s.pid, "node", "exec:node", "node", s.project ? std::optional<std::string>(s.project) : std::nullopt};
    if (s.connected) port.connectedFrom.push_back(PortProcess{9, "firefox", "firefox.desktop", "Firefox", std::nullopt});
    ports.push_back(port);
    ProcessSample sample;
    sample.pid = s.pid;
    sample.cpuPercent = s.cpu;
    sample.memoryBytes = 300u << 20;
    samples.push_back(sample);
  }
  return {ports, {AppGroup("exec:node", "node", GroupKind::other, std::nullopt, samples)}};
}

TEST(ServerWatcher, AServerIsIdleAfterHalfAnHourWithoutConnectionsOrWork) {
  ServerWatcher watcher;
  const Date start = Date(std::chrono::seconds(1'800'000'000));
  auto ingest = [&](const std::vector<Server>& servers, auto after) {
    auto [ports, groups] = tick(servers);
    return watcher.ingest(ports, groups, start + after);
  };
  EXPECT_TRUE(ingest({{10, 3000}, {11, 5173}, {12, 8080, 0, false, nullptr}}, 0min).empty());
  // 10 stays untouched; 11 is used at minute 20; 12 works in no project.
  EXPECT_TRUE(ingest({{10, 3000}, {11, 5173, 0, true}, {12, 8080, 0, false, nullptr}}, 20min).empty());
  auto idle = ingest({{10, 3000}, {11, 5173}, {12, 8080, 0, false, nullptr}}, 30min);
  ASSERT_EQ(idle.size(), 1u);
  EXPECT_EQ(idle[0].pid, 10);
  EXPECT_EQ(idle[0].name, "web");
  // Busy again: not idle; 11 reaches its half hour of quiet.
  idle = ingest({{10, 3000, 25.0}, {11, 5173}}, 50min);
  ASSERT_EQ(idle.size(), 1u);
  EXPECT_EQ(idle[0].pid, 11);
  // A server that stopped is forgotten: back under the same pid, it starts afresh.
  EXPECT_TRUE(ingest({{10, 3000}}, 60min).empty());
  EXPECT_TRUE(ingest({{10, 3000}, {11, 5173}}, 61min).empty());
}

}  // namespace
}  // namespace omnira
