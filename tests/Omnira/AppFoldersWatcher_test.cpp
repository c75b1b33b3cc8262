// The installed-apps watcher on real folders inside a real Qt event loop. The gathering is
// shortened; the 5-second guards only keep a broken watcher from hanging the suite.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "Omnira/AppFoldersWatcher.h"
#include "tests/Omnira/QtTestApp.h"
#include "tests/platform/linux/TempTree.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;

struct AppFoldersWatcherTest : ::testing::Test {
  platform::TempTree tree;
  fs::path system = tree.root() / "usr/share/applications";
  fs::path home = tree.root() / "home/.local/share/applications";

  void SetUp() override {
    testing::qtTestApp();
    fs::create_directories(system / "vendor");
    fs::create_directories(home.parent_path());
  }

  static void write(const fs::path& file) { std::ofstream(file) << "[Desktop Entry]\nType=Application\n"; }

  // How many changed() arrive until `quiet` milliseconds pass without one, or the guard ends.
  static int changes(AppFoldersWatcher& watcher, int quiet = 400) {
    int count = 0;
    QEventLoop loop;
    QTimer idle;
    idle.setSingleShot(true);
    idle.setInterval(quiet);
    QObject::connect(&idle, &QTimer::timeout, &loop, &QEventLoop::quit);
    QObject::connect(&watcher, &AppFoldersWatcher::changed, &loop, [&] {
      ++count;
      idle.start();
    });
    QTimer::singleShot(5000, &loop, &QEventLoop::quit);
    idle.start();
    loop.exec();
    return count;
  }
};

TEST_F(AppFoldersWatcherTest, FiresOnceForAnInstallAndWaitsForMissingFolders) {
  AppFoldersWatcher watcher({system, home}, 100);

  // A package's files, in the folder and a vendor subfolder, make one change.
  write(system / "editor.desktop");
  write(system / "vendor/vendor-tool.desktop");
  fs::rename(system / "editor.desktop", system / "editor2.desktop");
  EXPECT_EQ(changes(watcher), 1);

  // Other writes in the folder above a missing one are not a change; its appearance is.
  write(home.parent_path() / "recently-used.xbel");
  EXPECT_EQ(changes(watcher), 0);
  fs::create_directories(home);
  EXPECT_EQ(changes(watcher), 1);
  // And now it is watched itself.
  write(home / "mine.desktop");
  EXPECT_EQ(changes(watcher), 1);
}

}  // namespace
}  // namespace omnira
