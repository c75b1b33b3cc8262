// The monitor store running its real loop on this machine's /proc and /sys, inside an event
// loop, with its own data and settings folders. Where a test needs a suspend, the system
// sampler's boot clock is moved on by hand; every other reading is real.

#include "Omnira/MonitorStore.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <fstream>

#include "OmniraCore/platform/linux/LinuxSensorSource.h"
#include "OmniraCore/platform/linux/LinuxSystemSource.h"
#include "tests/Omnira/QtTestApp.h"
#include "tests/cli/CommandRun.h"
#include "tests/containers/DevServer.h"
#include "tests/containers/FakeEngine.h"
#include "tests/platform/linux/TempTree.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::pumpUntil;

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
    fs::create_directories(root_ / "config");
    fs::create_directories(data_);
    parts_.system = [slept = sleptNs_] { return std::make_unique<SystemSampler>(std::make_unique<SleepingMachine>(slept)); };
  }
  void TearDown() override { store_.reset(); }

  Settings settings(const std::string& json) {
    std::ofstream(root_ / "config" / "settings.json") << json;
    return Settings::load(root_ / "config" / "settings.json");
  }
  MonitorStore& start(const std::string& settingsJSON = R"({"refreshSeconds": 1})") {
    store_ = std::make_unique<MonitorStore>(MonitorStore::Options{AppPaths(data_, root_ / "config"), settings(settingsJSON), parts_});
    QObject::connect(store_.get(), &MonitorStore::ticked, [this] { ++ticks_; });
    store_->viewerAppeared();  // every refreshSeconds, processes on every tick
    store_->start();
    return *store_;
  }
  bool runTicks(int count) {
    const int until = ticks_ + count;
    return pumpUntil([&] { return ticks_ >= until; });
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

  platform::TempTree tree_;
  const fs::path root_ = tree_.root();
  const fs::path data_ = root_ / "data" / "Omnira";  // where the omnira command finds it too
  std::shared_ptr<std::atomic<uint64_t>> sleptNs_ = std::make_shared<std::atomic<uint64_t>>(0);
  SamplingParts parts_ = SamplingParts::thisMachine();
  std::unique_ptr<MonitorStore> store_;
  int ticks_ = 0;
};

