// The running store keeps the person's projects and ports current from its project scans,
// on this machine, with a real dev server listening in a project folder.

#include "Omnira/MonitorStore.h"

#include <QEventLoop>
#include <QTimer>

#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tests/Omnira/QtTestApp.h"
#include "tests/containers/DevServer.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;

TEST(MonitorStoreProjects, AProjectScanFindsADevServerAndItsPort) {
  testing::qtTestApp();
  const fs::path root = fs::temp_directory_path() / ("omnira-store-projects-" + std::to_string(::getpid()));
  fs::remove_all(root);
  const fs::path project = root / "work" / "api-server";
  fs::create_directories(project);
  std::ofstream(project / "go.mod") << "module api\n";
  fs::create_directories(root / "config");
  fs::create_directories(root / "data" / "Omnira");

  const testing::DevServer dev(project);
  ASSERT_NE(dev.port(), 0);
  const int port = dev.port();
  const pid_t server = dev.pid();

  std::ofstream(root / "config" / "settings.json") << R"({"refreshSeconds": 1})";
  auto store = std::make_unique<MonitorStore>(MonitorStore::Options{
      AppPaths(root / "data" / "Omnira", root / "config"), Settings::load(root / "config" / "settings.json")});
  store->viewerAppeared();
  store->start();
  const auto found = [&] {
    for (const auto& p : store->ports())
      if (p.port == port) return true;
    return false;
  };
  QEventLoop loop;
  QTimer poll, guard;
  QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
    if (found()) loop.quit();
  });
  QObject::connect(&guard, &QTimer::timeout, &loop, &QEventLoop::quit);
  poll.start(20);
  guard.setSingleShot(true);
  guard.start(60'000);  // only catches a store that stopped ticking
  loop.exec();
  const bool published = found();
  const auto ports = store->ports();
  const auto projects = store->projects();
  store.reset();
  fs::remove_all(root);

  ASSERT_TRUE(published) << "the store published no port " << port;
  const Port* listened = nullptr;
  for (const auto& p : ports)
    if (p.port == port) listened = &p;
  ASSERT_TRUE(listened && listened->process);
  EXPECT_EQ(listened->process->pid, server);
  EXPECT_EQ(listened->process->projectPath, project.string());
  const Project* api = nullptr;
  for (const auto& p : projects)
    if (p.path == project.string()) api = &p;
  ASSERT_NE(api, nullptr);
  EXPECT_EQ(api->name, "api-server");
  EXPECT_EQ(api->devServerCount(), 1u);
}

}  // namespace
}  // namespace omnira
