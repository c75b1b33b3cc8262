// The line `omnira run` prints per tick on a terminal.

#include "Omnira/TickLine.h"

#include <gtest/gtest.h>

#include <ctime>

namespace omnira {
namespace {

Date localDate(int year, int month, int day, int hour, int minute, int second) {
  std::tm tm{};
  tm.tm_year = year - 1900;
  tm.tm_mon = month - 1;
  tm.tm_mday = day;
  tm.tm_hour = hour;
  tm.tm_min = minute;
  tm.tm_sec = second;
  tm.tm_isdst = -1;
  return std::chrono::system_clock::from_time_t(std::mktime(&tm));
}

TEST(TickLine, NamesTheStrainedPartsSinceWhenAndTheTopAppEscaped) {
  SystemSample sample;
  sample.cpuUser = 0.08;
  sample.cpuSystem = 0.04;
  sample.memoryTotal = 23'500'000'000;
  sample.memoryApp = 5'200'000'000;
  sample.pressure = MemoryPressure::warning;
  const Date at = localDate(2026, 11, 23, 14, 20, 5);

  EXPECT_EQ(TickLine::format(sample, {}, {}, at), "14:20:05  CPU 12%  Memory 5.2/23.5 GB  Pressure warning");
  // The oldest first; one from another day says which.
  EXPECT_EQ(TickLine::format(sample, {},
                             {{StrainKind::memory, localDate(2026, 11, 23, 14, 2, 0)},
                              {StrainKind::disk, localDate(2026, 11, 21, 9, 30, 0)}},
                             at),
            "14:20:05  CPU 12%  Memory 5.2/23.5 GB  Pressure warning  "
            "Strain: disk since 2026-11-21 09:30, memory since 14:02");

  // The top app's name is anyone's: escaped before it reaches the terminal.
  ProcessSample busy;
  busy.cpuPercent = 8.3;
  const std::vector<AppGroup> groups{
      AppGroup("exec:/tmp/x", "\x1b]0;owned\x07x", GroupKind::other, std::nullopt, {busy})};
  const std::string line = TickLine::format(sample, groups, {}, at);
  EXPECT_TRUE(line.ends_with("  Top \\x1b]0;owned\\x07x 8.3%")) << line;
}

}  // namespace
}  // namespace omnira
