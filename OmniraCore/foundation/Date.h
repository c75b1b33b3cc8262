#pragma once
// Dates are wall-clock time points; JSON carries them as ISO 8601 with a time zone.

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace omnira {

using Date = std::chrono::system_clock::time_point;

// "2026-11-21T22:10:05.123Z" (UTC, milliseconds).
std::string formatISO8601(Date date);
// Accepts "Z" or "+hh:mm"/"-hh:mm"/"+hhmm", with or without fractional seconds.
std::optional<Date> parseISO8601(std::string_view text);

double secondsSinceEpoch(Date date);
Date dateFromSecondsSinceEpoch(double seconds);

}  // namespace omnira
