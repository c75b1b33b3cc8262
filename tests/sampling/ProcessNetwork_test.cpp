// Network bytes per process: the step over socket lists, and the whole path on this
// machine's own sockets with a real child process sending over loopback.

#include "OmniraCore/sampling/ProcessNetwork.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <memory>

#include "OmniraCore/platform/linux/LibProc.h"
#include "OmniraCore/platform/linux/SocketDiagnostics.h"
#include "OmniraCore/sampling/ProcessSampler.h"

namespace omnira {
namespace {

TCPSocket socket(uint64_t inode, uint64_t in, uint64_t out) {
  TCPSocket s;
  s.inode = inode;
  s.bytesReceived = in;
  s.bytesSent = out;
  return s;
}

TEST(ProcessNetwork, CountsWhatEachSocketMovedForItsHolder) {
  ProcessNetwork network;
  ProcessNetwork::Owners owners = {{1, 100}, {2, 100}, {3, 200}};
  // The baseline: what sockets carried before counts for nobody, held (1) or not (5).
  const std::vector<TCPSocket> first = {socket(1, 5000, 700), socket(2, 10, 10), socket(3, 1, 1),
                                        socket(5, 900, 900)};
  EXPECT_TRUE(network.moved(first).empty());
  auto moved = network.step(first, owners);
  EXPECT_TRUE(moved.empty());

  owners[4] = 200;  // opened since
  const std::vector<TCPSocket> second = {socket(1, 6000, 900), socket(2, 10, 10), socket(3, 0, 0),
                                         socket(4, 50, 60), socket(5, 999, 999), socket(6, 0, 0)};
  // Idle sockets, and new ones that carried nothing, need no holder.
  EXPECT_EQ(network.moved(second), (std::vector<uint64_t>{1, 4, 5}));
  moved = network.step(second, owners);
  EXPECT_EQ(moved[100], (ProcessNetwork::Bytes{1000, 200}));
  EXPECT_EQ(moved[200], (ProcessNetwork::Bytes{50, 60}));  // 3 went back: nothing
  EXPECT_EQ(moved.size(), 2u);                             // 5's bytes are nobody's

  // 1 closed (its bytes so far were counted); 5's holder is found: from its last figures.
  owners[5] = 300;
  owners[6] = 300;
  TCPSocket uncounted = socket(7, 0, 0);
  uncounted.bytesSent.reset();
  moved = network.step({socket(2, 15, 10), socket(5, 1000, 1001), socket(6, 30, 40), uncounted}, owners);
  EXPECT_EQ(moved[100], (ProcessNetwork::Bytes{5, 0}));
  EXPECT_EQ(moved[300], (ProcessNetwork::Bytes{1 + 30, 2 + 40}));
}

// The platform source with a clock the test steps, so rates are exact bytes per second.
class SteppedLibProc final : public ProcessSource {
 public:
  uint64_t now = 1'000'000'000;
  Result<void, ProcessReadFailure> listPIDs(std::vector<int32_t>& pids) override { return inner_.listPIDs(pids); }
  Result<std::unique_ptr<Handle>, ProcessReadFailure> open(int32_t pid) override { return inner_.open(pid); }
  Result<ProcessFacts, ProcessReadFailure> facts(int32_t pid) override { return inner_.facts(pid); }
  std::vector<std::string> arguments(int32_t pid) override { return inner_.arguments(pid); }
  std::optional<std::string> workingDirectory(int32_t pid) override { return inner_.workingDirectory(pid); }
  std::optional<ProportionalMemory> proportionalMemory(int32_t pid) override { return inner_.proportionalMemory(pid); }
  std::vector<ListeningSocket> listeningSockets() override { return inner_.listeningSockets(); }
  std::vector<uint64_t> socketInodes(int32_t pid) override { return inner_.socketInodes(pid); }
  std::optional<std::vector<TCPSocket>> tcpSockets() override { return inner_.tcpSockets(); }
  bool readsSocketsOf(uint32_t uid) override { return inner_.readsSocketsOf(uid); }
  uint64_t monotonicNanoseconds() override { return now; }

