#include "cli/Format.h"
#include "OmniraCore/foundation/Parse.h"

#include <iostream>

#include <fmt/format.h>

#include <cmath>

namespace omnira::cli {

std::string bytes(uint64_t count) {
  static constexpr const char* units[] = {"B", "KiB", "MiB", "GiB", "TiB", "PiB"};
  double value = static_cast<double>(count);
  int unit = 0;
  while (value >= 1024 && unit < 5) {
    value /= 1024;
    ++unit;
  }
  if (unit == 0) return fmt::format("{} B", count);
  return value < 10 ? fmt::format("{:.1f} {}", value, units[unit]) : fmt::format("{:.0f} {}", value, units[unit]);
}

std::string rate(double bytesPerSecond) {
  static constexpr const char* units[] = {"B/s", "kB/s", "MB/s", "GB/s", "TB/s"};
  if (!(bytesPerSecond > 0)) return "0 B/s";
  double value = bytesPerSecond;
  int unit = 0;
  while (value >= 1000 && unit < 4) {
    value /= 1000;
    ++unit;
  }
  if (unit == 0) return fmt::format("{:.0f} B/s", value);
  return value < 10 ? fmt::format("{:.1f} {}", value, units[unit]) : fmt::format("{:.0f} {}", value, units[unit]);
}

std::string percent(double fraction) {
  const double p = std::isfinite(fraction) ? fraction * 100 : 0;
  if (p > 0 && p < 10) return fmt::format("{:.1f}%", p);
  return fmt::format("{:.0f}%", p);
}

std::string duration(double seconds) {
  if (!(seconds > 0)) return "0s";
  const auto total = static_cast<int64_t>(seconds);
  const int64_t days = total / 86400, hours = total % 86400 / 3600, minutes = total % 3600 / 60;
  if (days > 0) return fmt::format("{}d {}h", days, hours);
  if (hours > 0) return fmt::format("{}h {:02}m", hours, minutes);
  if (minutes > 0) return fmt::format("{}m", minutes);
  return fmt::format("{}s", total);
}

std::string fit(std::string text, size_t width) {
  if (text.size() <= width) return text;
  // Cut on a character boundary so a name in UTF-8 never ends in half a character.
  size_t cut = width - 1;
  while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) --cut;
  return text.substr(0, cut) + "…";
}

std::string shownPath(const std::string& path, const std::string& home) {
  if (!home.empty() && home != "/" && path.starts_with(home) && (path.size() == home.size() || path[home.size()] == '/'))
    return "~" + path.substr(home.size());
  return path;
}

bool confirmed(const std::string& question, std::FILE* out) {
  fmt::print(out, "{} [y/N] ", question);
  std::fflush(out);
  std::string answer;
  if (!std::getline(std::cin, answer)) return false;
  answer = std::string(trim(answer));
  return answer == "y" || answer == "Y" || answer == "yes" || answer == "Yes";
}

}  // namespace omnira::cli
