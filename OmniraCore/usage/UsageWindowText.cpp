#include "OmniraCore/usage/UsageWindowText.h"

#include <fmt/format.h>

#include <chrono>
#include <cmath>

namespace omnira {

std::string compactCount(int64_t count) {
  const double value = static_cast<double>(count);
  const double size = std::fabs(value);
  if (size < 1000) return std::to_string(count);
  if (size < 999'950) return fmt::format("{:.1f}K", value / 1e3);
  if (size < 999'950'000) return fmt::format("{:.1f}M", value / 1e6);
  return fmt::format("{:.1f}B", value / 1e9);
}

std::string spanText(double seconds) {
  if (!(seconds >= 60)) return "";
  const auto total = static_cast<int64_t>(seconds);
  const int64_t days = total / 86400, hours = total % 86400 / 3600, minutes = total % 3600 / 60;
  if (days > 0) return fmt::format("{}d {}h", days, hours);
  if (hours > 0) return fmt::format("{}h {}m", hours, minutes);
  return fmt::format("{}m", minutes);
}

std::string leftText(const UsageWindow& window) {
  return fmt::format("{:.0f}% left", std::round(window.left() * 100));
}

namespace {

double secondsBetween(Date from, Date to) { return std::chrono::duration<double>(to - from).count(); }

}  // namespace

std::string resetText(const UsageWindow& window, Date now) {
  if (!window.resetsAt()) return "";
  const std::string in = spanText(secondsBetween(now, *window.resetsAt()));
  return in.empty() ? "Resets any moment" : "Resets in " + in;
}

std::string paceText(const UsageWindow& window, Date now) {
  const auto pace = window.pace(now);
  if (!pace) return "";
  if (pace->isOnPace()) return fmt::format("On pace · {:.0f}% to spare", std::round(pace->spareAtReset * 100));
  const std::string in = spanText(secondsBetween(now, pace->runsOutAt));
  return in.empty() ? "Runs out any moment at this rate" : "Runs out in " + in + " at this rate";
}

std::string windowLabel(const UsageWindow& window) {
  using Kind = UsageWindow::Kind;
  std::string label;
  switch (window.kind()) {
    case Kind::session: label = "Session"; break;
    case Kind::week: label = "Week"; break;
    case Kind::model: label = "Week"; break;
    case Kind::month: label = "Month"; break;
    case Kind::premium: label = "Premium requests this month"; break;
    case Kind::chat: label = "Chat this month"; break;
    case Kind::completions: label = "Completions this month"; break;
    case Kind::cycle: label = "This billing cycle"; break;
    case Kind::cursorModels: label = "Cursor’s models"; break;
    case Kind::otherModels: label = "Other models"; break;
    case Kind::modelSession: label = "Session"; break;
  }
  if (window.model()) label += " · " + *window.model();
  return label;
}

}  // namespace omnira
