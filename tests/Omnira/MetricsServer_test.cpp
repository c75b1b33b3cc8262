#include "Omnira/MetricsServer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "tests/Omnira/MetricsHTTP.h"
#include "tests/support/Refused.h"

namespace omnira {
namespace {

using testing::request;

std::shared_ptr<const MetricsSnapshot> snapshotOf(double value) {
  return std::make_shared<const MetricsSnapshot>(MetricsSnapshot{
      {"omnira_app_processes", "Processes.", MetricFamily::Type::gauge, {{"", {{"app", "editor"}, {"kind", "app"}}, value}}},
      {"omnira_cpu_seconds", "CPU.", MetricFamily::Type::counter, {{"_total", {{"mode", "user"}}, 1.5}}}});
}

std::unique_ptr<MetricsServer> startServer(const MetricsServer::Options& options) {
  auto started = MetricsServer::start(options);
  EXPECT_TRUE(started.ok()) << (started.ok() ? "" : started.error().message);
  return started.ok() ? std::move(started).value() : nullptr;
}

TEST(MetricsServer, AnswersScrapesOfMetricsAndTheRightStatusForAnythingElse) {
  auto server = startServer({.address = "127.0.0.1:0"});
  ASSERT_TRUE(server);
  const uint16_t port = server->port();
  ASSERT_NE(port, 0);

  auto answer = request(port, "GET", "/metrics");
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 503);  // nothing sampled yet

  server->publish(snapshotOf(3));
  answer = request(port, "GET", "/metrics");
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 200);
  EXPECT_EQ(answer->headers["content-type"], "text/plain; version=0.0.4; charset=utf-8");
  EXPECT_NE(answer->body.find("omnira_app_processes{app=\"editor\",kind=\"app\"} 3\n"), std::string::npos) << answer->body;

  answer = request(port, "GET", "/metrics", "Accept: application/openmetrics-text;version=1.0.0,text/plain;q=0.5\r\n");
  ASSERT_TRUE(answer);
  EXPECT_TRUE(answer->headers["content-type"].starts_with("application/openmetrics-text; version=1.0.0"));
  EXPECT_TRUE(answer->body.ends_with("# EOF\n"));

  answer = request(port, "HEAD", "/metrics");
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 200);
  EXPECT_TRUE(answer->body.empty());

  answer = request(port, "GET", "/");
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 404);
  answer = request(port, "GET", "/metrics/../etc/passwd");
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 404);

  answer = request(port, "POST", "/metrics", "Content-Length: 5\r\n\r\nhello");
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 405);
  EXPECT_EQ(answer->headers["allow"], "GET, HEAD");

  std::string many;
  for (int i = 0; i < 20; ++i) many += "X-Filler-" + std::to_string(i) + ": " + std::string(1000, 'a') + "\r\n";
  answer = request(port, "GET", "/metrics", many);
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 431);

  // A new snapshot replaces the old one for the next scrape.
  server->publish(snapshotOf(7));
  answer = request(port, "GET", "/metrics");
  ASSERT_TRUE(answer);
  EXPECT_NE(answer->body.find("kind=\"app\"} 7\n"), std::string::npos);
}

TEST(MetricsServer, AsksForTheTokenOnEveryRequest) {
  auto server = startServer({.address = "127.0.0.1:0", .token = "s3cret-token"});
  ASSERT_TRUE(server);
  server->publish(snapshotOf(1));
  const uint16_t port = server->port();

  for (const std::string header : {"", "Authorization: Bearer wrong\r\n", "Authorization: Bearer s3cret-toke\r\n",
                                   "Authorization: Bearer s3cret-token2\r\n", "Authorization: Basic s3cret-token\r\n"}) {
    auto answer = request(port, "GET", "/metrics", header);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, 401) << header;
    EXPECT_EQ(answer->headers["www-authenticate"], "Bearer realm=\"omnira\"");
  }
  // Without the token not even the paths are told apart.
  auto answer = request(port, "GET", "/elsewhere");
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 401);
  answer = request(port, "GET", "/metrics", "Authorization: Bearer s3cret-token\r\n");
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 200);

  // The token on the first request of a kept-alive connection does not let the second in.
  const int fd = testing::connectTo(port);
  ASSERT_GE(fd, 0);
  ASSERT_TRUE(testing::sendAll(fd, "GET /metrics HTTP/1.1\r\nHost: x\r\nAuthorization: Bearer s3cret-token\r\n\r\n"));
  std::string first;
  char buffer[4096];
  // The first answer whole: its headers, then as many bytes as it says.
  while (first.find("\r\n\r\n") == std::string::npos || first.size() < first.find("\r\n\r\n") + 4 + 240) {
    const ssize_t got = ::recv(fd, buffer, sizeof buffer, 0);
    ASSERT_GT(got, 0);
    first.append(buffer, static_cast<size_t>(got));
  }
  EXPECT_TRUE(first.starts_with("HTTP/1.1 200")) << first;
  ASSERT_TRUE(testing::sendAll(fd, "GET /metrics HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n"));
  const auto second = testing::readAnswer(fd);
  ::close(fd);
  ASSERT_TRUE(second);
  EXPECT_EQ(second->status, 401);
}

TEST(MetricsServer, RefusesToStartWhereItShouldNot) {
  EXPECT_TRUE(testing::refusedSaying(MetricsServer::start({.address = "0.0.0.0:0"}), "metricsToken"));
  EXPECT_TRUE(MetricsServer::start({.address = "0.0.0.0:0", .token = "t"}).ok());

  for (const char* bad : {"", "9464", "127.0.0.1", "127.0.0.1:", "127.0.0.1:99999", ":9464", "::1:9464", "[::1]9464",
                          "127.0.0.1:94x4"}) {
    auto started = MetricsServer::start({.address = bad});
    ASSERT_FALSE(started) << bad;
    EXPECT_NE(started.error().message.find("is not an address and port"), std::string::npos) << bad;
  }
  auto first = startServer({.address = "127.0.0.1:0"});
  ASSERT_TRUE(first);
  EXPECT_TRUE(testing::refusedSaying(MetricsServer::start({.address = "127.0.0.1:" + std::to_string(first->port())}),
                                     "cannot listen"));

  EXPECT_TRUE(MetricsServer::isLoopback("127.0.0.1"));
  EXPECT_TRUE(MetricsServer::isLoopback("::1"));
  EXPECT_TRUE(MetricsServer::isLoopback("localhost"));
  EXPECT_FALSE(MetricsServer::isLoopback("128.0.0.1"));
  EXPECT_FALSE(MetricsServer::isLoopback("::"));
  EXPECT_FALSE(MetricsServer::isLoopback("localhost.example.com"));
  EXPECT_FALSE(MetricsServer::isLoopback("::ffff:10.0.0.1"));

  EXPECT_TRUE(MetricsServer::sameSecret("abc", "abc"));
  EXPECT_FALSE(MetricsServer::sameSecret("abc", "abd"));
  EXPECT_FALSE(MetricsServer::sameSecret("abc", "abcd"));
  EXPECT_FALSE(MetricsServer::sameSecret(std::string("a\0b", 3), "a"));
}

}  // namespace
}  // namespace omnira
