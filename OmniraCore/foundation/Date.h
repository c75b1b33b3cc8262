#pragma once
// Dates are wall-clock time points; JSON carries them as ISO 8601 with a time zone.

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace omnira {

using Date = std::chrono::system_clock::time_point;

// "2026-11-21T22:10:05.123Z" (UTC, milliseconds).
std::string formatISO8601(Date date);
// Accepts "Z" or "+hh:mm"/"-hh:mm"/"+hhmm", with or without fractional seconds; a moment
// outside what a Date holds (before 1677 or after 2262) is none.
std::optional<Date> parseISO8601(std::string_view text);

// The date in the system's local time, laid out by strftime's `format`.
std::string formatLocal(Date date, const char* format);

// Days from 1970-01-01 to a date of the proleptic Gregorian calendar (month 1...12).
int64_t daysFromCivil(int64_t year, unsigned month, unsigned day);

double secondsSinceEpoch(Date date);
// Clamped to Date::min() and Date::max(); NaN is the epoch.
Date dateFromSecondsSinceEpoch(double seconds);

}  // namespace omnira
