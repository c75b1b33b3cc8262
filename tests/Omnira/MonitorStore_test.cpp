// The monitor store running its real loop on this machine's /proc and /sys, inside an event
// loop, with its own data and settings folders. Where a test needs a suspend, the system
// sampler's boot clock is moved on by hand; every other reading is real.

#include "Omnira/MonitorStore.h"

#include <QEventLoop>
#include <QTimer>

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <functional>

#include "OmniraCore/platform/linux/LinuxSensorSource.h"
#include "OmniraCore/platform/linux/LinuxSystemSource.h"
#include "OmniraCore/platform/linux/ThisMachine.h"
#include "tests/Omnira/QtTestApp.h"
#include "tests/cli/CommandRun.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;

// This machine, except that its boot clock runs ahead by however long the test says the
// computer slept.
class SleepingMachine final : public platform::LinuxSystemSource {
 public:
  explicit SleepingMachine(std::shared_ptr<std::atomic<uint64_t>> sleptNs)
      : LinuxSystemSource(platform::Roots{}), sleptNs_(std::move(sleptNs)) {}
  uint64_t monotonicNanoseconds() override { return LinuxSystemSource::monotonicNanoseconds() + sleptNs_->load(); }

 private:
  std::shared_ptr<std::atomic<uint64_t>> sleptNs_;
};

class StoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    testing::qtTestApp();
    root_ = fs::temp_directory_path() / ("omnira-store-" + std::to_string(::getpid()) + "-" +
                                         ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(root_);
    data_ = root_ / "data" / "Omnira";
    fs::create_directories(root_ / "config");
    fs::create_directories(data_);
  }
  void TearDown() override {
    store_.reset();
    fs::remove_all(root_);
  }

  MonitorStore& start(const std::string& settingsJSON) {
    std::ofstream(root_ / "config" / "settings.json") << settingsJSON;
    MonitorStore::Options options{AppPaths(data_, root_ / "config"),
                                  Settings::load(root_ / "config" / "settings.json")};
    auto slept = sleptNs_;
    options.parts.system = [slept] {
      return std::make_unique<SystemSampler>(std::make_unique<SleepingMachine>(slept));
    };
    if (sensors_) options.parts.sensors = sensors_;
    store_ = std::make_unique<MonitorStore>(std::move(options));
    QObject::connect(store_.get(), &MonitorStore::ticked, [this] { ++ticks_; });
    store_->viewerAppeared();  // every refreshSeconds, processes on every tick
    store_->start();
    return *store_;
  }

  // Runs the event loop until `done` holds. The guard only catches a loop that stopped
  // ticking; it does not measure speed.
  bool runUntil(const std::function<bool()>& done) {
    QEventLoop loop;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
      if (done()) loop.quit();
    });
    poll.start(20);
    QTimer guard;
    guard.setSingleShot(true);
    QObject::connect(&guard, &QTimer::timeout, &loop, &QEventLoop::quit);
    guard.start(60'000);
    if (!done()) loop.exec();
    return done();
  }
  bool runTicks(int count) {
    const int until = ticks_ + count;
    return runUntil([&] { return ticks_ >= until; });
  }

  // Seconds the history's minute rows hold, as `omnira history` reads them.
  double recordedSeconds() {
    auto rows = store_->history()->system(HistoryDatabase::SystemTable::minutes, 0, INT64_MAX);
    double seconds = 0;
    if (rows)
      for (const auto& row : *rows) seconds += row.seconds;
    return seconds;
  }
  double ledgerSeconds() {
    double seconds = 0;
    for (const auto& [key, day] : store_->liveLedger().days()) seconds += day.seconds;
    return seconds;
  }

  fs::path root_;
  fs::path data_;  // where the omnira command finds it too
  std::shared_ptr<std::atomic<uint64_t>> sleptNs_ = std::make_shared<std::atomic<uint64_t>>(0);
  std::unique_ptr<MonitorStore> store_;
  std::function<std::unique_ptr<Sensors>()> sensors_;  // this machine's unless set
  int ticks_ = 0;
};

