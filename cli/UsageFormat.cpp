#include "cli/UsageFormat.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>

#include "OmniraCore/foundation/SafeText.h"

namespace omnira::cli {

std::string grouped(int64_t count) {
  std::string digits = std::to_string(count < 0 ? -count : count);
  std::string text;
  for (size_t i = 0; i < digits.size(); ++i) {
    if (i > 0 && (digits.size() - i) % 3 == 0) text += ',';
    text += digits[i];
  }
  return count < 0 ? "-" + text : text;
}

std::string compactCount(int64_t count) {
  const double value = static_cast<double>(count);
  const double size = std::fabs(value);
  if (size < 1000) return std::to_string(count);
  if (size < 999'950) return fmt::format("{:.1f}K", value / 1e3);
  if (size < 999'950'000) return fmt::format("{:.1f}M", value / 1e6);
  return fmt::format("{:.1f}B", value / 1e9);
}

std::string bar(int64_t value, int64_t largest, size_t width) {
  static constexpr const char* eighths[] = {"", "▏", "▎", "▍", "▌", "▋", "▊", "▉"};
  size_t filled = 0;  // in eighths of a cell
  if (value > 0 && largest > 0) {
    const double share = std::min(1.0, static_cast<double>(value) / static_cast<double>(largest));
    filled = std::max<size_t>(1, static_cast<size_t>(std::lround(share * static_cast<double>(width * 8))));
  }
  std::string text;
  for (size_t i = 0; i < filled / 8; ++i) text += "█";
  text += eighths[filled % 8];
  const size_t used = filled / 8 + (filled % 8 ? 1 : 0);
  text.append(width > used ? width - used : 0, ' ');
  return text;
}

std::string span(double seconds) {
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
  const std::string in = span(secondsBetween(now, *window.resetsAt()));
  return in.empty() ? "Resets any moment" : "Resets in " + in;
}

std::string paceText(const UsageWindow& window, Date now) {
  const auto pace = window.pace(now);
  if (!pace) return "";
  if (pace->isOnPace()) return fmt::format("On pace · {:.0f}% to spare", std::round(pace->spareAtReset * 100));
  const std::string in = span(secondsBetween(now, pace->runsOutAt));
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
  if (window.model()) label += " · " + terminalText(*window.model());
  return label;
}

size_t cells(const std::string& text) {
  size_t count = 0;
  for (const unsigned char c : text)
    if ((c & 0xC0) != 0x80) ++count;
  return count;
}

}  // namespace omnira::cli
