// The running store asks the container engines on a thread of their own: an engine that is
// slow to answer never holds up a tick, and what it answers is published once it comes.

#include "Omnira/MonitorStore.h"

#include <QEventLoop>
#include <QTimer>

#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>

#include "tests/Omnira/QtTestApp.h"
#include "tests/containers/FakeEngine.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

// Runs the event loop until `done` holds or `seconds` pass.
template <class Done>
bool runUntil(Done done, int seconds) {
  QEventLoop loop;
  QTimer poll, guard;
  QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
    if (done()) loop.quit();
  });
  QObject::connect(&guard, &QTimer::timeout, &loop, &QEventLoop::quit);
  poll.start(20);
  guard.setSingleShot(true);
  guard.start(seconds * 1000);
  loop.exec();
  return done();
}

TEST(MonitorStoreContainers, ASlowEngineNeverHoldsUpATickAndItsContainersArePublished) {
  testing::qtTestApp();
  const fs::path root = fs::temp_directory_path() / ("omnira-store-containers-" + std::to_string(::getpid()));
  fs::remove_all(root);
  fs::create_directories(root / "config");
  fs::create_directories(root / "data" / "Omnira");
  const std::string id(64, 'e');
  // Each answer takes 1.8 s: as long as a tick and a half.
  testing::FakeEngine engine(root / "engine.sock", [&](const std::string& path) -> testing::FakeEngine::Reply {
    auto reply = path == "/containers/json"
                     ? testing::FakeEngine::json(R"([{"Id": ")" + id + R"(", "Names": ["/db"], "Image": "postgres",
                                                   "Ports": [{"PrivatePort": 5432, "PublicPort": 15432}]}])")
                 : path == "/info" ? testing::FakeEngine::json(R"({"MemTotal": 1000})")
                                   : testing::FakeEngine::json(R"({"memory_stats": {"usage": 7000000}})");
    reply.delay = 1800ms;
    return reply;
  });

  std::ofstream(root / "config" / "settings.json") << R"({"refreshSeconds": 1})";
  MonitorStore::Options options{AppPaths(root / "data" / "Omnira", root / "config"),
                                Settings::load(root / "config" / "settings.json")};
  options.parts.containers = [path = engine.path()] {
    ContainerSampler::Options sampler;
    sampler.engines = {{"Docker", path, std::nullopt}};
    sampler.timeout = 5000ms;
    return std::make_unique<ContainerSampler>(sampler);
  };
  auto store = std::make_unique<MonitorStore>(std::move(options));
  int ticks = 0;
  QObject::connect(store.get(), &MonitorStore::ticked, [&] { ++ticks; });
  store->viewerAppeared();
  store->start();

  // Nobody wants containers yet: the first project scan only lists them, to name ports.
  ASSERT_TRUE(runUntil([&] { return !store->containers().containers.empty(); }, 30));
  EXPECT_FALSE(store->containers().withStats);
  EXPECT_EQ(engine.asked(), std::vector<std::string>{"/containers/json"});

  // Now a view wants them: list, info and stats, each 1.8 s, while the ticks go on each second.
  store->requestContainers("test", true);
  const int ticksBefore = ticks;
  const auto asked = std::chrono::steady_clock::now();
  ASSERT_TRUE(runUntil([&] { return store->containers().withStats; }, 30));
  const double waited = std::chrono::duration<double>(std::chrono::steady_clock::now() - asked).count();
  EXPECT_GE(waited, 5.0);
  EXPECT_GE(ticks - ticksBefore, 3) << "ticks waited for the engine";
  const auto& db = store->containers().containers.at(0);
  EXPECT_EQ(db.memoryInUseBytes, 7'000'000u);
  EXPECT_EQ(db.publishedPorts, std::vector<uint16_t>{15432});
  store.reset();  // waits for the container thread, which is idle now
  fs::remove_all(root);
}

}  // namespace
}  // namespace omnira
