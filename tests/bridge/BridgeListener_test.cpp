// The bridge socket on real Unix sockets: the framing, the client call's failures, and
// clients that send two requests, garbage, too much, nothing at all, or run as another user.

#include "OmniraCore/bridge/BridgeListener.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include "tests/platform/linux/TempTree.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

namespace omnira {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using json = nlohmann::ordered_json;

// A client that speaks raw bytes: what it sends and all it reads until the server closes.
std::string talk(const std::string& path, const std::string& bytes) {
  const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
  auto address = BridgeSocket::address(path);
  if (::connect(fd, reinterpret_cast<const sockaddr*>(&*address), sizeof(sockaddr_un)) != 0) {
    ::close(fd);
    return "(no connection)";
  }
  const timeval limit{5, 0};
  ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  (void)BridgeSocket::write(fd, bytes);
  std::string got;
  char buffer[4096];
  for (ssize_t n; (n = ::read(fd, buffer, sizeof buffer)) > 0;) got.append(buffer, static_cast<size_t>(n));
  ::close(fd);
  return got;
}

class BridgeListenerTest : public ::testing::Test {
 protected:
  platform::TempTree tree;
  const fs::path& root_ = tree.root();

  // Answers each request with what it asked and who asked.
  BridgeListener echo() {
    return BridgeListener(path_, [this](json request, int32_t pid, BridgeListener::Reply reply) {
      ++handled_;
      reply(json{{"ok", true}, {"result", {{"asked", request}, {"pid", pid}}}});
    });
  }

  std::string path_ = (root_ / "Omnira" / "bridge.sock").string();
  std::atomic<int> handled_{0};
};

TEST_F(BridgeListenerTest, OneRequestAndOneReplyPerConnection) {
  // A socket file left by a crashed run does not block the start.
  fs::create_directories(fs::path(path_).parent_path());
  std::ofstream(path_) << "stale";
  auto listener = echo();
  ASSERT_TRUE(listener.start().ok());
  EXPECT_TRUE(listener.isListening());
  struct stat info {};
  ASSERT_EQ(::stat(path_.c_str(), &info), 0);
  EXPECT_TRUE(S_ISSOCK(info.st_mode));
  EXPECT_EQ(info.st_mode & 0077, 0u) << "the socket is the person's alone";

  const auto reply = BridgeSocket::ask(json{{"tool", "top_apps"}}, path_, 5s);
  ASSERT_TRUE(reply.ok());
  EXPECT_EQ((*reply)["result"]["asked"]["tool"], "top_apps");
  EXPECT_EQ((*reply)["result"]["pid"], ::getpid());

  // Two requests on one connection: the first is answered, the rest dropped, then it closes.
  const auto two = talk(path_, "{\"tool\":\"a\"}\n{\"tool\":\"b\"}\n");
  EXPECT_EQ(two, "{\"ok\":true,\"result\":{\"asked\":{\"tool\":\"a\"},\"pid\":" + std::to_string(::getpid()) + "}}\n");
  // Garbage, and a line over 4 MiB, are closed without a word.
  EXPECT_EQ(talk(path_, "not json\n"), "");
  EXPECT_TRUE(talk(path_, std::string(BridgeSocket::kMaxLineBytes + 20000, '[') + "\n").empty());
  EXPECT_EQ(handled_, 2);

  // Stopping removes the socket file; a client then hears that nothing is there.
  listener.stop();
  EXPECT_FALSE(fs::exists(path_));
  EXPECT_EQ(BridgeSocket::ask(json{{"tool", "x"}}, path_, 1s).error(), BridgeSocket::Failure{});
  // And it starts again.
  ASSERT_TRUE(listener.start().ok());
  EXPECT_TRUE(BridgeSocket::ask(json{{"tool", "x"}}, path_, 5s).ok());

  // A path over the limit is refused both ways.
  const std::string tooLong = "/tmp/" + std::string(99, 'x');
  EXPECT_EQ(BridgeListener(tooLong, {}).start().error().message, "The path to Omnira' socket is too long.");
}

TEST_F(BridgeListenerTest, SilentClientsHoldUpNobody) {
  auto listener = echo();
  ASSERT_TRUE(listener.start().ok());
  // Twenty clients connect and say nothing, and one sends half a line.
  std::vector<int> silent;
  for (int i = 0; i < 20; ++i) {
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    auto address = BridgeSocket::address(path_);
    ASSERT_EQ(::connect(fd, reinterpret_cast<const sockaddr*>(&*address), sizeof(sockaddr_un)), 0);
    silent.push_back(fd);
  }
  (void)BridgeSocket::write(silent.back(), "{\"tool\":");
  const auto started = std::chrono::steady_clock::now();
  const auto reply = BridgeSocket::ask(json{{"tool", "ports"}}, path_, 5s);
  ASSERT_TRUE(reply.ok());
  EXPECT_LT(std::chrono::steady_clock::now() - started, 2s) << "an honest client waited for the silent ones";
  for (const int fd : silent) ::close(fd);
}

TEST_F(BridgeListenerTest, AReplyThatComesAfterTheStopGoesNowhere) {
  BridgeListener::Reply kept;
  std::mutex mutex;
  BridgeListener listener(path_, [&](json, int32_t, BridgeListener::Reply reply) {
    std::lock_guard guard(mutex);
    kept = std::move(reply);
  });
  ASSERT_TRUE(listener.start().ok());
  std::thread client([&] { (void)BridgeSocket::ask(json{{"tool", "quit"}}, path_, 5s); });
  while (true) {
    std::lock_guard guard(mutex);
    if (kept) break;
  }
  listener.stop();  // the client's connection closes; it gets no reply
  client.join();
  kept(json{{"ok", true}});  // late, from the owner's thread: nothing happens, nothing breaks
}

TEST_F(BridgeListenerTest, APeerOfAnotherUserIsClosedWithoutAReply) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to run a client as another user";
  auto listener = echo();
  ASSERT_TRUE(listener.start().ok());
  // Let anyone reach the file, so only the peer check stands in the way.
  fs::permissions(root_, fs::perms::all);
  fs::permissions(fs::path(path_).parent_path(), fs::perms::all);
  fs::permissions(path_, fs::perms::all);
  const pid_t child = ::fork();
  if (child == 0) {
    if (::setgid(65534) != 0 || ::setuid(65534) != 0) ::_exit(3);
    const auto got = talk(path_, "{\"tool\":\"top_apps\"}\n");
    ::_exit(got == "(no connection)" ? 4 : got.empty() ? 0 : 5);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0) << "4: could not connect; 5: it got a reply";
  EXPECT_EQ(handled_, 0);
}

}  // namespace
}  // namespace omnira
