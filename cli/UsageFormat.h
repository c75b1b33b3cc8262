#pragma once
// How token counts and plan limits read in a terminal, for `omnira tokens` and
// `omnira limits`. Plain functions of their arguments.

#include <cstddef>
#include <cstdint>
#include <string>

#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/usage/UsageWindow.h"

namespace omnira::cli {

std::string grouped(int64_t count);       // 12345678 -> "12,345,678"
std::string compactCount(int64_t count);  // "0", "950", "12.3K", "4.5M", "1.2B"
// A bar of `width` cells for value against the largest value, in eighths of a cell ("██▍");
// a value above zero shows at least one eighth. Padded with spaces to `width` cells.
std::string bar(int64_t value, int64_t largest, size_t width);

// "4d 20h", "3h 27m", "45m"; under a minute is empty.
std::string span(double seconds);
std::string leftText(const UsageWindow& window);  // "62% left"
// "Resets in 4d 20h", "Resets in 3h 27m", "Resets any moment"; empty without a reset.
std::string resetText(const UsageWindow& window, Date now);
// "On pace · 35% to spare", "Runs out in 2h 10m at this rate"; empty without a pace.
std::string paceText(const UsageWindow& window, Date now);
// "Session", "Week", "Week · gpt-5", "This billing cycle".
std::string windowLabel(const UsageWindow& window);

// Cells a UTF-8 text takes in a terminal (one per code point; what these commands print).
size_t cells(const std::string& text);

}  // namespace omnira::cli
