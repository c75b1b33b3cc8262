#include "OmniraCore/foundation/Date.h"

#include <fmt/format.h>

#include <cmath>
#include <ctime>
#include <limits>

#include "OmniraCore/foundation/Parse.h"

namespace omnira {

namespace {

std::optional<int> digits(std::string_view text, size_t at, size_t count) {
  if (at + count > text.size()) return std::nullopt;
  return parseNumber<int>(text.substr(at, count));
}

// A Date counts nanoseconds in an int64: about 292 years either side of 1970.
constexpr double kMostMicroseconds = static_cast<double>(std::numeric_limits<int64_t>::max() / 1000);

}  // namespace

// After H. Hinnant's civil-date algorithms.
int64_t daysFromCivil(int64_t y, unsigned m, unsigned d) {
  y -= m <= 2;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const auto yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<int64_t>(doe) - 719468;
}


std::string formatISO8601(Date date) {
  using namespace std::chrono;
  const auto ms = duration_cast<milliseconds>(date.time_since_epoch()).count();
  int64_t secs = ms / 1000;
  int64_t millis = ms % 1000;
  if (millis < 0) {
    millis += 1000;
    secs -= 1;
  }
  const std::time_t t = static_cast<std::time_t>(secs);
  std::tm tm{};
  gmtime_r(&t, &tm);
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", tm.tm_year + 1900, tm.tm_mon + 1,
                     tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec, millis);
}

std::optional<Date> parseISO8601(std::string_view text) {
  // yyyy-mm-ddThh:mm:ss
  if (text.size() < 20 || text[4] != '-' || text[7] != '-' || (text[10] != 'T' && text[10] != 't') ||
      text[13] != ':' || text[16] != ':')
    return std::nullopt;
  const auto year = digits(text, 0, 4), month = digits(text, 5, 2), day = digits(text, 8, 2);
  const auto hour = digits(text, 11, 2), minute = digits(text, 14, 2), second = digits(text, 17, 2);
  if (!year || !month || !day || !hour || !minute || !second) return std::nullopt;
  if (*month < 1 || *month > 12 || *day < 1 || *day > 31 || *hour > 23 || *minute > 59 || *second > 60)
    return std::nullopt;
  size_t at = 19;
  double fraction = 0;
  if (at < text.size() && text[at] == '.') {
    size_t end = at + 1;
    while (end < text.size() && text[end] >= '0' && text[end] <= '9') ++end;
    if (end == at + 1) return std::nullopt;
    auto f = parseNumber<double>(text.substr(at, end - at));
    if (!f) return std::nullopt;
    fraction = *f;
    at = end;
  }
  int offsetSeconds = 0;
  const std::string_view zone = text.substr(at);
  if (zone == "Z" || zone == "z") {
    offsetSeconds = 0;
  } else if (!zone.empty() && (zone[0] == '+' || zone[0] == '-')) {
    std::optional<int> hh, mm;
    if (zone.size() == 6 && zone[3] == ':') {
      hh = digits(zone, 1, 2);
      mm = digits(zone, 4, 2);
    } else if (zone.size() == 5) {
      hh = digits(zone, 1, 2);
      mm = digits(zone, 3, 2);
    }
    if (!hh || !mm || *hh > 23 || *mm > 59) return std::nullopt;
    offsetSeconds = (*hh * 3600 + *mm * 60) * (zone[0] == '-' ? -1 : 1);
  } else {
    return std::nullopt;
  }
  const int64_t days = daysFromCivil(*year, static_cast<unsigned>(*month), static_cast<unsigned>(*day));
  const double seconds = static_cast<double>(days * 86400 + *hour * 3600 + *minute * 60 + *second -
                                             offsetSeconds) + fraction;
  if (std::abs(seconds) * 1e6 >= kMostMicroseconds) return std::nullopt;
  return dateFromSecondsSinceEpoch(seconds);
}

double secondsSinceEpoch(Date date) {
  return std::chrono::duration<double>(date.time_since_epoch()).count();
}

Date dateFromSecondsSinceEpoch(double seconds) {
  // Past what a Date holds, the nearest moment it does rather than a wrapped one.
  const double micros = std::round(seconds * 1e6);
  if (std::isnan(micros)) return Date{};
  if (micros >= kMostMicroseconds) return Date::max();
  if (micros <= -kMostMicroseconds) return Date::min();
  return Date(std::chrono::duration_cast<Date::duration>(std::chrono::microseconds(static_cast<int64_t>(micros))));
}

std::string formatLocal(Date date, const char* format) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(date);
  std::tm local{};
  localtime_r(&seconds, &local);
  char text[64];
  return std::strftime(text, sizeof text, format, &local) ? text : "";
}

}  // namespace omnira
