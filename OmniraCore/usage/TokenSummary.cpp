#include "OmniraCore/usage/TokenSummary.h"

#include <algorithm>

#include "OmniraCore/usage/TokenLogs.h"

namespace omnira {

std::optional<TokenSummary> TokenSummary::of(const TokenLedger& ledger, Date now, int dayCount,
                                             const DayCalendar& calendar) {
  if (ledger.isEmpty()) return std::nullopt;
  TokenSummary summary;
  summary.days = TokenLogs::days(std::max(dayCount, 1), now, calendar);
  summary.daily.reserve(summary.days.size());
  for (const auto& day : summary.days) {
    const TokenUsage usage = ledger.usageOn(day);
    summary.week += usage;
    summary.daily.push_back(usage.total());
  }
  summary.today = ledger.usageOn(summary.days.back());
  summary.byModel = ledger.byModel(summary.days);
  return summary;
}

}  // namespace omnira
