// The pieces of a usage-limits refresh that are rules rather than reading: the throttled
// rule and the token summary over a number of days.

#include <gtest/gtest.h>

#include <chrono>

#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/usage/TokenLogs.h"
#include "OmniraCore/usage/TokenSummary.h"
#include "OmniraCore/usage/UsageRefresh.h"

namespace omnira {
namespace {

TEST(UsageRefreshRules, AThrottledAccountKeepsItsLastFigures) {
  const auto account = [](std::string id, UsageTool tool, std::string label, double used) {
    return UsageAccount{std::move(id), tool, std::move(label), std::nullopt,
                        {UsageWindow(UsageWindow::Kind::week, std::nullopt, used)}, Date{},
                        UsageAccount::Source::vendor};
  };
  const std::vector<UsageAccount> last{account("a", UsageTool::claude, "ann", 0.1),
                                       account("b", UsageTool::claude, "bob", 0.2),
                                       account("c", UsageTool::codex, "ann", 0.3)};
  std::vector<UsageAccount> fresh{account("b", UsageTool::claude, "bob", 0.5)};
  UsageRefresh::keepThrottled(fresh, {{UsageTool::claude, UsageProblem::Kind::throttled, std::string("ann")},
                                      {UsageTool::codex, UsageProblem::Kind::unreachable, std::nullopt}},
                              last);
  ASSERT_EQ(fresh.size(), 2u);
  EXPECT_EQ(fresh[1], last[0]);
  // Throttled without naming an account: every account of the tool that went unanswered.
  fresh = {};
  UsageRefresh::keepThrottled(fresh, {{UsageTool::claude, UsageProblem::Kind::throttled, std::nullopt}}, last);
  EXPECT_EQ(fresh, (std::vector<UsageAccount>{last[0], last[1]}));
}

TEST(TokenSummaryOf, CountsTodayThePeriodAndEachDay) {
  const DayCalendar utc = DayCalendar::fixed(std::chrono::seconds(0));
  const Date now = *parseISO8601("2026-11-21T00:30:00Z");  // just after midnight
  EXPECT_FALSE(TokenSummary::of(TokenLedger(), now, 7, utc));

  TokenFileLedger a, b;
  a.add({1, 1, 1, 1}, "claude-sonnet-4-5", "2026-11-21");
  a.add({10, 0, 0, 0}, "claude-opus-4-1", "2026-11-20");
  b.add({100, 0, 0, 0}, "claude-opus-4-1", "2026-11-19");
  b.add({1000, 0, 0, 0}, "claude-opus-4-1", "2026-11-18");  // outside three days
  const auto ledger =
      TokenLedger::fromJSON(nlohmann::json{{"files", {{"/a.jsonl", a.toJSON()}, {"/b.jsonl", b.toJSON()}}}}).value();

  const auto summary = TokenSummary::of(ledger, now, 3, utc);
  ASSERT_TRUE(summary);
  EXPECT_EQ(summary->days, (std::vector<std::string>{"2026-11-19", "2026-11-20", "2026-11-21"}));
  EXPECT_EQ(summary->today, (TokenUsage{1, 1, 1, 1}));
  EXPECT_EQ(summary->week, (TokenUsage{111, 1, 1, 1}));
  EXPECT_EQ(summary->daily, (std::vector<int64_t>{100, 10, 4}));
  ASSERT_EQ(summary->byModel.size(), 2u);
  EXPECT_EQ(summary->byModel[0], (std::pair<std::string, TokenUsage>{"claude-opus-4-1", {110, 0, 0, 0}}));

  // A ledger whose tokens all lie before the period still gives a summary, of zeros.
  const auto later = TokenSummary::of(ledger, *parseISO8601("2026-12-21T12:00:00Z"), 7, utc);
  ASSERT_TRUE(later);
  EXPECT_TRUE(later->week.isZero());
}

}  // namespace
}  // namespace omnira
