#pragma once
// One tool's tokens as the views and `omnira tokens` show them: today, the period (the last
// seven days including today unless asked for another number), the period by model, and one
// total per day for the chart. Computed from a TokenLedger; a plain value for any thread.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/usage/DayCalendar.h"
#include "OmniraCore/usage/TokenLedger.h"
#include "OmniraCore/usage/TokenUsage.h"

namespace omnira {

struct TokenSummary {
  static constexpr int weekDays = 7;

  std::vector<std::string> days;  // the period's day keys, oldest first, today last
  TokenUsage today;
  TokenUsage week;                 // all of `days`
  TokenLedger::ModelUsage byModel; // over `days`, by model name as logged, largest first
  std::vector<int64_t> daily;      // the total of each of `days`, in the same order

  // Nothing for an empty ledger. `dayCount` below 1 counts as 1.
  static std::optional<TokenSummary> of(const TokenLedger& ledger, Date now, int dayCount = weekDays,
                                        const DayCalendar& calendar = DayCalendar::local());

  friend bool operator==(const TokenSummary&, const TokenSummary&) = default;
};

}  // namespace omnira
