#include "OmniraCore/history/HistoryRetention.h"

#include <cstdlib>

namespace omnira {

int64_t HistoryRetention::days(const Settings& settings) {
  const double wanted = settings.number("historyDays", static_cast<double>(defaultDays));
  int64_t nearest = defaultDays;
  for (int64_t choice : choices) {
    if (std::abs(wanted - static_cast<double>(choice)) < std::abs(wanted - static_cast<double>(nearest))) {
      nearest = choice;
    }
  }
  return nearest;
}

HistoryDatabase::Bounds HistoryRetention::bounds(int64_t historyDays, Date now) {
  using Table = HistoryDatabase::SystemTable;
  const auto daysBefore = [now](int64_t days) { return now - std::chrono::hours(24 * days); };
  const int64_t fiveMinuteSpan = std::min(historyDays, fiveMinuteDays);
  HistoryDatabase::Bounds bounds;
  bounds.systemMinutes = HistoryDatabase::periodStart(Table::minutes, daysBefore(std::min(historyDays, minuteDays)));
  bounds.systemFiveMinutes = HistoryDatabase::periodStart(Table::fiveMinutes, daysBefore(fiveMinuteSpan));
  bounds.readings = bounds.systemFiveMinutes;
  bounds.systemHours = HistoryDatabase::periodStart(Table::hours, daysBefore(historyDays));
  bounds.appHours = HistoryDatabase::periodStart(HistoryDatabase::AppTable::hours,
                                                 daysBefore(std::min(historyDays, appHourDays)));
  bounds.appDays = HistoryDatabase::periodStart(HistoryDatabase::AppTable::days, daysBefore(historyDays));
  return bounds;
}

Result<void, HistoryDatabase::Failure> HistoryRetention::deleteOlder(HistoryDatabase& database, int64_t historyDays,
                                                                     Date now) {
  return database.prune(bounds(historyDays, now));
}

Result<bool, HistoryDatabase::Failure> HistoryPruner::pruneIfDue(HistoryDatabase& database, int64_t historyDays,
                                                                 Date now) {
  if (last_ && now - *last_ < spacing && now >= *last_) return false;
  auto pruned = database.prune(HistoryRetention::bounds(historyDays, now));
  if (!pruned) return fail(pruned.error());
  if (auto folded = database.checkpoint(); !folded) return fail(folded.error());
  last_ = now;
  return true;
}

}  // namespace omnira
