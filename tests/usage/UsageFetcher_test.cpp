#include "OmniraCore/usage/UsageFetcher.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "OmniraCore/usage/CurlTransport.h"
#include "tests/usage/LocalHTTPServer.h"

namespace omnira {
namespace {

using testing::LocalHTTPServer;
using testing::ReceivedRequest;

const Date now = dateFromSecondsSinceEpoch(1795176000);

// A provider client as a real one is built: it asks an endpoint with the login's
// credential and reads the answer into an account.
class EndpointProvider final : public UsageProvider {
 public:
  EndpointProvider(UsageTool tool, std::string url) : tool_(tool), url_(std::move(url)) {}
  UsageTool tool() const override { return tool_; }
  Answer fetch(const UsageLogin& login, HTTPTransport& transport, Date at) override {
    ++calls;
    auto answer = transport.send({.url = url_, .headers = {{"Authorization", "Bearer " + login.credential.reveal()}}});
    if (!answer || answer->status != 200) return {.problems = {{tool_, UsageProblem::Kind::unreachable, login.email}}};
    const auto json = nlohmann::json::parse(answer->body, nullptr, false);
    UsageAccount account{.id = "acct", .tool = tool_, .label = login.email.value_or("?"), .fetchedAt = at};
    account.windows.emplace_back(UsageWindow::Kind::week, std::nullopt, json.value("used", 0.0));
    return {.accounts = {account}};
  }
  int calls = 0;

 private:
  UsageTool tool_;
  std::string url_;
};

UsageLogin login(UsageTool tool, std::string email, std::optional<Date> expiresAt, std::string secret) {
  UsageLogin result;
  result.tool = tool;
  result.email = std::move(email);
  result.expiresAt = expiresAt;
  result.credential = UsageLogin::Secret(std::move(secret));
  return result;
}

TEST(UsageFetcher, SignInsDecideWhatIsAskedAndWhatIsAProblem) {
  std::string authorization;
  LocalHTTPServer server([&](const ReceivedRequest& request) -> std::optional<std::string> {
    const auto at = request.head.find("Authorization: ");
    authorization = request.head.substr(at, request.head.find("\r\n", at) - at);
    return LocalHTTPServer::answer(200, "OK", R"({"used":0.25})");
  });
  UsageFetcher fetcher(std::make_shared<CurlTransport>());
  auto provider = std::make_unique<EndpointProvider>(UsageTool::claude, server.url("/usage"));
  EndpointProvider& claude = *provider;
  fetcher.add(std::move(provider));

  const std::vector<UsageLogin> logins = {
      login(UsageTool::claude, "ann@example.com", now + std::chrono::hours(1), "fake-live"),
      login(UsageTool::claude, "bob@example.com", now, "fake-stale"),  // expires this very moment
  };
  auto answer = fetcher.fetch({UsageTool::claude, UsageTool::codex, UsageTool::cursor}, logins, now);
  EXPECT_EQ(claude.calls, 1);
  EXPECT_EQ(authorization, "Authorization: Bearer fake-live");
  ASSERT_EQ(answer.accounts.size(), 1u);
  EXPECT_DOUBLE_EQ(answer.accounts[0].windows[0].used(), 0.25);
  // Cursor's sign-ins are not looked for, so its absence is no problem.
  ASSERT_EQ(answer.problems.size(), 2u);
  EXPECT_EQ(answer.problems[0], (UsageProblem{UsageTool::claude, UsageProblem::Kind::signInRejected, "bob@example.com"}));
  EXPECT_EQ(answer.problems[1], (UsageProblem{UsageTool::codex, UsageProblem::Kind::notSignedIn, std::nullopt}));

  // A tool turned off is not asked, whatever sign-ins it has.
  answer = fetcher.fetch({UsageTool::codex}, logins, now);
  EXPECT_EQ(claude.calls, 1);
  EXPECT_TRUE(answer.accounts.empty());
  ASSERT_EQ(answer.problems.size(), 1u);

  // Claude without any sign-in.
  answer = fetcher.fetch({UsageTool::claude}, {}, now);
  EXPECT_EQ(answer.problems, (std::vector<UsageProblem>{{UsageTool::claude, UsageProblem::Kind::notSignedIn, std::nullopt}}));
}

TEST(UsageFetcher, AToolWithoutAProviderYetIsCheckedButNotAskedAndAFailingProviderStopsNoOther) {
  UsageFetcher fetcher(std::make_shared<CurlTransport>());
  auto answer = fetcher.fetch({UsageTool::codex}, {login(UsageTool::codex, "ann@example.com", std::nullopt, "fake")}, now);
  EXPECT_TRUE(answer.accounts.empty());
  EXPECT_TRUE(answer.problems.empty());

  // A provider's failure is its tool's problem; the other tools go on.
  auto refused = std::make_unique<EndpointProvider>(UsageTool::codex,
                                                    "http://127.0.0.1:" + std::to_string(LocalHTTPServer::closedPort()));
  fetcher.add(std::move(refused));
  answer = fetcher.fetch({UsageTool::claude, UsageTool::codex},
                         {login(UsageTool::codex, "ann@example.com", std::nullopt, "fake")}, now);
  ASSERT_EQ(answer.problems.size(), 2u);
  EXPECT_EQ(answer.problems[0].kind, UsageProblem::Kind::notSignedIn);
  EXPECT_EQ(answer.problems[1], (UsageProblem{UsageTool::codex, UsageProblem::Kind::unreachable, "ann@example.com"}));
}

}  // namespace
}  // namespace omnira
