#include "OmniraCore/usage/DayCalendar.h"

#include <fmt/format.h>

#include <ctime>

namespace omnira {

namespace {

// The way back from daysFromCivil (foundation/Date.h), after H. Hinnant.
DayCalendar::CivilDay civilFromDays(int64_t z) {
  z += 719468;
  const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const auto doe = static_cast<unsigned>(z - era * 146097);
  const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const int64_t y = static_cast<int64_t>(yoe) + era * 400;
  const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const unsigned mp = (5 * doy + 2) / 153;
  const unsigned d = doy - (153 * mp + 2) / 5 + 1;
  const unsigned m = mp < 10 ? mp + 3 : mp - 9;
  return {static_cast<int>(y + (m <= 2)), m, d};
}

int64_t floorDiv(int64_t a, int64_t b) { return a / b - ((a % b != 0) && ((a < 0) != (b < 0))); }

}  // namespace

DayCalendar::CivilDay DayCalendar::civilDay(Date date) const {
  const int64_t seconds = std::chrono::floor<std::chrono::seconds>(date.time_since_epoch()).count();
  if (offset_) return civilFromDays(floorDiv(seconds + offset_->count(), 86400));
  const std::time_t t = static_cast<std::time_t>(seconds);
  std::tm local{};
  // localtime_r keeps the zone it first saw; tzset takes up a changed TZ, or a changed zone
  // file when TZ is unset (it looks at the file's identity, a stat).
  ::tzset();
  localtime_r(&t, &local);
  return {local.tm_year + 1900, static_cast<unsigned>(local.tm_mon + 1), static_cast<unsigned>(local.tm_mday)};
}

std::string DayCalendar::key(Date date) const { return key(civilDay(date)); }

std::string DayCalendar::key(CivilDay day) { return fmt::format("{:04d}-{:02d}-{:02d}", day.year, day.month, day.day); }

Date DayCalendar::startOfDay(CivilDay day) const {
  if (offset_) {
    const int64_t seconds = daysFromCivil(day.year, day.month, day.day) * 86400 - offset_->count();
    return Date(std::chrono::seconds(seconds));
  }
  std::tm local{};
  local.tm_year = day.year - 1900;
  local.tm_mon = static_cast<int>(day.month) - 1;
  local.tm_mday = static_cast<int>(day.day);
  local.tm_isdst = -1;  // let the zone's rules say whether summer time applies
  const std::time_t t = std::mktime(&local);
  return Date(std::chrono::seconds(t));
}

DayCalendar::CivilDay DayCalendar::adding(CivilDay day, int days) {
  return civilFromDays(daysFromCivil(day.year, day.month, day.day) + days);
}

}  // namespace omnira
