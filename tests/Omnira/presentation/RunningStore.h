#pragma once
// A monitor store sampling this machine for real, with its own data and settings folders,
// for the desktop parts to read. runUntil() turns the event loop until a condition holds;
// its guard only catches a loop that stopped, it measures nothing.

#include <QEventLoop>
#include <QTimer>

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "Omnira/MonitorStore.h"
#include "tests/Omnira/QtTestApp.h"

namespace omnira::testing {

class RunningStore : public ::testing::Test {
 protected:
  void SetUp() override {
    qtTestApp();
    root_ = std::filesystem::temp_directory_path() /
            ("omnira-desktop-" + std::to_string(::getpid()) + "-" +
             ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::remove_all(root_);
    std::filesystem::create_directories(root_ / "config");
    std::filesystem::create_directories(root_ / "data");
  }
  void TearDown() override {
    if (store_) store_->stop();
    store_.reset();
    std::filesystem::remove_all(root_);
  }

  AppPaths paths() const { return AppPaths(root_ / "data", root_ / "config"); }
  std::filesystem::path settingsFile() const { return root_ / "config" / "settings.json"; }
  void writeSettings(const std::string& json) const { std::ofstream(settingsFile()) << json; }

  MonitorStore& start() {
    store_ = std::make_unique<MonitorStore>(MonitorStore::Options{paths(), Settings::load(settingsFile())});
    store_->start();
    return *store_;
  }

  static bool runUntil(const std::function<bool()>& done) {
    QEventLoop loop;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
      if (done()) loop.quit();
    });
    poll.start(10);
    QTimer guard;
    guard.setSingleShot(true);
    QObject::connect(&guard, &QTimer::timeout, &loop, &QEventLoop::quit);
    guard.start(60'000);
    if (!done()) loop.exec();
    return done();
  }

  std::filesystem::path root_;
  std::unique_ptr<MonitorStore> store_;
};

}  // namespace omnira::testing
