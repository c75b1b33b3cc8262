#include "OmniraCore/foundation/Date.h"

#include <gtest/gtest.h>

namespace omnira {
namespace {

TEST(Date, ISO8601RoundTripsAndHonoursOffsets) {
  const Date date = dateFromSecondsSinceEpoch(1763762405.123);
  EXPECT_EQ(formatISO8601(date), "2025-11-21T22:00:05.123Z");
  EXPECT_EQ(parseISO8601("2025-11-21T22:00:05.123Z"), date);
  EXPECT_EQ(parseISO8601("2025-11-21T23:30:05.123+01:30"), date);
  EXPECT_EQ(parseISO8601("2025-11-21T20:00:05.123-0200"), date);
  EXPECT_EQ(formatISO8601(dateFromSecondsSinceEpoch(-0.5)), "1969-12-31T23:59:59.500Z");
  for (const char* bad : {"", "2025-11-21", "2025-11-21T22:00:05", "2025-13-01T00:00:00Z",
                          "2025-11-21T22:00:05.Z", "2025-11-21T22:00:05+1", "2025-11-21X22:00:05Z"})
    EXPECT_FALSE(parseISO8601(bad)) << bad;
}

}  // namespace
}  // namespace omnira
