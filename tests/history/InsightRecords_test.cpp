// The records the engine hands out and persists, and the words it builds its sentences from.

#include <gtest/gtest.h>

#include "OmniraCore/history/AppLimit.h"
#include "OmniraCore/history/Insight.h"
#include "OmniraCore/history/InsightTexts.h"

#include "tests/support/Refused.h"

namespace omnira {
namespace {

using Json = nlohmann::ordered_json;

Insight fullInsight() {
  Insight insight;
  insight.id = UUID::random();
  insight.date = *parseISO8601("2026-11-21T22:10:05.123Z");
  insight.kind = Insight::Kind::appLimit;
  insight.appID = "/usr/share/applications/org.gnome.Builder.desktop";
  insight.appName = "Builder";
  insight.appKind = GroupKind::app;
  insight.bundlePath = "/usr/share/applications/org.gnome.Builder.desktop";
  insight.title = "Builder is over your CPU limit";
  insight.detail = "90% on average for the last 5 minutes, above your 80% limit.";
  insight.ruleID = UUID::random();
  insight.limitFigure = AppLimit::Figure::cpu;
  return insight;
}

TEST(InsightJSON, RoundTripsAndLeavesAbsentFieldsOut) {
  const Insight insight = fullInsight();
  const Json json = insight.toJSON();
  EXPECT_EQ(Insight::fromJSON(json).value(), insight);

  // Absent fields are left out, and read back absent, null or not there.
  Insight sparse = insight;
  sparse.kind = Insight::Kind::memoryPressure;
  sparse.appName.reset();
  sparse.appKind.reset();
  sparse.bundlePath.reset();
  sparse.ruleID.reset();
  sparse.limitFigure.reset();
  Json withNulls = sparse.toJSON();
  EXPECT_EQ(Insight::fromJSON(withNulls).value(), sparse);
  withNulls["ruleID"] = nullptr;
  EXPECT_EQ(Insight::fromJSON(withNulls).value(), sparse);
}

TEST(InsightJSON, MalformedValuesAreTypedFailures) {
  struct Case {
    const char* key;
    Json value;
  } cases[] = {
      {"id", "not-a-uuid"}, {"id", 7},          {"date", "yesterday"}, {"kind", "hot"},
      {"appKind", "robot"}, {"title", 3},       {"ruleID", "6F9619FF"}, {"limitFigure", "gpu"},
      {"appName", false},   {"detail", nullptr},
  };
  for (const auto& c : cases) {
    Json json = fullInsight().toJSON();
    json[c.key] = c.value;
    EXPECT_TRUE(testing::refusedSaying(Insight::fromJSON(json), c.key)) << c.key << " = " << c.value.dump();
  }
  Json missing = fullInsight().toJSON();
  missing.erase("title");
  EXPECT_FALSE(Insight::fromJSON(missing).ok());
  EXPECT_FALSE(Insight::fromJSON(Json::array()).ok());
}

TEST(AppLimitJSON, RoundTripsAndRejectsBadValues) {
  const AppLimit limit{UUID::random(), "exec:/usr/bin/node", "node", std::nullopt, AppLimit::Figure::memory,
                       2e9, 15, false};
  const Json json = limit.toJSON();
  EXPECT_EQ(AppLimit::fromJSON(Json::parse(json.dump())).value(), limit);

  for (auto [key, value] : std::initializer_list<std::pair<const char*, Json>>{
           {"figure", "disk"}, {"limit", -1}, {"limit", "2 GB"}, {"minutes", nullptr}, {"isOn", 1}, {"id", ""}}) {
    Json bad = json;
    bad[key] = value;
    EXPECT_FALSE(AppLimit::fromJSON(bad).ok()) << key;
  }
}

TEST(UUID, IsVersionFourAndRoundTripsThroughText) {
  const UUID a = UUID::random(), b = UUID::random();
  EXPECT_NE(a, b);
  EXPECT_EQ(a.string()[14], '4');
  EXPECT_EQ(UUID::parse(a.string()), a);
  EXPECT_EQ(UUID::parse("6f9619ff-8b86-4011-b42d-00c04fc964ff")->string(), "6F9619FF-8B86-4011-B42D-00C04FC964FF");
  for (const char* bad : {"", "6F9619FF8B864011B42D00C04FC964FF", "6F9619FF-8B86-4011-B42D-00C04FC964FG",
                          "6F9619FF-8B86-4011-B42D+00C04FC964FF"})
    EXPECT_FALSE(UUID::parse(bad)) << bad;
}

TEST(InsightTexts, BytesStretchesAndListsReadAsWords) {
  const std::pair<uint64_t, const char*> cases[] = {
      {0, "0 bytes"},           {1, "1 byte"},           {999, "999 bytes"},          {1000, "1 kB"},
      {12'400, "12 kB"},        {350'000'000, "350 MB"}, {999'600'000, "1 GB"},        {1'200'000'000, "1.2 GB"},
      {5'368'709'120, "5.4 GB"}, {3'000'000'000'000, "3 TB"}, {UINT64_MAX, "18.4 EB"},
  };
  for (auto [count, text] : cases) EXPECT_EQ(InsightTexts::bytes(count), text) << count;

  const std::pair<double, const char*> stretches[] = {
      {0, "the last second"},    {30, "the last 30 seconds"}, {60, "the last minute"},
      {600, "the last 10 minutes"}, {3599, "the last hour"},   {3600, "the last hour"},
      {5400, "the last 90 minutes"}, {7200, "the last 2 hours"}, {86400 * 3, "the last 3 days"},
  };
  for (auto [seconds, text] : stretches) EXPECT_EQ(InsightTexts::lastStretch(seconds), text) << seconds;

  EXPECT_EQ(InsightTexts::list({"a", "b"}), "a and b");
  EXPECT_EQ(InsightTexts::list({"a", "b", "c"}), "a, b and c");
}

}  // namespace
}  // namespace omnira
