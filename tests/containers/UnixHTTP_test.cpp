// The Unix-socket GET against a real local server that answers as told: chunks split
// across writes, error statuses, a reply without a header end, silence.

#include "OmniraCore/containers/UnixHTTP.h"

#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "tests/containers/FakeEngine.h"
#include "tests/platform/linux/TempTree.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::FakeEngine;

// An engine that gives every request the same reply.
FakeEngine replying(const fs::path& path, FakeEngine::Reply reply) {
  return FakeEngine(path, [reply](const std::string&) { return reply; });
}

struct UnixHTTPTest : ::testing::Test {
  platform::TempTree tree;
  const fs::path& dir_ = tree.root();
};

TEST_F(UnixHTTPTest, ReadsChunkedAndPlainRepliesAndSendsTheExactRequest) {
  const std::string json = R"([{"Id":"abc","Names":["/web"]}])";
  {
    // The size line and a chunk are each split across writes.
    const auto server = replying(
        dir_ / "chunked.sock",
        {"HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nTransfer-Encoding: chunked\r\n\r\n1", 0ms,
         {"0\r\n" + json.substr(0, 16), "\r\n" + std::string("f;ext=1\r\n") + json.substr(16) + "\r\n0\r\n\r\n"}});
    const auto body = UnixHTTP::get("/containers/json", (dir_ / "chunked.sock").string(), 2000ms);
    ASSERT_TRUE(body.ok()) << body.error().message;
    EXPECT_EQ(*body, json);
    EXPECT_EQ(server.requests().at(0),
              "GET /containers/json HTTP/1.1\r\nHost: localhost\r\nAccept: application/json\r\nContent-Length: 0\r\n"
              "Connection: close\r\n\r\n");
  }
  const auto plain = replying(dir_ / "plain.sock", {"HTTP/1.0 304 Not Modified\r\nServer: x\r\n\r\n", 0ms, {json}});
  const auto body = UnixHTTP::get("/info", (dir_ / "plain.sock").string(), 2000ms);
  ASSERT_TRUE(body.ok()) << body.error().message;
  EXPECT_EQ(*body, json);
}

TEST_F(UnixHTTPTest, EachWayToFailHasItsText) {
  const auto notFound = replying(dir_ / "404.sock", FakeEngine::json("{\"message\":\"no such container\"}", 404));
  EXPECT_EQ(UnixHTTP::get("/x", notFound.path(), 2000ms).error().message, "status 404");
  const auto headless = replying(dir_ / "headless.sock", {"HTTP/1.1 200 OK\r\nContent-Length: 2\r\n"});
  EXPECT_EQ(UnixHTTP::get("/x", headless.path(), 2000ms).error().message, "no header");
  // Says nothing for longer than the time-out: the read gives up (only that it ends is checked).
  const auto silent = replying(dir_ / "silent.sock", {"", 1000ms});
  EXPECT_EQ(UnixHTTP::get("/x", silent.path(), 200ms).error().message, std::string("read ") + std::strerror(EAGAIN));
  EXPECT_EQ(UnixHTTP::get("/x", (dir_ / "missing.sock").string(), 200ms).error().message,
            std::string("connect ") + std::strerror(ENOENT));
  std::ofstream(dir_ / "regular") << "not a socket";
  EXPECT_EQ(UnixHTTP::get("/x", (dir_ / "regular").string(), 200ms).error().message,
            std::string("connect ") + std::strerror(ECONNREFUSED));
  EXPECT_EQ(UnixHTTP::get("/x", "/" + std::string(103, 'a'), 200ms).error().message, "The socket path is too long.");

  for (const char* broken : {"zz\r\nab\r\n0\r\n\r\n", "5\r\nab", "2\r\nabXX0\r\n\r\n", "2\r\nab\r\n"}) {
    SCOPED_TRACE(broken);
    EXPECT_FALSE(UnixHTTP::dechunk(broken).ok());
  }
}

}  // namespace
}  // namespace omnira
