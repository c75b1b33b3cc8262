#pragma once
// How a plan window and token counts read, in the command and in the window alike: plain
// functions of their arguments, any thread. The model's name in a label is the tool's own
// bytes; whoever shows the label makes it safe for its medium.

#include <cstdint>
#include <string>

#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/usage/UsageWindow.h"

namespace omnira {

std::string compactCount(int64_t count);  // "0", "950", "12.3K", "4.5M", "1.2B"
// "4d 20h", "3h 27m", "45m"; under a minute is empty.
std::string spanText(double seconds);
std::string leftText(const UsageWindow& window);  // "62% left"
// "Resets in 4d 20h", "Resets in 3h 27m", "Resets any moment"; empty without a reset.
std::string resetText(const UsageWindow& window, Date now);
// "On pace · 35% to spare", "Runs out in 2h 10m at this rate"; empty without a pace.
std::string paceText(const UsageWindow& window, Date now);
// "Session", "Week", "Week · gpt-5", "This billing cycle".
std::string windowLabel(const UsageWindow& window);

}  // namespace omnira
