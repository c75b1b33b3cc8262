#include "OmniraCore/history/ReadingsRecorder.h"

#include <gtest/gtest.h>

#include "tests/history/HistoryFiles.h"

namespace omnira {
namespace {

using history_testing::at;
using history_testing::noon;
using Tick = ReadingsRecorder::Tick;
using State = ReadingsRecorder::ThermalState;

SystemSample sample(double interval, double cpu, uint64_t memory) {
  SystemSample s;
  s.interval = interval;
  s.cpuUser = cpu;
  s.memoryApp = memory;
  s.memoryPressureFraction = cpu / 2;
  return s;
}

TEST(ReadingsRecorder, ClosesAPeriodWithTimeWeightedAveragesAndPeaks) {
  ReadingsRecorder recorder;
  auto first = sample(10, 0.2, 1000);
  first.pressure = MemoryPressure::warning;
  first.swapUsed = 50;
  first.gpuUtilization = 0.5;
  Tick hot{.thermal = ThermalSample{.cpuCelsius = 60, .hottestCelsius = 70, .fanRPM = {1000, 3000}},
           .thermalState = State::serious, .powerWatts = 10, .neuralEngineLoad = 0.1};
  EXPECT_FALSE(recorder.record(first, hot, at(noon + 10)));
  auto second = sample(30, 0.6, 3000);
  second.swapUsed = 20;
  // No GPU, sensors or power this tick: their averages cover only the first tick.
  EXPECT_FALSE(recorder.record(second, {.thermalState = State::fair}, at(noon + 40)));
  EXPECT_EQ(recorder.openStart(), noon);

  auto closed = recorder.record(sample(5, 1, 1), {}, at(noon + 300));
  ASSERT_TRUE(closed);
  EXPECT_DOUBLE_EQ(closed->seconds, 40);
  EXPECT_DOUBLE_EQ(closed->cpuPercentAverage, (20 * 10 + 60 * 30) / 40.0);
  EXPECT_EQ(closed->memoryUsedBytesAverage, 2500);
  EXPECT_EQ(closed->memoryPressureLevelPeak, "warning");
  EXPECT_DOUBLE_EQ(*closed->gpuPercentAverage, 50);
  EXPECT_DOUBLE_EQ(*closed->fanRpmAverage, 2000);
  EXPECT_EQ(closed->thermalStatePeak, "serious");
  EXPECT_DOUBLE_EQ(closed->pluggedInSeconds, 40);  // no battery: always on mains
}

TEST(ReadingsRecorder, ThrottlingAndACriticalCPUMakeTheThermalState) {
  auto sensors = [](std::optional<int> cpus, std::optional<double> share, double celsius = 70) {
    SensorSample s;
    s.temperatures.push_back({.name = "Package id 0", .chip = "coretemp", .kind = SensorKind::cpu, .celsius = celsius,
                              .hotCelsius = 90, .criticalCelsius = 100});
    s.throttledCPUs = cpus;
    s.throttledShare = share;
    return s;
  };
  struct Case {
    SensorSample sensors;
    State expected;
  } cases[] = {
      {sensors(std::nullopt, std::nullopt), State::nominal},  // no counters (AMD, VMs)
      {sensors(1, 0.05), State::fair},
      {sensors(1, std::nullopt), State::serious},  // counted, but no time kept
      {sensors(4, 0.5), State::critical},
      {sensors(0, 0.0, 100), State::critical},  // at the CPU's critical temperature
      {sensors(0, 0.0, 95), State::nominal},    // hot, but not slowed down
  };
  for (const auto& c : cases) EXPECT_EQ(ReadingsRecorder::thermalState(c.sensors), c.expected);
  SensorSample board;
  board.temperatures.push_back({.name = "acpitz", .chip = "acpitz", .kind = SensorKind::board, .celsius = 120,
                                .criticalCelsius = 110});
  EXPECT_EQ(ReadingsRecorder::thermalState(board), State::nominal);  // only the CPU's limit counts
}

TEST(ReadingsRecorder, FiguresTheMachineLacksStayEmptyAndBatteryTimeCountsOnlyOnMains) {
  ReadingsRecorder recorder;
  auto onBattery = sample(10, 0.1, 1);
  onBattery.battery = BatterySample{.level = 0.8, .pluggedIn = false};
  auto plugged = onBattery;
  plugged.battery->level = 0.75;
  plugged.battery->pluggedIn = true;
  plugged.interval = 5;
  EXPECT_FALSE(recorder.record(onBattery, {}, at(noon + 1)));
  EXPECT_FALSE(recorder.record(plugged, {}, at(noon + 6)));
  EXPECT_FALSE(recorder.record(sample(0, 1, 1), {}, at(noon + 400)));  // no interval: ignored
  auto closed = recorder.close();
  ASSERT_TRUE(closed);
  EXPECT_FALSE(recorder.close());
  EXPECT_DOUBLE_EQ(closed->pluggedInSeconds, 5);
  EXPECT_DOUBLE_EQ(*closed->batteryPercent, 75);
  EXPECT_FALSE(closed->gpuPercentAverage || closed->neuralEnginePercentAverage || closed->cpuCelsiusAverage ||
               closed->hottestCelsiusPeak || closed->fanRpmAverage || closed->powerWattsPeak);
}

struct ReadingsRecorderFile : history_testing::HistoryFolder {};

// The application quits inside a five-minute period and starts again within it: the row
// holds both runs' parts, not only the second's.
TEST_F(ReadingsRecorderFile, ARestartInsideAPeriodMergesBothRunsParts) {
  {
    auto database = open();
    ASSERT_TRUE(database);
    ReadingsRecorder first;
    auto calm = sample(10, 0.2, 1000);
    calm.battery = BatterySample{.level = 0.9, .pluggedIn = true};
    ASSERT_FALSE(first.record(calm, {.thermalState = State::serious}, at(noon + 10)));
    auto busier = sample(20, 0.4, 2000);
    busier.battery = BatterySample{.level = 0.85, .pluggedIn = false};
    ASSERT_FALSE(first.record(busier, {}, at(noon + 30)));
    auto quitting = first.close();  // as on quit
    ASSERT_TRUE(quitting);
    ASSERT_TRUE(database->writeReading(*quitting));
  }
  auto database = open();
  ASSERT_TRUE(database);
  ReadingsRecorder second;  // the next run's
  auto busy = sample(30, 0.8, 4000);
  busy.battery = BatterySample{.level = 0.8, .pluggedIn = true};
  busy.gpuUtilization = 0.5;
  ASSERT_FALSE(second.record(busy, {.thermal = ThermalSample{.cpuCelsius = 70}, .thermalState = State::fair},
                             at(noon + 100)));
  auto closed = second.record(sample(5, 0.1, 1), {}, at(noon + 300));
  ASSERT_TRUE(closed);
  ASSERT_TRUE(database->writeReading(*closed));

  auto rows = database->readings(noon).value();
  ASSERT_EQ(rows.size(), 1u);
  const auto& row = rows[0];
  EXPECT_DOUBLE_EQ(row.seconds, 60);
  EXPECT_NEAR(row.cpuPercentAverage, (20 * 10 + 40 * 20 + 80 * 30) / 60.0, 1e-9);
  EXPECT_NEAR(static_cast<double>(row.memoryUsedBytesAverage), (1000 * 10 + 2000 * 20 + 4000 * 30) / 60.0, 1);
  EXPECT_NEAR(*row.memoryPressurePercentAverage, (10 * 10 + 20 * 20 + 40 * 30) / 60.0, 1e-9);
  EXPECT_DOUBLE_EQ(*row.gpuPercentAverage, 50);  // measured in the second part only
  EXPECT_EQ(row.thermalStatePeak, "serious");
  EXPECT_DOUBLE_EQ(*row.batteryPercent, 80);
  EXPECT_DOUBLE_EQ(row.pluggedInSeconds, 10 + 30);
}

// `omnira history delete --all` runs while the period is open: what the running
// application read before the deletion must not come back when the period closes.
TEST_F(ReadingsRecorderFile, ReadingsFromBeforeADeletionElsewhereDoNotComeBack) {
  auto running = open();
  ASSERT_TRUE(running);
  uint64_t seen = running->restarts().value();
  ReadingsRecorder recorder;
  // What the store does before each tick's readings.
  const auto follow = [&] {
    const uint64_t now = running->restarts().value();
    if (now != seen) recorder.startAfresh();
    seen = now;
  };
  follow();
  ASSERT_FALSE(recorder.record(sample(10, 0.9, 9000), {}, at(noon + 10)));
  ASSERT_TRUE(open()->deleteAll(at(noon + 20)));
  follow();
  ASSERT_FALSE(recorder.record(sample(20, 0.1, 1000), {}, at(noon + 40)));
  auto closed = recorder.close();
  ASSERT_TRUE(closed);
  ASSERT_TRUE(running->writeReading(*closed));

  auto rows = running->readings(0).value();
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_DOUBLE_EQ(rows[0].seconds, 20);
  EXPECT_EQ(rows[0].memoryUsedBytesPeak, 1000);
}

}  // namespace
}  // namespace omnira
