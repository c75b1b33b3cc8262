#include "OmniraCore/sampling/SystemSampler.h"

#include <gtest/gtest.h>

namespace omnira {
namespace {

// An in-memory machine whose counters and clock the test moves by hand.
struct FakeMachine final : SystemSource {
  std::vector<CoreTicks> cores{{100, 0, 50, 850}, {100, 0, 50, 850}};
  MemoryReading memoryFigures{16'000, 4'000, 1'000, 500, 3'000, 200, 8'000};
  std::map<std::string, ByteCounters> interfaces{{"eth0", {1'000, 2'000}}};
  std::optional<ByteCounters> disk = ByteCounters{10'000, 20'000};
  DiskSpace space{1'000'000, 400'000};
  std::optional<BatterySample> batteryState;
  uint64_t clockNs = 1'000'000'000;
  uint64_t awakeNs = 700'000'000;  // another origin: only its steps count
  int diskSpaceReads = 0;
  int batteryReads = 0;

  std::vector<CoreTicks> coreTicks() override { return cores; }
  std::optional<MemoryReading> memory() override { return memoryFigures; }
  std::optional<MemoryStall> memoryStall() override { return std::nullopt; }
  std::map<std::string, ByteCounters> interfaceCounters() override { return interfaces; }
  std::optional<ByteCounters> diskCounters() override { return disk; }
  std::optional<DiskSpace> diskSpace() override {
    ++diskSpaceReads;
    return space;
  }
  std::optional<BatterySample> battery() override {
    ++batteryReads;
    return batteryState;
  }
  std::optional<double> loadAverage() override { return 1.25; }
  std::optional<Date> bootTime() override { return Date(std::chrono::seconds(1'000'000)); }
  std::optional<double> uptimeSeconds() override { return 42; }
  uint64_t monotonicNanoseconds() override { return clockNs; }
  uint64_t awakeNanoseconds() override { return awakeNs; }
  Date now() override { return Date(std::chrono::seconds(1'000'000) + std::chrono::nanoseconds(clockNs)); }
};

struct SamplerTest : ::testing::Test {
  std::unique_ptr<FakeMachine> owned = std::make_unique<FakeMachine>();
  FakeMachine& machine = *owned;  // owned by the sampler from here on
  SystemSampler sampler{std::move(owned)};
  void advance(double seconds) {
    machine.clockNs += static_cast<uint64_t>(seconds * 1e9);
    machine.awakeNs += static_cast<uint64_t>(seconds * 1e9);
  }
  // A suspend: the boot clock runs on, the awake clock and every counter stand still.
  void suspend(double seconds) { machine.clockNs += static_cast<uint64_t>(seconds * 1e9); }
};

TEST_F(SamplerTest, FirstSampleHasNoRatesAndLaterOnesMeasureTheInterval) {
  auto first = sampler.sample();
  EXPECT_EQ(first.interval, 0);
  EXPECT_EQ(first.memoryUsed(), 4'000u + 1'000u + 500u);

  // Core 0 busy for 60 of 100 ticks (40 user, 20 system), core 1 idle.
  machine.cores[0] = {140, 0, 70, 890};
  machine.cores[1] = {100, 0, 50, 950};
  machine.interfaces["eth0"] = {3'000, 2'500};
  machine.disk = ByteCounters{14'000, 20'000};
  advance(2);
  auto second = sampler.sample();
  EXPECT_DOUBLE_EQ(second.interval, 2.0);
  ASSERT_EQ(second.cpuPerCore.size(), 2u);
  EXPECT_DOUBLE_EQ(second.cpuPerCore[0], 0.6);
  EXPECT_DOUBLE_EQ(second.networkInBytesPerSec, 1'000);
  EXPECT_DOUBLE_EQ(second.diskReadBytesPerSec, 2'000);
}

TEST_F(SamplerTest, CallsWithinHalfASecondShareOneSample) {
  auto first = sampler.sample();
  machine.cores[0] = {500, 0, 50, 850};
  advance(0.4);
  auto again = sampler.sample();
  EXPECT_EQ(again, first);
  EXPECT_EQ(again.timestamp, first.timestamp);
  advance(0.2);
  EXPECT_NE(sampler.sample().timestamp, first.timestamp);
}

TEST_F(SamplerTest, CountersThatGoBackOrJumpImplausiblyOrAChangedCoreCountCountNothing) {
  machine.interfaces["wlan0"] = {5'000, 5'000};
  (void)sampler.sample();
  machine.interfaces["eth0"] = {500, 2'000 + 150'000'000'000ULL};  // reset; impossible jump in 1 s
  machine.interfaces["wlan0"] = {6'000, 5'500};
  machine.interfaces["usb0"] = {1'000'000, 1'000'000};  // new: counts from the next tick
  machine.disk = ByteCounters{5'000, 30'000};            // read counter went back
  machine.cores[0] = {150, 0, 50, 849};                  // idle (with iowait) went back by one tick
  advance(1);
  auto s = sampler.sample();
  ASSERT_EQ(s.cpuPerCore.size(), 2u);
  EXPECT_DOUBLE_EQ(s.cpuPerCore[0], 1.0);  // not swamped by the wrapped idle delta
  EXPECT_DOUBLE_EQ(s.networkInBytesPerSec, 1'000);
  EXPECT_DOUBLE_EQ(s.diskReadBytesPerSec, 0);
  EXPECT_DOUBLE_EQ(s.diskWriteBytesPerSec, 10'000);

  // A changed core count gives one zero reading.
  machine.cores.push_back({10, 0, 10, 80});
  advance(1);
  auto changed = sampler.sample();
  EXPECT_EQ(changed.cpu(), 0);
  EXPECT_TRUE(changed.cpuPerCore.empty());
  for (auto& core : machine.cores) core.user += 50, core.idle += 50;
  advance(1);
  auto next = sampler.sample();
  ASSERT_EQ(next.cpuPerCore.size(), 3u);
  EXPECT_DOUBLE_EQ(next.cpuPerCore[2], 0.5);
}

TEST_F(SamplerTest, ASampleAfterASuspendIsANewBaseline) {
  (void)sampler.sample();
  advance(2);
  (void)sampler.sample();

  // Busy up to the lid close: 200 kB/s written for the last 3 s, then a night asleep.
  machine.cores[0] = {250, 0, 100, 900};
  machine.disk = ByteCounters{10'000, 20'000 + 600'000};
  machine.interfaces["eth0"] = {1'000 + 300'000, 2'000};
  advance(3);
  suspend(28'800);
  advance(0.5);
  auto woke = sampler.sample();
  EXPECT_EQ(woke.interval, 0);
  EXPECT_NEAR(woke.sleptSeconds, 28'800, 1e-6);
  EXPECT_EQ(woke.cpu(), 0);
  EXPECT_EQ(woke.uptime, static_cast<double>(machine.clockNs) / 1e9);  // uptime counts the night

  // Measured again from the wake-up on.
  machine.cores[0] = {290, 0, 120, 940};
  machine.disk = ByteCounters{10'000, 20'000 + 600'000 + 40'000};
  advance(2);
  auto next = sampler.sample();
  EXPECT_DOUBLE_EQ(next.interval, 2.0);
  EXPECT_DOUBLE_EQ(next.diskWriteBytesPerSec, 20'000);
  ASSERT_EQ(next.cpuPerCore.size(), 2u);
  EXPECT_DOUBLE_EQ(next.cpuPerCore[0], 0.6);

  // Clocks that drift apart by a little are no suspend.
  machine.clockNs += 300'000'000;
  advance(2);
  auto drifted = sampler.sample();
  EXPECT_DOUBLE_EQ(drifted.interval, 2.3);
  EXPECT_EQ(drifted.sleptSeconds, 0);
}

TEST(MemoryPressure, StallFiguresAndAvailableMemoryDecide) {
  const uint64_t total = 1000;
  EXPECT_EQ(pressureLevel(std::nullopt, 500, total), MemoryPressure::normal);
  EXPECT_EQ(pressureLevel(std::nullopt, 99, total), MemoryPressure::warning);
  EXPECT_EQ(pressureLevel(std::nullopt, 100, total), MemoryPressure::normal);
  EXPECT_EQ(pressureLevel(std::nullopt, 49, total), MemoryPressure::critical);
  EXPECT_EQ(pressureLevel(MemoryStall{10.0, 0}, 500, total), MemoryPressure::warning);
  EXPECT_EQ(pressureLevel(MemoryStall{50, 10.0}, 500, total), MemoryPressure::critical);
  EXPECT_DOUBLE_EQ(memoryPressureFraction(30), 0.7);
}

}  // namespace
}  // namespace omnira
