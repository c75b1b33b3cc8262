#include "OmniraCore/history/InsightEngine.h"

#include <gtest/gtest.h>

#include "tests/history/InsightTestSupport.h"

namespace omnira {
namespace {

using namespace testing_support;

std::vector<Insight::Kind> kinds(const std::vector<Insight>& insights) {
  std::vector<Insight::Kind> out;
  for (const auto& insight : insights) out.push_back(insight.kind);
  return out;
}

// Feeds one app's CPU at the given seconds; returns what the last tick raised.
std::vector<Insight> cpuSeries(InsightEngine& engine, const std::vector<std::pair<double, double>>& series,
                               GroupKind kind = GroupKind::app, std::optional<std::string> frontmost = {}) {
  Clock clock(engine);
  clock.frontmost = frontmost;
  std::vector<Insight> last;
  for (auto [second, cpu] : series) last = clock.tick(second, {group("busy", {.cpu = cpu}, kind)});
  return last;
}

// Ten points whose oldest is 570 s old at the last: 7 at 65 %, 3 at 15 %, an average of exactly 50 %.
std::vector<std::pair<double, double>> borderline() {
  std::vector<std::pair<double, double>> series;
  const double seconds[] = {0, 60, 120, 180, 240, 300, 360, 420, 480, 570};
  for (int i = 0; i < 10; ++i) series.emplace_back(seconds[i], i < 7 ? 65 : 15);
  return series;
}

TEST(InsightEngineSustainedCPU, RaisesAtExactlyTheThresholdAndShareAndNotJustShortOrForExemptApps) {
  InsightEngine engine;
  auto raised = cpuSeries(engine, borderline());
  ASSERT_EQ(kinds(raised), std::vector{Insight::Kind::sustainedCPU});
  EXPECT_EQ(raised[0].detail, "50% on average for the last 10 minutes while in the background.");

  auto lowerAverage = borderline();
  lowerAverage[0].second = 64;  // 49.9 %
  auto fewerBusy = borderline();
  for (int i = 0; i < 10; ++i) fewerBusy[i].second = i < 6 ? 75 : 12.5;  // 50 %, but 60 % busy
  auto tooYoung = borderline();
  tooYoung[0].first = 1;  // oldest 569 s old
  auto heavy = borderline();
  for (int i = 0; i < 10; ++i) heavy[i].second = i < 7 ? 260 : 60;  // 200 % on average
  struct Case {
    const char* name;
    std::vector<std::pair<double, double>> series;
    size_t raises = 0;
    GroupKind kind = GroupKind::app;
    std::optional<std::string> frontmost = {};
    std::optional<double> mutedUntil = {};
    bool mutedForGood = false;
  };
  const Case cases[] = {
      {"average 49.9 %", lowerAverage},
      {"busy share 0.6", fewerBusy},
      {"oldest point 569 s old", tooYoung},
      {"a system group under its own threshold", borderline(), 0, GroupKind::system},
      {"a system group at its own threshold", heavy, 1, GroupKind::system},
      {"frontmost", borderline(), 0, GroupKind::app, "busy"},
      {"muted for good", borderline(), 0, GroupKind::app, {}, {}, true},
      {"muted until exactly now: no longer muted", borderline(), 1, GroupKind::app, {}, 570},
  };
  for (const auto& c : cases) {
    InsightEngine each;
    if (c.mutedForGood) each.muted["busy"] = std::nullopt;
    if (c.mutedUntil) each.muted["busy"] = at(*c.mutedUntil);
    EXPECT_EQ(cpuSeries(each, c.series, c.kind, c.frontmost).size(), c.raises) << c.name;
  }
}

TEST(InsightEngineMerge, TicksUnderTwentySecondsApartFoldIntoTheLastPointExceptTheFirstTwo) {
  InsightEngine engine;
  engine.thresholds.cpuPercent = 80;
  // Unmerged the four points would average 75 %; merged, the last is (0 + 100) / 2.
  auto raised = cpuSeries(engine, {{0, 100}, {300, 100}, {570, 0}, {580, 100}});
  ASSERT_EQ(raised.size(), 1u);
  EXPECT_EQ(raised[0].detail, "83% on average for the last 10 minutes while in the background.");

  // The first two ticks never merge: three points (0, 10, 600) are enough; had the second
  // merged there would be two.
  InsightEngine first;
  EXPECT_EQ(cpuSeries(first, {{0, 100}, {10, 100}, {600, 100}}).size(), 1u);
}

TEST(InsightEngineMerge, MemoryIsReplacedAndBytesAddUp) {
  InsightEngine engine;
  engine.thresholds.diskBurstBytes = 46'000'000'000;
  Clock clock(engine);
  clock.tick(0, {group("db", {.memory = 3 * GiB})});
  clock.tick(300, {group("db", {.memory = 3 * GiB})});
  EXPECT_TRUE(clock.tick(600, {group("db", {.memory = 2 * GiB, .diskWritePerSec = 150e6})}).empty());  // 45 GB
  // 10 s later: 10 × 100 MB/s more, and the merged point's memory is the new 3 GiB, so no growth from 2 GiB.
  auto raised = clock.tick(610, {group("db", {.memory = 3 * GiB, .diskWritePerSec = 100e6})});
  ASSERT_EQ(kinds(raised), std::vector{Insight::Kind::diskBurst});
  EXPECT_EQ(raised[0].detail, "46 GB written in the last 10 minutes.");
}

AppLimit cpuLimitFor(const std::string& appID, double minutes, double percent = 80) {
  return AppLimit{UUID::random(), appID, appID, std::nullopt, AppLimit::Figure::cpu, percent, minutes, true};
}
AppLimit cpuLimit(double percent, double minutes) { return cpuLimitFor("app", minutes, percent); }

TEST(InsightEngineMemoryGrowth, NeedsFiftyOfTwoGigabytesNotTwentyFiveOfFour) {
  struct Case {
    uint64_t from, to;
    double firstSecond;
    bool raises;
  } cases[] = {
      {2 * GiB, 3 * GiB, 0, true},
      {4 * GiB, 5 * GiB, 0, false},
      {0, 3 * GiB, 0, false},        // a zero baseline says nothing
  };
  for (const auto& c : cases) {
    InsightEngine engine;
    Clock clock(engine);
    clock.tick(c.firstSecond, {group("app", {.memory = c.from})});
    clock.tick(300, {group("app", {.memory = (c.from + c.to) / 2})});
    auto raised = clock.tick(600, {group("app", {.memory = c.to})});
    EXPECT_EQ(raised.size(), c.raises ? 1u : 0u) << c.from << " → " << c.to << " from " << c.firstSecond;
    if (c.raises) {
      EXPECT_EQ(raised[0].detail, "Up 1.1 GB in the last 10 minutes, now at 3.2 GB.");
    }
  }
}

TEST(InsightEngineBursts, DiskAndNetworkFromTheBurstWindowOnlyEvenForTheFrontmostApp) {
  InsightEngine engine;
  engine.thresholds.cooldown = 0;
  Clock clock(engine);
  clock.frontmost = "sync";
  clock.tick(0, {group("sync")});
  // One second at exactly 5 GiB written and 1 GiB moved: both limits are inclusive.
  auto raised = clock.tick(1, {group("sync", {.diskWritePerSec = 5.0 * GiB, .networkPerSec = 1.0 * GiB})});
  ASSERT_EQ(kinds(raised), (std::vector{Insight::Kind::diskBurst, Insight::Kind::networkBurst}));
  EXPECT_EQ(clock.tick(601, {group("sync")}).size(), 2u);  // 600 s old: still in the window
  EXPECT_TRUE(clock.tick(602, {group("sync")}).empty());
  EXPECT_TRUE(clock.tick(603, {group("sync", {.diskWritePerSec = 5.0 * GiB - 1})}).empty());
}

TEST(InsightEngineAppLimit, CPULimitOverItsOwnWindowEvenFrontmostButNotOffForOtherAppsOrShortSeries) {
  InsightEngine engine;
  engine.limits = {cpuLimit(80, 5)};
  Clock clock(engine);
  clock.frontmost = "app";  // limits apply to the frontmost app too
  for (double second : {0, 100, 200}) EXPECT_TRUE(clock.tick(second, {group("app", {.cpu = 90})}).empty());
  auto raised = clock.tick(285, {group("app", {.cpu = 90})});  // oldest exactly 0.95 × 300 s old
  ASSERT_EQ(kinds(raised), std::vector{Insight::Kind::appLimit});
  EXPECT_EQ(raised[0].detail, "90% on average for the last 5 minutes, above your 80% limit.");

  struct Case {
    const char* name;
    AppLimit limit;
    std::vector<double> seconds;
  };
  AppLimit off = cpuLimit(80, 5);
  off.isOn = false;
  AppLimit other = cpuLimit(80, 5);
  other.appID = "other";
  const Case cases[] = {
      {"off", off, {0, 100, 200, 300}},
      {"another app", other, {0, 100, 200, 300}},
      {"two points", cpuLimit(80, 5), {0, 300}},
      {"window not covered", cpuLimit(80, 5), {16, 100, 200, 300}},
      {"under a minute is a minute", cpuLimit(80, 0), {0, 20, 56}},
  };
  for (const auto& c : cases) {
    InsightEngine each;
    each.limits = {c.limit};
    Clock eachClock(each);
    std::vector<Insight> last;
    for (double second : c.seconds) last = eachClock.tick(second, {group("app", {.cpu = 90})});
    EXPECT_TRUE(last.empty()) << c.name;
  }
}

TEST(InsightEngineAppLimit, MemoryLimitNeedsEveryPointOverIt) {
  AppLimit limit = cpuLimit(2e9, 5);
  limit.figure = AppLimit::Figure::memory;
  for (bool dip : {false, true}) {
    InsightEngine engine;
    engine.limits = {limit};
    Clock clock(engine);
    clock.tick(0, {group("app", {.memory = 2'000'000'000})});
    clock.tick(100, {group("app", {.memory = dip ? 1'999'999'999u : 2'100'000'000u})});
    clock.tick(200, {group("app", {.memory = 2'500'000'000})});
    auto raised = clock.tick(300, {group("app", {.memory = 2'500'000'000})});
    if (dip) {
      EXPECT_TRUE(raised.empty());
      continue;
    }
    ASSERT_EQ(raised.size(), 1u);
    EXPECT_EQ(raised[0].detail, "Using 2.5 GB, above your 2 GB limit, for the last 5 minutes.");
  }
}

TEST(InsightEngineSeries, HorizonFollowsTheLongestLimitAndGoneAppsLoseTheirSeries) {
  InsightEngine engine;
  engine.limits = {cpuLimit(80, 120)};  // a two-hour window outlasts the default hour
  Clock clock(engine);
  for (double second = 0; second <= 7200; second += 600) {
    auto raised = clock.tick(second, {group("app", {.cpu = 90})});
    EXPECT_EQ(raised.size(), second == 7200 ? 1u : 0u) << second;
  }
  // The app vanishes for a tick: its series starts over, so the limit needs two hours again.
  engine.thresholds.cooldown = 0;
  clock.tick(7300, {});
  EXPECT_TRUE(clock.tick(7800, {group("app", {.cpu = 90})}).empty());
}

TEST(InsightEnginePressure, OnlyARiseRaises) {
  using P = MemoryPressure;
  struct Case {
    std::vector<P> levels;
    size_t raises;
  } cases[] = {
      {{P::normal, P::warning, P::critical}, 2},
      {{P::warning, P::normal, P::warning}, 2},
  };
  for (const auto& c : cases) {
    InsightEngine engine;
    engine.thresholds.cooldown = 0;  // the edges alone, without the repeat filter
    Clock clock(engine);
    size_t raised = 0;
    double second = 0;
    for (P level : c.levels) raised += clock.tick(second += 5, {}, level).size();
    EXPECT_EQ(raised, c.raises) << c.levels.size() << " levels starting " << static_cast<int>(c.levels[0]);
  }
}

TEST(InsightEnginePressure, NamesTheTwoBiggestUsers) {
  const std::vector<AppGroup> groups = {group("small", {.memory = 100'000'000}),
                                        group("big", {.memory = 3'000'000'000}),
                                        group("mid", {.memory = 1'200'000'000})};
  InsightEngine engine;
  Clock clock(engine);
  auto raised = clock.tick(5, groups, MemoryPressure::critical);
  ASSERT_EQ(raised.size(), 1u);
  EXPECT_EQ(raised[0].detail, "The biggest users are big (3 GB) and mid (1.2 GB).");

  InsightEngine one;
  Clock oneClock(one);
  raised = oneClock.tick(5, {groups[0]}, MemoryPressure::warning);
  EXPECT_EQ(raised[0].title, "The computer is running short of memory");
  EXPECT_EQ(raised[0].detail, "The biggest user is small (100 MB).");
}

TEST(InsightEngineIdleServers, RaisesForEnoughServersAndNotForASubsetOfThoseReported) {
  InsightEngine engine;
  Clock clock(engine);
  auto tick = [&](double second, std::vector<IdleServer> servers) {
    return clock.tick(second, {}, MemoryPressure::normal, servers, std::nullopt, std::nullopt);
  };
  const IdleServer vite{12, "vite", 150'000'000, 5173}, next{7, "next", 200'000'000, 3000},
      rails{40, "rails", 100'000'000, 3000};
  EXPECT_TRUE(tick(0, {vite}).empty());
  auto raised = tick(5, {vite, next});
  ASSERT_EQ(raised.size(), 1u);
  EXPECT_EQ(raised[0].title, "2 dev servers are running but idle");
  EXPECT_EQ(raised[0].detail, "vite and next. Stopping them frees 350 MB and ports 3000 and 5173.");

  engine.thresholds.idleServerCount = 1;
  EXPECT_TRUE(tick(10, {next}).empty());  // one of the two already reported
  raised = tick(15, {rails});
  ASSERT_EQ(raised.size(), 1u);
  EXPECT_EQ(raised[0].detail, "rails. Stopping them frees 100 MB and port 3000.");
  EXPECT_TRUE(tick(3620, {next}).size() == 1);  // the earlier report is over an hour old
}

class InsightEngineHotSpell : public ::testing::Test {
 protected:
  InsightEngine engine;
  Clock clock{engine};
  void SetUp() override { engine.thresholds.cooldown = 0; }
  // Only the hot-spell notices; the busy app raises its own.
  std::vector<Insight> tick(double second, std::optional<ThermalSample> thermal) {
    auto raised = clock.tick(second, {group("render", {.cpu = 350}), group("idle", {.cpu = 3})},
                             MemoryPressure::normal, {}, thermal, std::nullopt);
    std::erase_if(raised, [](const Insight& i) { return i.kind != Insight::Kind::runningHot; });
    return raised;
  }
  static ThermalSample cpu(double celsius) { return ThermalSample{celsius, 70.0, {2400, 2600}}; }
};

TEST_F(InsightEngineHotSpell, RaisesOncePerSpellWithHysteresisAndNotWithoutAReading) {
  struct Step {
    double second, celsius;
    bool raises;
  } steps[] = {
      {0, 91, false},    // warming
      {179, 90, false},  // 179 s hot
      {180, 90, true},
      {200, 99, false},  // reported
      {300, 85, false},  // hovering between 85 and 90 neither clears nor raises
      {400, 91, false},
      {580, 91, false},    // had 85 cleared the spell, a new one would be reported here
      {600, 84.9, false},  // below 85: cool again
      {700, 90, false},    // hot again: a new spell
      {880, 95, true},
  };
  for (const auto& step : steps)
    EXPECT_EQ(tick(step.second, cpu(step.celsius)).size(), step.raises ? 1u : 0u) << step.second;

  // No reading is no insight, and neither ends the spell nor raises on its own.
  tick(900, cpu(80));
  tick(1000, cpu(95));
  EXPECT_TRUE(tick(1100, std::nullopt).empty());
  EXPECT_TRUE(tick(1150, ThermalSample{}).empty());
  EXPECT_EQ(tick(1200, cpu(95)).size(), 1u);
}

TEST_F(InsightEngineHotSpell, DetailNamesSensorAppsAndFans) {
  tick(0, cpu(93));
  EXPECT_EQ(tick(240, cpu(93)).at(0).detail,
            "93 °C at the CPU for the last 4 minutes. render is doing most of the work. "
            "The fans are at 2400 and 2600 rpm.");

  InsightEngine other;
  other.thresholds.fahrenheit = true;
  Clock otherClock(other);
  const ThermalSample hottest{std::nullopt, 90.0, {1800}};
  otherClock.tick(0, {}, MemoryPressure::normal, {}, hottest, std::nullopt);
  auto raised = otherClock.tick(180, {}, MemoryPressure::normal, {}, hottest, std::nullopt);
  ASSERT_EQ(raised.size(), 1u);
  EXPECT_EQ(raised[0].detail, "194 °F at the hottest sensor for the last 3 minutes. The fan is at 1800 rpm.");
}

std::vector<Insight> neuralSeries(InsightEngine& engine, double load, std::optional<AppGroup> app,
                                  double firstSecond = 0) {
  Clock clock(engine);
  std::vector<Insight> last;
  for (double second = firstSecond; second < 1140; second += 60)
    clock.tick(second, {}, MemoryPressure::normal, {}, std::nullopt, NeuralEngineHolder{load, app});
  return clock.tick(1140, {}, MemoryPressure::normal, {}, std::nullopt, NeuralEngineHolder{load, app});
}

TEST(InsightEngineNeuralEngine, RaisesForASustainedLoadNamingTheAppWhenKnownAndOnlyThen) {
  InsightEngine anonymous("Debian GNU/Linux");
  auto raised = neuralSeries(anonymous, 0.75, std::nullopt);
  ASSERT_EQ(raised.size(), 1u);
  EXPECT_EQ(raised[0].title, "The Neural Engine has been busy");
  EXPECT_EQ(raised[0].detail,
            "75% on average for the last 20 minutes. Debian GNU/Linux doesn’t say which app is using it.");

  InsightEngine named;
  raised = neuralSeries(named, 0.5, group("whisper"));
  ASSERT_EQ(raised.size(), 1u);
  EXPECT_EQ(raised[0].title, "whisper has been working the Neural Engine");
  EXPECT_EQ(raised[0].detail, "50% on average for the last 20 minutes.");

  // Nothing below the share, short of the window, or without readings.
  InsightEngine low, late, none;
  EXPECT_TRUE(neuralSeries(low, 0.49, std::nullopt).empty());
  EXPECT_TRUE(neuralSeries(late, 0.9, std::nullopt, 1).empty());  // oldest 1139 s old
  Clock clock(none);
  for (double second = 0; second <= 1200; second += 60) EXPECT_TRUE(clock.tick(second, {}).empty());
}

TEST(InsightEngineRepeats, SameInsightIsDroppedWithinTheCooldown) {
  InsightEngine engine;
  Clock clock(engine);
  const std::vector<AppGroup> heavy = {group("sync", {.diskWritePerSec = 6e9})};
  clock.tick(0, {group("sync")});
  EXPECT_EQ(clock.tick(1, heavy).size(), 1u);
  EXPECT_TRUE(clock.tick(2, heavy).empty());
  EXPECT_EQ(clock.tick(3, {group("other", {.diskWritePerSec = 6e9})}).size(), 1u);  // another app
  EXPECT_TRUE(clock.tick(3600, heavy).empty());  // 3599 s after
  EXPECT_EQ(clock.tick(3601, heavy).size(), 1u);
}

TEST(InsightEngineRepeats, SeededInsightsHoldBackTheirRepeatsAfterARestartByTheirKey) {
  Insight earlier;
  earlier.kind = Insight::Kind::memoryPressure;
  earlier.appID = "warning";
  earlier.date = at(-1800);
  Insight older = earlier;
  older.appID = "critical";
  older.date = at(-3600);

  InsightEngine engine;
  engine.seedCooldowns({earlier, older});
  Clock clock(engine);
  EXPECT_TRUE(clock.tick(0, {}, MemoryPressure::warning).empty());
  EXPECT_EQ(clock.tick(5, {}, MemoryPressure::critical).size(), 1u);

  // The key includes the rule when there is one.
  Insight insight;
  insight.kind = Insight::Kind::appLimit;
  insight.appID = "app";
  insight.ruleID = UUID::parse("6F9619FF-8B86-4011-B42D-00C04FC964FF");
  EXPECT_EQ(InsightEngine::repeatKey(insight), "appLimit:app:6F9619FF-8B86-4011-B42D-00C04FC964FF");
}

TEST(InsightEngineThresholds, GigabyteSettingsSaturateInsteadOfOverflowing) {
  using T = InsightEngine::Thresholds;
  EXPECT_EQ(T::bytesFromGigabytes(1), GiB);
  EXPECT_EQ(T::bytesFromGigabytes(1e12), UINT64_MAX);
  EXPECT_DEATH(T::bytesFromGigabytes(-1), "");
}

}  // namespace
}  // namespace omnira
