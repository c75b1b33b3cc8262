#include "cli/UsageFormat.h"

#include <algorithm>
#include <cmath>

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

size_t cells(const std::string& text) {
  size_t count = 0;
  for (const unsigned char c : text)
    if ((c & 0xC0) != 0x80) ++count;
  return count;
}

}  // namespace omnira::cli
