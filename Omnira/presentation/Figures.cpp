#include "Omnira/presentation/Figures.h"

#include <array>
#include <cmath>

namespace omnira::presentation {

namespace {

QString scaled(double value, const char* suffix) {
  static constexpr std::array<const char*, 5> units = {"B", "KB", "MB", "GB", "TB"};
  size_t unit = 0;
  while (value >= 1000 && unit + 1 < units.size()) {
    value /= 1000;
    ++unit;
  }
  // Three significant figures at most, so a column of them lines up.
  const int decimals = unit == 0 || value >= 100 ? 0 : value >= 10 ? 1 : 2;
  return QStringLiteral("%1 %2%3").arg(value, 0, 'f', decimals).arg(units[unit]).arg(suffix);
}

}  // namespace

QString bytesText(uint64_t bytes) { return scaled(static_cast<double>(bytes), ""); }

QString rateText(double bytesPerSecond) {
  if (!std::isfinite(bytesPerSecond) || bytesPerSecond < 0) bytesPerSecond = 0;
  return scaled(bytesPerSecond, "/s");
}

QString percentText(double fraction) {
  if (!std::isfinite(fraction) || fraction < 0) fraction = 0;
  return QStringLiteral("%1 %").arg(std::lround(fraction * 100));
}

QString nameText(std::string_view bytes) { return QString::fromUtf8(bytes.data(), static_cast<qsizetype>(bytes.size())); }

}  // namespace omnira::presentation
