#include "OmniraCore/history/InsightTexts.h"

#include <fmt/format.h>

#include <array>
#include <cmath>

namespace omnira {

namespace {

// Numbers shown as whole percents are truncated, never rounded up past a limit.
std::string whole(double value) { return fmt::format("{}", static_cast<long long>(std::trunc(value))); }

}  // namespace

std::string InsightTexts::bytes(uint64_t count) {
  if (count < 1000) return count == 1 ? "1 byte" : fmt::format("{} bytes", count);
  static constexpr std::array<const char*, 6> units = {"kB", "MB", "GB", "TB", "PB", "EB"};
  double value = static_cast<double>(count);
  for (size_t i = 0; i < units.size(); ++i) {
    value /= 1000.0;
    // Gigabytes and up keep one decimal ("1.2 GB"); smaller units need none.
    const double scale = i >= 2 ? 10.0 : 1.0;
    const double rounded = std::round(value * scale) / scale;
    if (rounded < 1000.0 || i + 1 == units.size()) {
      if (rounded == std::trunc(rounded)) return fmt::format("{:.0f} {}", rounded, units[i]);
      return fmt::format("{:.1f} {}", rounded, units[i]);
    }
  }
  return {};
}

std::string InsightTexts::lastStretch(double seconds) {
  if (!(seconds > 0)) seconds = 0;
  const double secs = std::round(seconds);
  if (secs < 60) return secs <= 1 ? "the last second" : fmt::format("the last {:.0f} seconds", secs);
  const double minutes = std::round(seconds / 60);
  if (minutes <= 1) return "the last minute";
  // Up to two hours, minutes read better than a rounded hour ("the last 90 minutes").
  if (minutes < 60 || (minutes < 120 && minutes != 60)) return fmt::format("the last {:.0f} minutes", minutes);
  const double hours = std::round(minutes / 60);
  if (hours <= 1) return "the last hour";
  if (hours < 48) return fmt::format("the last {:.0f} hours", hours);
  return fmt::format("the last {:.0f} days", std::round(hours / 24));
}

std::string InsightTexts::list(const std::vector<std::string>& items) {
  std::string text;
  for (size_t i = 0; i < items.size(); ++i) {
    if (i > 0) text += i + 1 == items.size() ? " and " : ", ";
    text += items[i];
  }
  return text;
}

InsightTexts::Text InsightTexts::sustainedCPU(const std::string& app, double averagePercent, double window) const {
  return {app + " is keeping the CPU busy",
          whole(averagePercent) + "% on average for " + lastStretch(window) + " while in the background."};
}

InsightTexts::Text InsightTexts::memoryGrowth(const std::string& app, uint64_t growth, double stretch,
                                              uint64_t current) const {
  return {app + " is using more and more memory",
          "Up " + bytes(growth) + " in " + lastStretch(stretch) + ", now at " + bytes(current) + "."};
}

InsightTexts::Text InsightTexts::diskBurst(const std::string& app, uint64_t written, double window) const {
  return {app + " is writing heavily to disk", bytes(written) + " written in " + lastStretch(window) + "."};
}

InsightTexts::Text InsightTexts::networkBurst(const std::string& app, uint64_t moved, double window) const {
  return {app + " is moving a lot of data", bytes(moved) + " over the network in " + lastStretch(window) + "."};
}

InsightTexts::Text InsightTexts::cpuLimit(const std::string& app, double averagePercent, double window,
                                          double limitPercent) const {
  return {app + " is over your CPU limit", whole(averagePercent) + "% on average for " + lastStretch(window) +
                                               ", above your " + whole(limitPercent) + "% limit."};
}

InsightTexts::Text InsightTexts::memoryLimit(const std::string& app, uint64_t current, uint64_t limit,
                                             double window) const {
  return {app + " is over your memory limit", "Using " + bytes(current) + ", above your " + bytes(limit) +
                                                  " limit, for " + lastStretch(window) + "."};
}

InsightTexts::Text InsightTexts::memoryPressure(MemoryPressure level,
                                                const std::vector<std::pair<std::string, uint64_t>>& users) const {
  Text text;
  text.title = level == MemoryPressure::critical ? "The computer is out of memory"
                                                 : "The computer is running short of memory";
  std::vector<std::string> names;
  for (const auto& [name, memory] : users) names.push_back(name + " (" + bytes(memory) + ")");
  if (names.size() >= 2)
    text.detail = "The biggest users are " + list(names) + ".";
  else if (names.size() == 1)
    text.detail = "The biggest user is " + names[0] + ".";
  else
    text.detail = "Memory pressure went up.";
  return text;
}

InsightTexts::Text InsightTexts::idleServers(size_t count, const std::vector<std::string>& names, uint64_t memory,
                                             const std::vector<uint16_t>& ports) const {
  std::vector<std::string> portTexts;
  for (uint16_t port : ports) portTexts.push_back(fmt::format("{}", port));
  return {fmt::format("{}", count) + " dev servers are running but idle",
          list(names) + ". Stopping them frees " + bytes(memory) + (ports.size() == 1 ? " and port " : " and ports ") +
              list(portTexts) + "."};
}

InsightTexts::Text InsightTexts::runningHot(double celsius, bool fahrenheit, bool atCPU, double stretch,
                                            const std::vector<std::string>& apps,
                                            const std::vector<double>& fanRPM) const {
  const double shown = fahrenheit ? celsius * 9.0 / 5.0 + 32.0 : celsius;
  std::string detail = fmt::format("{:.0f} °{}", shown, fahrenheit ? 'F' : 'C') +
                       (atCPU ? " at the CPU for " : " at the hottest sensor for ") + lastStretch(stretch) + ".";
  if (!apps.empty())
    detail += " " + list(apps) + (apps.size() == 1 ? " is doing most of the work." : " are doing most of the work.");
  if (fanRPM.size() == 1) {
    detail += fmt::format(" The fan is at {:.0f} rpm.", fanRPM[0]);
  } else if (fanRPM.size() > 1) {
    std::vector<std::string> speeds;
    for (double rpm : fanRPM) speeds.push_back(fmt::format("{:.0f}", rpm));
    detail += " The fans are at " + list(speeds) + " rpm.";
  }
  return {"The computer is running hot", detail};
}

InsightTexts::Text InsightTexts::neuralEngineBusy(const std::optional<std::string>& app, double averageShare,
                                                  double window) const {
  std::string detail = whole(averageShare * 100) + "% on average for " + lastStretch(window);
  if (app) return {*app + " has been working the Neural Engine", detail + "."};
  return {"The Neural Engine has been busy", detail + ". " + systemName_ + " doesn’t say which app is using it."};
}

}  // namespace omnira