// One running store through a project's dev server, the system group shown and hidden and a
// night's suspend (a data folder removed under it: HistoryKeeper_test).
TEST_F(StoreTest, FindsProjectsFollowsSettingsAndSurvivesASuspend) {
  const fs::path project = root_ / "work" / "api-server";
  fs::create_directories(project);
  std::ofstream(project / "go.mod") << "module api\n";
  const testing::DevServer dev(project);
  ASSERT_NE(dev.port(), 0);

  auto& store = start();
  const auto listened = [&]() -> const Port* {
    for (const auto& p : store.ports())
      if (p.port == dev.port()) return &p;
    return nullptr;
  };
  ASSERT_TRUE(pumpUntil([&] { return listened() != nullptr; })) << "the store published no port " << dev.port();
  ASSERT_TRUE(listened()->process);
  EXPECT_EQ(listened()->process->projectPath, project.string());
  const auto projects = store.projects();
  const auto api = std::find_if(projects.begin(), projects.end(), [&](const Project& p) { return p.path == project.string(); });
  ASSERT_NE(api, projects.end());

  // Switched on and off again between two ticks: the list follows, the charts keep one
  // point per group and tick.
  ASSERT_TRUE(std::any_of(store.allGroups().begin(), store.allGroups().end(),
                          [](const AppGroup& g) { return g.kind == GroupKind::system; }))
      << "this machine runs processes of the system group";
  const auto listedBefore = store.groups().size();
  const auto points = [&] {
    std::map<std::string, size_t> count;
    for (const auto& [id, line] : store.groupHistory()) count[id] = line.size();
    return count;
  };
  const auto charts = points();
  store.applySettings(settings(R"({"refreshSeconds": 1, "showsSystemInLists": true})"));
  EXPECT_TRUE(store.showsSystemInLists());
  EXPECT_EQ(store.groups().size(), listedBefore + 1);
  EXPECT_EQ(points(), charts);
  store.applySettings(settings(R"({"refreshSeconds": 1})"));
  EXPECT_EQ(store.groups().size(), listedBefore);
  EXPECT_EQ(points(), charts);

  // Eight hours asleep between two ticks: two ticks after waking, each about a second,
  // and nothing near the night is measured time.
  ASSERT_TRUE(runTicks(1));
  const double recorded = recordedSeconds();
  const double ledger = ledgerSeconds();
  EXPECT_GT(recorded, 0);
  int baselines = 0;
  QObject::connect(&store, &MonitorStore::isPrimedChanged, [&] { baselines += store.isPrimed() ? 0 : 1; });
  *sleptNs_ += 28'800ull * 1'000'000'000ull;
  ASSERT_TRUE(runTicks(2));
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

TEST_F(StoreTest, ADismissalWithTheCommandReachesTheRunningStoreAndStays) {
  const UUID kept = *UUID::parse("11111111-0000-4000-8000-000000000001");
  WorthALook before;
  std::vector<Insight> noted;
  for (const char* id : {"11111111-0000-4000-8000-000000000001", "22222222-0000-4000-8000-000000000002"}) {
    Insight& i = noted.emplace_back();
    i.id = *UUID::parse(id);
    i.date = std::chrono::system_clock::now() - 5min;
    i.title = std::string(id) + " is moving a lot of data";
  }
  before.note(noted);
  ASSERT_TRUE(before.save(data_ / "insights.json"));

  auto& store = start();
  ASSERT_TRUE(runTicks(1));
  ASSERT_EQ(store.insights().size(), 2u);
  const auto command = [&](const std::string& arguments) {
    const auto run = testing::runCommandIn(root_, "insights " + arguments, true);
    EXPECT_EQ(run.status, 0) << arguments << ": " << run.out;
  };
  command("dismiss 2222");
  command("pin 1111");

  // The store saves before it has heard of the change: what the person did stays done.
  store.saveInsights();
  auto onDisk = WorthALook::load(data_ / "insights.json");
  ASSERT_TRUE(onDisk) << onDisk.error().message;
  ASSERT_EQ(onDisk->insights().size(), 1u);
  EXPECT_EQ(onDisk->insights()[0].id, kept);
  EXPECT_TRUE(onDisk->isPinned(kept));

  // And it follows the file, as it follows the settings.
  EXPECT_TRUE(pumpUntil([&] { return store.insights().size() == 1; }));
  EXPECT_EQ(store.insights()[0].id, kept);
  EXPECT_TRUE(store.isPinned(kept));

  command("dismiss --all");  // the pinned one stays
  command("unpin 1111");
  EXPECT_TRUE(pumpUntil([&] { return store.pinnedInsightIDs().empty(); }));
  store.stop();
  onDisk = WorthALook::load(data_ / "insights.json");
  ASSERT_TRUE(onDisk);
  EXPECT_EQ(onDisk->insights().size(), 1u);
  EXPECT_TRUE(onDisk->pinned().empty());
  EXPECT_TRUE(onDisk->strain().empty());  // a stopped Omnira watches no strain
}

// This machine's /proc, a ThinkPad's sensors: the store publishes them, judges temperature
// strain and the hot insight by the CPU's package, and hands them to agents.
TEST_F(StoreTest, SensorsReachStrainTheHotInsightAndTheRings) {
  parts_.sensors = [] {
    platform::LinuxSensorSource::Options options;
    options.roots.sys = fs::path(OMNIRA_FIXTURES) / "sys-thinkpad";
    options.helperSocket.clear();
    options.upowerBus = "none";
    return std::make_unique<Sensors>(std::make_unique<platform::LinuxSensorSource>(options));
  };
  // The package reads 55 °C: hot from 50, for a little over a second.
  auto& store = start(R"({"refreshSeconds": 1, "insightHotCelsius": 50, "insightHotMinutes": 0.02})");
  const auto hot = [&]() -> const Insight* {
    for (const auto& insight : store.insights())
      if (insight.kind == Insight::Kind::runningHot) return &insight;
    return nullptr;
  };
  ASSERT_TRUE(pumpUntil([&] { return store.strainSince().contains(StrainKind::temperature) && hot(); }));
  EXPECT_NE(hot()->detail.find("55"), std::string::npos) << hot()->detail;
  ASSERT_TRUE(store.thermal());
  EXPECT_DOUBLE_EQ(*store.thermal()->cpuCelsius, 55);
  EXPECT_EQ(store.thermal()->fanRPM, std::vector<double>{2370});
  ASSERT_TRUE(store.sensors());
  EXPECT_FALSE(store.thermalHistory().empty());
  EXPECT_FALSE(store.powerHistory().empty());  // the platform's RAPL zone: a whole-computer figure
  // The i915 card is a GPU reading, so the system sample carries it as on any machine.
  ASSERT_TRUE(store.system());
  EXPECT_EQ(store.hasGPUReading(), true);
}

// The container engines are asked on a thread of their own: an engine that is slow to
// answer never holds up a tick, and what it answers is published once it comes.
TEST_F(StoreTest, ASlowEngineNeverHoldsUpATickAndItsContainersArePublished) {
  const std::string id(64, 'e');
  // Each answer takes 1.8 s: as long as a tick and a half.
  testing::FakeEngine engine(root_ / "engine.sock", [&](const std::string& path) {
    auto reply = testing::FakeEngine::json(
        path == "/containers/json" ? R"([{"Id": ")" + id + R"(", "Names": ["/db"], "Image": "postgres",
                                       "Ports": [{"PrivatePort": 5432, "PublicPort": 15432}]}])"
        : path == "/info"          ? R"({"MemTotal": 1000})"
                                   : R"({"memory_stats": {"usage": 7000000}})");
    reply.delay = 1800ms;
    return reply;
  });
  parts_.containers = [path = engine.path()] {
    ContainerSampler::Options sampler;
    sampler.engines = {{"Docker", path, std::nullopt}};
    sampler.timeout = 5000ms;
    return std::make_unique<ContainerSampler>(sampler);
  };
  auto& store = start();

  // Nobody wants containers yet: the first project scan only lists them, to name ports.
  ASSERT_TRUE(pumpUntil([&] { return !store.containers().containers.empty(); }, 30'000));
  EXPECT_FALSE(store.containers().withStats);
  EXPECT_EQ(engine.asked(), std::vector<std::string>{"/containers/json"});

  // Now a view wants them: list, info and stats, each 1.8 s, while the ticks go on each second.
  store.requestContainers("test", true);
  const int ticksBefore = ticks_;
  ASSERT_TRUE(pumpUntil([&] { return store.containers().withStats; }, 30'000));
  EXPECT_GE(ticks_ - ticksBefore, 3) << "ticks waited for the engine";
  const auto& db = store.containers().containers.at(0);
  EXPECT_EQ(db.memoryInUseBytes, 7'000'000u);
  EXPECT_EQ(db.publishedPorts, std::vector<uint16_t>{15432});
}

}  // namespace
}  // namespace omnira
