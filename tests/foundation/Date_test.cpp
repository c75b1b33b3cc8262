#include "OmniraCore/foundation/Date.h"

#include <gtest/gtest.h>

namespace omnira {
namespace {

TEST(Date, ISO8601RoundTripsAndHonoursOffsets) {
  const Date date = dateFromSecondsSinceEpoch(1763762405.123);
  EXPECT_EQ(formatISO8601(date), "2025-11-21T22:00:05.123Z");
  EXPECT_EQ(parseISO8601("2025-11-21T22:00:05.123Z"), date);
  EXPECT_EQ(parseISO8601("2025-11-21T23:30:05.123+01:30"), date);
  EXPECT_EQ(formatISO8601(dateFromSecondsSinceEpoch(-0.5)), "1969-12-31T23:59:59.500Z");
  for (const char* bad : {"", "2025-11-21", "2025-11-21T22:00:05", "2025-13-01T00:00:00Z",
                          "2025-11-21T22:00:05.Z", "2025-11-21T22:00:05+1", "2025-11-21X22:00:05Z"})
    EXPECT_FALSE(parseISO8601(bad)) << bad;
}

// A Date counts nanoseconds, so it ends in 2262: a log or saved file naming a later
// moment must not wrap around into the past.
TEST(Date, MomentsBeyondWhatADateHoldsAreClampedOrRefused) {
  EXPECT_FALSE(parseISO8601("4052-11-20T11:00:00.000Z"));
  EXPECT_FALSE(parseISO8601("1500-01-01T00:00:00Z"));
  EXPECT_EQ(dateFromSecondsSinceEpoch(1e30), Date::max());
  EXPECT_EQ(dateFromSecondsSinceEpoch(-1e30), Date::min());
  // The last moments a Date holds still read back as what was written.
  for (const Date edge : {Date::max(), Date::min()}) {
    const auto again = parseISO8601(formatISO8601(edge));
    ASSERT_TRUE(again) << formatISO8601(edge);
    EXPECT_EQ(formatISO8601(*again), formatISO8601(edge));
  }
}

}  // namespace
}  // namespace omnira
