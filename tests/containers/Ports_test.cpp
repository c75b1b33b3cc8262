// Ports from socket lists, and `omnira ports` on this machine with a real listener and a
// real process connected to it.

#include "OmniraCore/containers/Ports.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/cli/CommandRun.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;

TCPSocket tcp(uint64_t inode, TCPSocket::State state, std::array<uint8_t, 4> local, uint16_t localPort,
              std::array<uint8_t, 4> remote = {}, uint16_t remotePort = 0, uint32_t uid = 1000) {
  TCPSocket s;
  s.inode = inode;
  s.state = static_cast<uint8_t>(state);
  std::copy(local.begin(), local.end(), s.localAddress.begin());
  std::copy(remote.begin(), remote.end(), s.remoteAddress.begin());
  s.localPort = localPort;
  s.remotePort = remotePort;
  s.uid = uid;
  return s;
}

TEST(Ports, ListenersWithTheirHoldersAndWhoIsConnected) {
  using State = TCPSocket::State;
  TCPSocket anyV6 = tcp(2, State::listening, {}, 3000);
  anyV6.ipv6 = true;  // "::": every interface
  const std::vector<TCPSocket> sockets = {
      tcp(1, State::listening, {127, 0, 0, 1}, 3000),
      anyV6,
      tcp(3, State::listening, {127, 0, 0, 1}, 5432),
      tcp(4, State::listening, {0, 0, 0, 0}, 22, {}, 0, /*uid=*/0),  // another user's
      tcp(5, State::listening, {127, 0, 0, 1}, 9000),                 // its holder is not known
      // A local client of 3000 (both ends listed), another from elsewhere.
      tcp(10, State::established, {127, 0, 0, 1}, 40000, {127, 0, 0, 1}, 3000),
      tcp(11, State::established, {127, 0, 0, 1}, 3000, {127, 0, 0, 1}, 40000),
      tcp(12, State::established, {10, 0, 0, 5}, 3000, {10, 0, 0, 9}, 51000),
      // The same client process twice: listed once.
      tcp(13, State::established, {127, 0, 0, 1}, 40001, {127, 0, 0, 1}, 3000),
      tcp(14, State::established, {127, 0, 0, 1}, 3000, {127, 0, 0, 1}, 40001),
  };
  const ProcessNetwork::Owners holders = {{1, 100}, {2, 100}, {3, 200}, {4, 1}, {10, 300}, {11, 100}, {13, 300}};
  ProcessSample web, db, browser;
  web.pid = 100, web.name = "node", web.projectPath = "/src/web";
  db.pid = 200, db.name = "postgres";
  browser.pid = 300, browser.name = "firefox";
  const std::vector<AppGroup> groups = {AppGroup("exec:node", "node", GroupKind::other, std::nullopt, {web, db}),
                                        AppGroup("firefox.desktop", "Firefox", GroupKind::app, std::nullopt, {browser})};

  const auto ports = Port::of(sockets, holders, groups, 1000);
  ASSERT_EQ(ports.size(), 3u);
  const Port& web3000 = ports[0];
  EXPECT_EQ(web3000.port, 3000);
  EXPECT_EQ(web3000.addresses, (std::vector<std::string>{"127.0.0.1", "::"}));
  ASSERT_TRUE(web3000.process);
  EXPECT_EQ(web3000.process->projectPath, "/src/web");
  ASSERT_EQ(web3000.connectedFrom.size(), 1u);
  EXPECT_EQ(web3000.connectedFrom[0].appName, "Firefox");
  EXPECT_EQ(web3000.remoteConnections, 1u);
  EXPECT_TRUE(ports[1].localOnly);
  EXPECT_EQ(ports[1].process->name, "postgres");
  EXPECT_EQ(ports[2].port, 9000);
  EXPECT_FALSE(ports[2].process);
  EXPECT_TRUE(Port::listened(sockets, 22));
}

uint16_t listenOn(int fd) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  if (::bind(fd, reinterpret_cast<sockaddr*>(&address), length) != 0 || ::listen(fd, 4) != 0) return 0;
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
  return ntohs(address.sin_port);
}

// `omnira ports` and `omnira can-quit` on a real listener of this test's, with a client of its
// own connected from another process, and on a port that is free.
using PortsCommand = testing::CommandHome;

TEST_F(PortsCommand, ShowsAndJudgesARealListenerWithItsClientAndSaysWhatIsFree) {
  const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
  const uint16_t port = listenOn(listener);
  ASSERT_NE(port, 0);
  const int spare = ::socket(AF_INET, SOCK_STREAM, 0);
  const uint16_t freePort = listenOn(spare);
  ::close(spare);  // free again

  const pid_t client = ::fork();
  ASSERT_GE(client, 0);
  if (client == 0) {
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) ::_exit(2);
    ::pause();
    ::_exit(0);
  }
  const int accepted = ::accept(listener, nullptr, nullptr);
  ASSERT_GE(accepted, 0);

  const auto json = run(fmt::format("ports {} {} --json", port, freePort), false);
  const auto text = run(fmt::format("ports {}", freePort), false);
  const auto wrong = run("ports 70000", true);
  const auto judged = run(fmt::format("can-quit --port {} --json", port), false);
  const auto noTarget = run("can-quit", true);
  const auto gone = run("can-quit --pid 999999999", true);
  const auto nothing = run(fmt::format("can-quit --port {}", freePort), true);
  ::kill(client, SIGKILL);
  ::waitpid(client, nullptr, 0);
  ::close(accepted);
  ::close(listener);

  ASSERT_EQ(json.status, 0) << json.out;
  const auto parsed = nlohmann::json::parse(json.out);
  ASSERT_EQ(parsed["ports"].size(), 1u) << json.out;
  const auto& found = parsed["ports"][0];
  EXPECT_EQ(found["port"], port);
  EXPECT_EQ(found["process"]["pid"], ::getpid());
  ASSERT_EQ(found["connectedFrom"].size(), 1u);
  EXPECT_EQ(found["connectedFrom"][0]["pid"], client);
  EXPECT_EQ(parsed["free"], nlohmann::json::array({freePort}));
  EXPECT_EQ(text.status, 0);
  EXPECT_EQ(text.out, fmt::format("{} is free.\n", freePort));
  EXPECT_EQ(wrong.status, 2);
  EXPECT_NE(wrong.out.find("not in range 1 to 65535"), std::string::npos) << wrong.out;

  ASSERT_EQ(judged.status, 0) << judged.out;
  const auto verdicts = nlohmann::json::parse(judged.out)["verdicts"];
  ASSERT_EQ(verdicts.size(), 1u);
  EXPECT_EQ(verdicts[0]["pid"], ::getpid());
  // This test runs the command, so it is in the asking chain, or of the system when root:
  // either way never to be quit.
  EXPECT_EQ(verdicts[0]["verdict"], "do_not");
  EXPECT_EQ(noTarget.status, 2);
  EXPECT_EQ(noTarget.out, "omnira: Give one of --pid, --pids, --port, --project or an app's or program's name.\n");
  EXPECT_EQ(gone.status, 1);
  EXPECT_EQ(nothing.status, 1);
  EXPECT_EQ(nothing.out, fmt::format("Nothing listens on port {}.\n", freePort));
}

}  // namespace
}  // namespace omnira