TEST_F(StoreTest, ATickAfterASuspendBooksNothingAndStartsAfresh) {
  auto& store = start(R"({"refreshSeconds": 1})");
  ASSERT_TRUE(runTicks(2));
  ASSERT_NE(store.history(), nullptr);
  const double recorded = recordedSeconds();
  const double ledger = ledgerSeconds();
  EXPECT_GT(recorded, 0);

  int baselines = 0;
  QObject::connect(&store, &MonitorStore::isPrimedChanged, [&] { baselines += store.isPrimed() ? 0 : 1; });

  // Eight hours asleep between two ticks.
  *sleptNs_ += 28'800ull * 1'000'000'000ull;
  ASSERT_TRUE(runTicks(2));

  // Two ticks after waking, each about a second: nothing near the night is measured time.
  EXPECT_LT(recordedSeconds() - recorded, 10);
  EXPECT_LT(ledgerSeconds() - ledger, 10);
  for (const auto& sample : store.systemHistory()) {
    EXPECT_LT(sample.interval, 10);
    EXPECT_EQ(sample.sleptSeconds, 0);
  }
  EXPECT_EQ(baselines, 1);  // both samplers took a new baseline once
  EXPECT_TRUE(store.isPrimed());
  EXPECT_FALSE(store.allGroups().empty());  // the app rows were measured again after waking
}

TEST_F(StoreTest, ShowingTheSystemGroupChangesTheListButNotTheCharts) {
  auto& store = start(R"({"refreshSeconds": 1})");
  ASSERT_TRUE(runTicks(1));
  ASSERT_FALSE(store.groupHistory().empty());
  const bool hasSystem = std::any_of(store.allGroups().begin(), store.allGroups().end(),
                                     [](const AppGroup& g) { return g.kind == GroupKind::system; });
  ASSERT_TRUE(hasSystem) << "this machine runs processes of the system group";
  const auto listedBefore = store.groups().size();

  // Switched on and off again between two ticks: the list follows, the charts keep one
  // point per group and tick.
  const auto points = [&] {
    std::map<std::string, size_t> count;
    for (const auto& [id, line] : store.groupHistory()) count[id] = line.size();
    return count;
  };
  const auto charts = points();
  std::ofstream(root_ / "config" / "settings.json") << R"({"refreshSeconds": 1, "showsSystemInLists": true})";
  store.applySettings(Settings::load(root_ / "config" / "settings.json"));
  EXPECT_TRUE(store.showsSystemInLists());
  EXPECT_EQ(store.groups().size(), listedBefore + 1);
  EXPECT_EQ(points(), charts);
  std::ofstream(root_ / "config" / "settings.json") << R"({"refreshSeconds": 1})";
  store.applySettings(Settings::load(root_ / "config" / "settings.json"));
  EXPECT_EQ(store.groups().size(), listedBefore);
  EXPECT_EQ(points(), charts);
}

Insight insight(const std::string& id, const std::string& title) {
  Insight i;
  i.id = *UUID::parse(id);
  i.date = std::chrono::system_clock::now() - std::chrono::minutes(5);
  i.kind = Insight::Kind::networkBurst;
  i.appID = "exec:/usr/bin/curl";
  i.appName = "curl";
  i.title = title;
  i.detail = "1.2 GB over the network in the last 10 minutes.";
  return i;
}

