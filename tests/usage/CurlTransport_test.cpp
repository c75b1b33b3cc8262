#include "OmniraCore/usage/CurlTransport.h"

#include <gtest/gtest.h>

#include "tests/usage/LocalHTTPServer.h"

namespace omnira {
namespace {

using testing::LocalHTTPServer;
using testing::ReceivedRequest;
using Kind = HTTPTransport::Failure::Kind;

TEST(CurlTransport, SendsTheRequestAndReturnsAnyStatusAsAnAnswer) {
  ReceivedRequest seen;
  LocalHTTPServer server([&](const ReceivedRequest& request) -> std::optional<std::string> {
    seen = request;
    if (request.head.starts_with("POST /usage ")) {
      return LocalHTTPServer::answer(200, "OK", R"({"used":0.25})", "X-Limit-Left: 75\r\n");
    }
    return LocalHTTPServer::answer(404, "Not Found", "no such page");
  });
  CurlTransport transport;

  HTTPTransport::Request post;
  post.method = "POST";
  post.url = server.url("/usage");
  post.headers = {{"Authorization", "Bearer fake-token"}, {"Content-Type", "application/json"}};
  post.body = R"({"ask":"limits"})";
  auto answer = transport.send(post);
  ASSERT_TRUE(answer.ok()) << answer.error().message;
  EXPECT_EQ(answer->status, 200);
  EXPECT_EQ(answer->body, R"({"used":0.25})");
  EXPECT_EQ(answer->header("x-limit-left"), "75");
  EXPECT_NE(seen.head.find("Authorization: Bearer fake-token\r\n"), std::string::npos);
  EXPECT_EQ(seen.body, R"({"ask":"limits"})");

  auto missing = transport.send({.method = "GET", .url = server.url("/elsewhere")});
  ASSERT_TRUE(missing.ok()) << missing.error().message;
  EXPECT_EQ(missing->status, 404);
}

TEST(CurlTransport, FailuresAreTypedAndNameOnlyTheHost) {
  CurlTransport transport;
  const int port = LocalHTTPServer::closedPort();
  auto refused = transport.send({.url = "http://127.0.0.1:" + std::to_string(port) + "/secret-path?key=abc"});
  ASSERT_FALSE(refused.ok());
  EXPECT_EQ(refused.error().kind, Kind::cannotConnect);
  EXPECT_EQ(refused.error().message, "Could not connect to 127.0.0.1.");

  LocalHTTPServer silent([](const ReceivedRequest&) { return std::nullopt; });
  auto waited = transport.send({.url = silent.url("/"), .timeout = 0.3});
  ASSERT_FALSE(waited.ok());
  EXPECT_EQ(waited.error().kind, Kind::timedOut);
  EXPECT_EQ(waited.error().message, "127.0.0.1 did not answer within 0.3 seconds.");

  LocalHTTPServer flood([](const ReceivedRequest&) {
    return LocalHTTPServer::answer(200, "OK", std::string(HTTPTransport::maxResponseBytes + 1, 'x'));
  });
  auto large = transport.send({.url = flood.url("/")});
  ASSERT_FALSE(large.ok());
  EXPECT_EQ(large.error().kind, Kind::tooLarge);

  EXPECT_EQ(transport.send({.url = "file:///etc/passwd"}).error().kind, Kind::invalidRequest);
  auto injected = transport.send({.url = flood.url("/"), .headers = {{"X-A", "b\r\nX-Evil: 1"}}});
  EXPECT_EQ(injected.error().kind, Kind::invalidRequest);
}

}  // namespace
}  // namespace omnira