 private:
  platform::LibProc inner_;
};

const ProcessSample* withPID(const std::vector<ProcessSample>& samples, int32_t pid) {
  for (const auto& s : samples)
    if (s.pid == pid) return &s;
  return nullptr;
}

TEST(ProcessNetwork, ARealChildSendingOverLoopbackHasItsBytesCounted) {
  const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address), length), 0);
  ASSERT_EQ(::listen(listener, 1), 0);
  ASSERT_EQ(::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length), 0);
  int go[2];
  ASSERT_EQ(::pipe(go), 0);

  constexpr size_t kSent = 2'000'000;
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    // Connects, waits for the word, sends, then holds the connection until told to go.
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) ::_exit(2);
    char word;
    if (::read(go[0], &word, 1) != 1) ::_exit(3);
    std::vector<char> data(kSent, 'n');
    for (size_t sent = 0; sent < kSent;) {
      const ssize_t n = ::send(fd, data.data() + sent, kSent - sent, MSG_NOSIGNAL);
      if (n <= 0) ::_exit(4);
      sent += static_cast<size_t>(n);
    }
    if (::read(go[0], &word, 1) != 1) ::_exit(5);
    ::_exit(0);
  }
  const int connection = ::accept(listener, nullptr, nullptr);
  ASSERT_GE(connection, 0);

  auto source = std::make_unique<SteppedLibProc>();
  auto* clock = source.get();
  ProcessSampler sampler(std::move(source));
  (void)sampler.sample({.network = true});  // the baseline
  ASSERT_TRUE(sampler.measuredDetails().network);
  ASSERT_EQ(::write(go[1], "s", 1), 1);
  std::vector<char> buffer(65536);
  for (size_t got = 0; got < kSent;) {
    const ssize_t n = ::recv(connection, buffer.data(), buffer.size(), 0);
    ASSERT_GT(n, 0);
    got += static_cast<size_t>(n);
  }
  // Acknowledgements may trail the data by a moment, and bytes count once acknowledged.
  sockaddr_in peer{};
  socklen_t peerLength = sizeof peer;
  ASSERT_EQ(::getpeername(connection, reinterpret_cast<sockaddr*>(&peer), &peerLength), 0);
  platform::SocketDiagnostics diagnostics;
  bool acknowledged = false;
  for (int tries = 0; tries < 200 && !acknowledged; ++tries) {
    auto sockets = diagnostics.tcpSockets();
    ASSERT_TRUE(sockets.ok());
    for (const auto& s : *sockets) {
      if (s.localPort == ntohs(peer.sin_port) && s.bytesSent >= kSent) acknowledged = true;
    }
    if (!acknowledged) ::usleep(10'000);
  }
  ASSERT_TRUE(acknowledged);
  clock->now += 2'000'000'000;  // two seconds
  const auto samples = sampler.sample({.network = true});
  const auto* sender = withPID(samples, child);
  const auto* receiver = withPID(samples, ::getpid());
  ASSERT_TRUE(sender && receiver);
  EXPECT_DOUBLE_EQ(sender->networkOutBytesPerSec, kSent / 2.0);
  EXPECT_DOUBLE_EQ(receiver->networkInBytesPerSec, kSent / 2.0);
  // Not asked: not measured, and the last measured rates stand until the next measurement.
  clock->now += 2'000'000'000;
  const auto unmeasured = sampler.sample();
  EXPECT_FALSE(sampler.measuredDetails().network);
  ASSERT_NE(withPID(unmeasured, child), nullptr);
  EXPECT_DOUBLE_EQ(withPID(unmeasured, child)->networkOutBytesPerSec, kSent / 2.0);
  clock->now += 2'000'000'000;
  const auto idle = sampler.sample({.network = true});
  EXPECT_DOUBLE_EQ(withPID(idle, child)->networkOutBytesPerSec, 0.0);

  ASSERT_EQ(::write(go[1], "q", 1), 1);
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  ::close(connection);
  ::close(listener);
  ::close(go[0]);
  ::close(go[1]);
}

}  // namespace
}  // namespace omnira
