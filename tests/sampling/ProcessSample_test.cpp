// The persisted form of RawUsage (ProcessSample's is the snapshot's: Snapshot_test).

#include "OmniraCore/sampling/ProcessSample.h"

#include <gtest/gtest.h>

#include "OmniraCore/sampling/RawUsage.h"

namespace omnira {
namespace {

TEST(RawUsageJSON, RoundTripsAndRejectsWrongTypes) {
  const RawUsage usage{7, 1ull << 40, 123'456'789'000ull, 10, 20, 0, UINT64_MAX};
  const auto json = usage.toJSON();
  EXPECT_EQ(json.dump(),
            R"({"pid":7,"footprint":1099511627776,"cpuNanoseconds":123456789000,"diskBytesRead":10,)"
            R"("diskBytesWritten":20,"energy":0,"idleWakeups":18446744073709551615})");
  auto back = RawUsage::fromJSON(nlohmann::ordered_json::parse(json.dump()));
  ASSERT_TRUE(back.ok());
  EXPECT_EQ(*back, usage);

  auto wrong = json;
  wrong["footprint"] = -1;
  EXPECT_EQ(RawUsage::fromJSON(wrong).error().key, "footprint");
  wrong = json;
  wrong.erase("idleWakeups");
  EXPECT_EQ(RawUsage::fromJSON(wrong).error().key, "idleWakeups");
  EXPECT_FALSE(RawUsage::fromJSON(nlohmann::ordered_json::array()).ok());
}

}  // namespace
}  // namespace omnira
