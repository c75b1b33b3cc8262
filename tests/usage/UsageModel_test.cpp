#include <gtest/gtest.h>

#include <cmath>
#include <unordered_set>

#include "OmniraCore/usage/UsageAccount.h"
#include "OmniraCore/usage/UsageProblem.h"
#include "OmniraCore/usage/UsageTool.h"
#include "OmniraCore/usage/UsageWindow.h"

namespace omnira {
namespace {

using Kind = UsageWindow::Kind;
using namespace std::chrono_literals;

const Date now = dateFromSecondsSinceEpoch(1'773'500'000);

UsageWindow sessionWindow(double used, std::chrono::seconds untilReset) {
  return UsageWindow(Kind::session, std::nullopt, used, now + untilReset, UsageWindow::sessionLength);
}

TEST(UsageWindow, ClampsUseAndNamesItself) {
  EXPECT_EQ(UsageWindow(Kind::week, std::nullopt, 1.7).used(), 1.0);
  EXPECT_EQ(UsageWindow(Kind::week, std::nullopt, -0.2).left(), 1.0);
  EXPECT_EQ(UsageWindow(Kind::week, std::nullopt, NAN).used(), 1.0);
  EXPECT_DOUBLE_EQ(UsageWindow(Kind::week, std::nullopt, 0.25).left(), 0.75);
  EXPECT_EQ(UsageWindow(Kind::week, "opus", 0).id(), "week:opus");
  for (Kind kind : UsageWindow::allKinds) EXPECT_EQ(usageWindowKindFromRaw(rawValue(kind)), kind);
}

TEST(UsageWindow, PaceAtItsBoundaries) {
  // Too little used to judge; just enough, a tenth into the window.
  EXPECT_FALSE(sessionWindow(0.01, 4h + 30min).pace(now));
  auto early = sessionWindow(0.02, 4h + 30min).pace(now);
  ASSERT_TRUE(early);
  EXPECT_TRUE(early->isOnPace());
  EXPECT_NEAR(early->spareAtReset, 0.8, 1e-9);

  // Half used a quarter in: runs out after another quarter of the window.
  auto fast = sessionWindow(0.5, std::chrono::seconds(int64_t(0.75 * 18000))).pace(now);
  ASSERT_TRUE(fast);
  EXPECT_FALSE(fast->isOnPace());
  EXPECT_NEAR(std::chrono::duration<double>(fast->runsOutAt - now).count(), 0.25 * 18000, 1e-3);

  // Three points ahead of the clock is still on pace, with nothing to spare.
  auto edge = UsageWindow(Kind::session, std::nullopt, 0.53, now + 9000s, 18000).pace(now);
  ASSERT_TRUE(edge);
  EXPECT_TRUE(edge->isOnPace());
  EXPECT_EQ(edge->spareAtReset, 0.0);
  auto over = UsageWindow(Kind::session, std::nullopt, 0.54, now + 9000s, 18000).pace(now);
  ASSERT_TRUE(over);
  EXPECT_FALSE(over->isOnPace());

  // Reset more than a length away, already past, too early, or no length: no pace.
  EXPECT_FALSE(sessionWindow(0.5, 5h + 1s).pace(now));
  EXPECT_FALSE(sessionWindow(0.5, -1s).pace(now));
  EXPECT_FALSE(sessionWindow(0.5, 0s).pace(now));
  EXPECT_FALSE(sessionWindow(0.5, 4h + 46min).pace(now));  // under 5% gone
  EXPECT_FALSE(UsageWindow(Kind::session, std::nullopt, 0.5, now + 1h).pace(now));
  EXPECT_FALSE(UsageWindow(Kind::session, std::nullopt, 0.5, now + 1h, 0.0).pace(now));
}

TEST(UsageAccount, LeadsWithTheHighestRankThenTheFullest) {
  UsageAccount account{"a", UsageTool::claude, "ada@example.com", "Max", {}, now, UsageAccount::Source::vendor};
  EXPECT_FALSE(account.lead());
  account.windows = {UsageWindow(Kind::session, std::nullopt, 0.9), UsageWindow(Kind::week, std::nullopt, 0.2)};
  EXPECT_EQ(account.lead()->kind(), Kind::week);
  account.windows = {UsageWindow(Kind::week, std::nullopt, 0.2), UsageWindow(Kind::week, "opus", 0.6),
                     UsageWindow(Kind::model, "sonnet", 0.99)};
  EXPECT_EQ(account.lead()->id(), "week:opus");
  account.windows = {UsageWindow(Kind::week, "a", 0.4), UsageWindow(Kind::month, "b", 0.4)};
  EXPECT_EQ(account.lead()->id(), "week:a");  // a full tie keeps the earlier
}

TEST(UsageProblem, SaysEachLine) {
  EXPECT_EQ((UsageProblem{UsageTool::codex, UsageProblem::Kind::notSignedIn}).line(),
            "Codex: no sign-in on this computer. Sign in with the codex command.");
  EXPECT_EQ((UsageProblem{UsageTool::claude, UsageProblem::Kind::notSignedIn}).line(),
            "No Claude Code sign-in on this computer. For Claude Code inside the Claude app, turn on Claude App "
            "Sign-In in Settings → Integrations.");
}

TEST(UsageModelJSON, RoundTripsWithOptionalKeysOnlyWhenPresent) {
  UsageAccount account{"org-1", UsageTool::codex, "ada@example.com", std::nullopt,
                       {UsageWindow(Kind::session, std::nullopt, 0.3, now + 2h, UsageWindow::sessionLength),
                        UsageWindow(Kind::week, "gpt-5", 0.1)},
                       now, UsageAccount::Source::toolFiles};
  auto json = account.toJSON();
  EXPECT_FALSE(json.contains("plan"));
  EXPECT_EQ(json["source"], "toolFiles");
  EXPECT_EQ(json["windows"][1], (nlohmann::json{{"kind", "week"}, {"model", "gpt-5"}, {"used", 0.1}}));
  EXPECT_EQ(json["windows"][0]["resetsAt"], formatISO8601(now + 2h));
  EXPECT_EQ(UsageAccount::fromJSON(nlohmann::json::parse(json.dump())).value(), account);
  account.plan = "Plus";
  EXPECT_EQ(UsageAccount::fromJSON(account.toJSON()).value(), account);

  UsageProblem problem{UsageTool::cursor, UsageProblem::Kind::throttled, std::nullopt};
  EXPECT_EQ(problem.toJSON(), (nlohmann::json{{"tool", "cursor"}, {"kind", "throttled"}}));
  problem.account = "team";
  EXPECT_EQ(UsageProblem::fromJSON(problem.toJSON()).value(), problem);
  std::unordered_set<UsageProblem> problems{problem, problem};
  EXPECT_EQ(problems.size(), 1u);
}

TEST(UsageModelJSON, FailsOnUnknownValuesAndWrongShapes) {
  UsageAccount account{"a", UsageTool::claude, "l", "Pro", {UsageWindow(Kind::week, std::nullopt, 0.5)}, now,
                       UsageAccount::Source::vendor};
  const auto broken = [&](auto change) {
    auto json = account.toJSON();
    change(json);
    auto decoded = UsageAccount::fromJSON(json);
    return decoded.ok() ? std::string() : decoded.error().message;
  };
  EXPECT_NE(broken([](auto& j) { j["tool"] = "gemini"; }).find("gemini"), std::string::npos);
  EXPECT_NE(broken([](auto& j) { j["windows"][0]["kind"] = "day"; }).find("kind"), std::string::npos);
  EXPECT_NE(broken([](auto& j) { j["windows"] = nlohmann::json::object(); }).find("windows"), std::string::npos);
  EXPECT_NE(broken([](auto& j) { j.erase("label"); }).find("label"), std::string::npos);
  EXPECT_FALSE(UsageAccount::fromJSON(nlohmann::json::array()).ok());
  EXPECT_FALSE(UsageProblem::fromJSON({{"tool", "codex"}, {"kind", "offline"}}).ok());
  // A stored share outside 0...1 is clamped again on the way in.
  EXPECT_EQ(UsageWindow::fromJSON({{"kind", "week"}, {"used", 3}}).value().used(), 1.0);
}

}  // namespace
}  // namespace omnira
