// The running store keeps the person's projects and ports current from its project scans,
// on this machine, with a real dev server listening in a project folder.

#include "Omnira/MonitorStore.h"

#include <QEventLoop>
#include <QTimer>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tests/Omnira/QtTestApp.h"

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

  int ready[2];
  ASSERT_EQ(::pipe(ready), 0);
  const pid_t server = ::fork();
  ASSERT_GE(server, 0);
  if (server == 0) {
    if (::chdir(project.c_str()) != 0) ::_exit(2);
    const std::string fd = std::to_string(ready[1]);
    ::execlp("python3", "python3", "-c",
             "import socket,os,sys,time\n"
             "s=socket.socket(); s.bind(('127.0.0.1',0)); s.listen()\n"
             "os.write(int(sys.argv[1]), str(s.getsockname()[1]).encode()); time.sleep(60)\n",
             fd.c_str(), nullptr);
    ::_exit(3);
  }
  ::close(ready[1]);
  char text[16] = {};
  ASSERT_GT(::read(ready[0], text, sizeof text - 1), 0);
  ::close(ready[0]);
  const int port = std::stoi(text);

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
  ::kill(server, SIGKILL);
  ::waitpid(server, nullptr, 0);
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
