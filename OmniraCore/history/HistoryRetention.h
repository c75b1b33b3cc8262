#pragma once
// How far back each history table reaches, from the person's "historyDays" setting
// (30, 90, 180 or 365; default 30), and when older rows are deleted.
//
// Each table keeps what its resolution is for, so a year at 365 days with 50 apps stays
// within about 30 MB (rough row sizes: machine rows 80 bytes, reading rows 150, app rows
// 220 with their ids):
//   system_minutes       2 days (the live charts' detail; ~0.3 MB)
//   system_five_minutes  min(days, 90) (~2 MB at 90)
//   readings             min(days, 90) (one per five minutes; ~4 MB at 90)
//   system_hours         days (~0.7 MB a year)
//   app_hours            min(days, 30) (~8 MB with 50 apps)
//   app_days             days (~4 MB a year with 50 apps)
// Hour bounds are local hours and the day bound a local midnight, so no period is cut.
// "Delete Older History" deletes with these same bounds at once.
//
// HistoryPruner is owned by whoever writes the history (the monitor store) and used on
// its thread only; the database's own lock covers the deleting.

#include <cstdint>
#include <optional>

#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/foundation/Settings.h"
#include "OmniraCore/history/HistoryDatabase.h"

namespace omnira {

struct HistoryRetention {
  static constexpr int64_t defaultDays = 30;
  static constexpr int64_t choices[] = {30, 90, 180, 365};
  static constexpr int64_t minuteDays = 2;
  static constexpr int64_t fiveMinuteDays = 90;
  static constexpr int64_t appHourDays = 30;

  // "historyDays"; a value that is not one of the choices becomes the nearest choice.
  static int64_t days(const Settings& settings);
  static HistoryDatabase::Bounds bounds(int64_t historyDays, Date now);
  // "Delete Older History": the rows past the chosen span go now, not at the next prune.
  static Result<void, HistoryDatabase::Failure> deleteOlder(HistoryDatabase& database, int64_t historyDays, Date now);
};

class HistoryPruner {
 public:
  static constexpr std::chrono::hours spacing{1};

  // Prunes when it has not yet pruned (at start) or when an hour has passed since it
  // last did, then checkpoints so the write-ahead log does not grow between prunes;
  // returns whether it pruned. A failure leaves it due at the next call.
  Result<bool, HistoryDatabase::Failure> pruneIfDue(HistoryDatabase& database, int64_t historyDays, Date now);

 private:
  std::optional<Date> last_;
};

}  // namespace omnira
