#include "OmniraCore/history/Strain.h"

#include <gtest/gtest.h>

#include "OmniraCore/history/StrainTracker.h"

namespace omnira {
namespace {

using std::chrono::seconds;
using Kinds = std::set<StrainKind>;

SystemSample calm() {
  SystemSample s;
  s.cpuUser = 0.1;
  s.diskTotal = 1000;
  s.diskAvailable = 500;
  return s;
}

TEST(Strain, EachTestAtItsInclusiveLimit) {
  struct Case {
    const char* name;
    void (*change)(SystemSample&);
    std::optional<double> celsius;
    double hot;
    std::optional<double> neural;
    Kinds expected;
  };
  const Case cases[] = {
      {"cpu exactly 0.9", [](SystemSample& s) { s.cpuUser = 0.6; s.cpuSystem = 0.3; }, {}, 90, {}, {StrainKind::cpu}},
      {"cpu just under", [](SystemSample& s) { s.cpuUser = 0.6; s.cpuSystem = 0.29; }, {}, 90, {}, {}},
      {"pressure warning", [](SystemSample& s) { s.pressure = MemoryPressure::warning; }, {}, 90, {}, {StrainKind::memory}},
      {"gpu 0.9", [](SystemSample& s) { s.gpuUtilization = 0.9; }, {}, 90, {}, {StrainKind::gpu}},
      {"gpu 0.89", [](SystemSample& s) { s.gpuUtilization = 0.89; }, {}, 90, {}, {}},
      {"neural engine 0.9", [](SystemSample&) {}, {}, 90, 0.9, {StrainKind::neuralEngine}},
      {"temperature at threshold", [](SystemSample&) {}, 90.0, 90, {}, {StrainKind::temperature}},
      {"temperature below", [](SystemSample&) {}, 89.9, 90, {}, {}},
      {"threshold of zero", [](SystemSample&) {}, 120.0, 0, {}, {}},
      {"disk 90% used", [](SystemSample& s) { s.diskAvailable = 100; }, {}, 90, {}, {StrainKind::disk}},
      {"disk 89.9% used", [](SystemSample& s) { s.diskAvailable = 101; }, {}, 90, {}, {}},
      {"available above total", [](SystemSample& s) { s.diskAvailable = 5000; }, {}, 90, {}, {}},
      {"battery 20% discharging", [](SystemSample& s) { s.battery = BatterySample{.level = 0.2}; }, {}, 90, {}, {StrainKind::battery}},
      {"battery 20% charging", [](SystemSample& s) { s.battery = BatterySample{.level = 0.2, .charging = true}; }, {}, 90, {}, {}},
  };
  for (const auto& c : cases) {
    SystemSample s = calm();
    c.change(s);
    EXPECT_EQ(Strain::kinds(s, c.celsius, c.hot, c.neural), c.expected) << c.name;
  }
}

class StrainTrackerTimeline : public ::testing::Test {
 protected:
  Date t0 = dateFromSecondsSinceEpoch(1'800'000'000);
  StrainTracker tracker;
  bool at(int second, Kinds kinds) { return tracker.note(kinds, t0 + seconds(second)); }
};

TEST_F(StrainTrackerTimeline, EachKindsEpisodeOutlivesAShortGapAndEndsAfterALongerOne) {
  EXPECT_TRUE(at(0, {StrainKind::cpu}));
  EXPECT_FALSE(at(10, {}));
  EXPECT_FALSE(at(20, {}));
  EXPECT_FALSE(at(25, {StrainKind::cpu}));
  EXPECT_FALSE(at(55, {}));  // exactly 30 s after the last report: still within grace
  EXPECT_EQ(tracker.since().at(StrainKind::cpu), t0);
  EXPECT_TRUE(at(56, {}));
  EXPECT_TRUE(tracker.since().empty());
  EXPECT_TRUE(at(60, {StrainKind::cpu}));  // a new episode
  EXPECT_EQ(tracker.since().at(StrainKind::cpu), t0 + seconds(60));

  // Kinds have their own episodes.
  at(100, {StrainKind::memory});
  at(105, {StrainKind::memory, StrainKind::disk});
  EXPECT_EQ(tracker.since(),
            (std::map<StrainKind, Date>{{StrainKind::memory, t0 + seconds(100)}, {StrainKind::disk, t0 + seconds(105)}}));
  at(140, {StrainKind::disk});  // memory last seen 35 s ago: its episode ends; cpu's too
  EXPECT_EQ(tracker.since(), (std::map<StrainKind, Date>{{StrainKind::disk, t0 + seconds(105)}}));
  // The tick's own report is recorded before stale kinds are dropped, so only ticks
  // without the kind can end its episode.
  EXPECT_FALSE(at(180, {StrainKind::disk}));
  EXPECT_EQ(tracker.since().at(StrainKind::disk), t0 + seconds(105));
}

}  // namespace
}  // namespace omnira