TEST_F(StoreTest, ADismissalWithTheCommandReachesTheRunningStoreAndStays) {
  const UUID kept = *UUID::parse("11111111-0000-4000-8000-000000000001");
  const UUID dismissed = *UUID::parse("22222222-0000-4000-8000-000000000002");
  WorthALook before;
  before.note({insight(kept.string(), "curl is moving a lot of data"),
               insight(dismissed.string(), "wget is moving a lot of data")});
  ASSERT_TRUE(before.save(data_ / "insights.json"));

  auto& store = start(R"({"refreshSeconds": 1})");
  ASSERT_TRUE(runTicks(1));
  ASSERT_EQ(store.insights().size(), 2u);

  const auto command = [&](const std::string& arguments) {
    return testing::runShell("XDG_DATA_HOME='" + (root_ / "data").string() + "' XDG_CONFIG_HOME='" +
                             (root_ / "config").string() + "' " + OMNIRA_CLI_PATH + " insights " + arguments +
                             " 2>&1");
  };
  auto done = command("dismiss 2222");
  ASSERT_EQ(done.status, 0) << done.out;
  done = command("pin 1111");
  ASSERT_EQ(done.status, 0) << done.out;

  // The store saves before it has heard of the change: what the person did stays done.
  store.saveInsights();
  auto onDisk = WorthALook::load(data_ / "insights.json");
  ASSERT_TRUE(onDisk) << onDisk.error().message;
  ASSERT_EQ(onDisk->insights().size(), 1u);
  EXPECT_EQ(onDisk->insights()[0].id, kept);
  EXPECT_TRUE(onDisk->isPinned(kept));

  // And it follows the file, as it follows the settings.
  EXPECT_TRUE(runUntil([&] { return store.insights().size() == 1; }));
  EXPECT_EQ(store.insights()[0].id, kept);
  EXPECT_TRUE(store.isPinned(kept));

  ASSERT_EQ(command("dismiss --all").status, 0);  // the pinned one stays
  ASSERT_EQ(command("unpin 1111").status, 0);
  EXPECT_TRUE(runUntil([&] { return store.pinnedInsightIDs().empty(); }));
  store.stop();
  onDisk = WorthALook::load(data_ / "insights.json");
  ASSERT_TRUE(onDisk);
  EXPECT_EQ(onDisk->insights().size(), 1u);
  EXPECT_TRUE(onDisk->pinned().empty());
  EXPECT_TRUE(onDisk->strain().empty());  // a stopped Omnira watches no strain
}

}  // namespace
}  // namespace omnira

namespace omnira {
namespace {

// This machine's /proc, a ThinkPad's sensors: the store publishes them, judges temperature
// strain and the hot insight by the CPU's package, and hands them to agents.
TEST_F(StoreTest, SensorsReachStrainTheHotInsightAndTheRings) {
  sensors_ = [] {
    platform::LinuxSensorSource::Options options;
    options.roots.sys = fs::path(OMNIRA_FIXTURES) / "sys-thinkpad";
    options.helperSocket.clear();
    options.upowerBus = "none";
    return std::make_unique<Sensors>(std::make_unique<platform::LinuxSensorSource>(options));
  };
  // The package reads 55 °C: hot from 50, for a little over a second.
  auto& store = start(R"({"refreshSeconds": 1, "insightHotCelsius": 50, "insightHotMinutes": 0.02})");
  const auto hot = [&] {
    for (const auto& insight : store.insights())
      if (insight.kind == Insight::Kind::runningHot) return true;
    return false;
  };
  ASSERT_TRUE(runUntil([&] { return store.strainSince().contains(StrainKind::temperature) && hot(); }));

  EXPECT_EQ(store.hasTemperature(), true);
  ASSERT_TRUE(store.thermal());
  EXPECT_DOUBLE_EQ(*store.thermal()->cpuCelsius, 55);
  EXPECT_EQ(store.thermal()->fanRPM, std::vector<double>{2370});
  ASSERT_TRUE(store.sensors());
  EXPECT_EQ(store.sensors()->gpus.size(), 1u);
  EXPECT_FALSE(store.thermalHistory().empty());
  EXPECT_FALSE(store.powerHistory().empty());  // the platform's RAPL zone: a whole-computer figure
  EXPECT_EQ(store.hasSystemPower(), true);
  // The i915 card is a GPU reading, so the system sample carries it as on any machine.
  ASSERT_TRUE(store.system());
  EXPECT_EQ(store.hasGPUReading(), true);
  for (const auto& insight : store.insights())
    if (insight.kind == Insight::Kind::runningHot) EXPECT_NE(insight.detail.find("55"), std::string::npos) << insight.detail;
}

}  // namespace
}  // namespace omnira
