// The persisted forms of ProcessSample and RawUsage.

#include "OmniraCore/sampling/ProcessSample.h"

#include <gtest/gtest.h>

#include "OmniraCore/sampling/RawUsage.h"

namespace omnira {
namespace {

TEST(ProcessSampleJSON, WritesEachFieldUnderItsNameAndOptionalsOnlyWhenPresent) {
  ProcessSample s;
  s.memoryBytes = 1ull << 33;
  s.delta.diskBytesRead = 4096;
  s.startedAt = Date(std::chrono::milliseconds(1'700'000'000'250));
  s.helperRole = HelperRole::extensionHost;
  s.listeningPorts = {3000};
  auto json = s.toJSON();
  EXPECT_EQ(json["memoryBytes"], 1ull << 33);
  EXPECT_EQ(json["helperRole"], "extensionHost");
  EXPECT_EQ(json["startedAt"], "2023-11-14T22:13:20.250Z");
  EXPECT_EQ(json["delta"]["diskBytesRead"], 4096);
  EXPECT_EQ(json["listeningPorts"], nlohmann::ordered_json::array({3000}));
  for (const char* absent : {"path", "projectPath", "appUnitID", "flatpakAppID"}) {
    EXPECT_FALSE(json.contains(absent)) << absent;
  }
  s.path = "/usr/lib/firefox/firefox";
  EXPECT_EQ(s.toJSON()["path"], "/usr/lib/firefox/firefox");
}

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
  wrong["energy"] = "0";
  EXPECT_EQ(RawUsage::fromJSON(wrong).error().key, "energy");
  wrong = json;
  wrong.erase("idleWakeups");
  EXPECT_EQ(RawUsage::fromJSON(wrong).error().key, "idleWakeups");
  EXPECT_FALSE(RawUsage::fromJSON(nlohmann::ordered_json::array()).ok());
}

}  // namespace
}  // namespace omnira
