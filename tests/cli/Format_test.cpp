#include "cli/Format.h"

#include <gtest/gtest.h>

namespace omnira::cli {
namespace {

TEST(Format, FiguresReadAsPeopleWriteThem) {
  EXPECT_EQ(bytes(1023), "1023 B");
  EXPECT_EQ(bytes(1536), "1.5 KiB");
  EXPECT_EQ(bytes(25ull << 30), "25 GiB");
  EXPECT_EQ(bytes(UINT64_MAX), "16384 PiB");
  EXPECT_EQ(rate(-5), "0 B/s");
  EXPECT_EQ(rate(1'200'000), "1.2 MB/s");
  EXPECT_EQ(percent(0.123), "12%");
  EXPECT_EQ(percent(0.034), "3.4%");
  EXPECT_EQ(duration(42), "42s");
  EXPECT_EQ(duration(7 * 60 + 3), "7m");
  EXPECT_EQ(duration(2 * 3600 + 5 * 60), "2h 05m");
  EXPECT_EQ(duration(3 * 86400 + 4 * 3600 + 59), "3d 4h");
}

}  // namespace
}  // namespace omnira::cli
