// The running store's history when its data folder is removed under it: the store runs
// its real loop on this machine inside an event loop, with its own data folder.

#include <QEventLoop>
#include <QTimer>

#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <fstream>

#include "Omnira/InstanceLock.h"
#include "Omnira/MonitorStore.h"
#include "tests/Omnira/QtTestApp.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;

class StoreHistoryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    testing::qtTestApp();
    root_ = fs::temp_directory_path() / ("omnira-store-history-" + std::to_string(::getpid()));
    fs::remove_all(root_);
    data_ = root_ / "data" / "Omnira";
    fs::create_directories(root_ / "config");
    fs::create_directories(data_);
    std::ofstream(root_ / "config" / "settings.json") << R"({"refreshSeconds": 1})";
    MonitorStore::Options options{AppPaths(data_, root_ / "config"), Settings::load(root_ / "config" / "settings.json")};
    store_ = std::make_unique<MonitorStore>(std::move(options));
    QObject::connect(store_.get(), &MonitorStore::ticked, [this] { ++ticks_; });
    store_->viewerAppeared();
    store_->start();
  }
  void TearDown() override {
    store_.reset();
    fs::remove_all(root_);
  }

  // Runs the event loop for `count` more ticks; the guard only catches a loop that stopped.
  bool runTicks(int count) {
    const int until = ticks_ + count;
    QEventLoop loop;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
      if (ticks_ >= until) loop.quit();
    });
    poll.start(20);
    QTimer guard;
    guard.setSingleShot(true);
    QObject::connect(&guard, &QTimer::timeout, &loop, &QEventLoop::quit);
    guard.start(60'000);
    loop.exec();
    return ticks_ >= until;
  }

  fs::path root_, data_;
  std::unique_ptr<MonitorStore> store_;
  int ticks_ = 0;
};

TEST_F(StoreHistoryTest, ADataFolderRemovedWhileRunningComesBackWithLockAndHistory) {
  ASSERT_TRUE(runTicks(2));
  ASSERT_NE(store_->history(), nullptr);

  fs::remove_all(data_);
  ASSERT_TRUE(runTicks(3));

  ASSERT_TRUE(fs::is_directory(data_));
  auto* history = store_->history();
  ASSERT_NE(history, nullptr);
  EXPECT_EQ(history->url(), data_ / "history.sqlite");
  EXPECT_FALSE(history->isDetached());
  // The ticks since then are in the new file, where another program finds them.
  auto reader = HistoryDatabase::open(data_ / "history.sqlite");
  ASSERT_TRUE(reader);
  auto rows = (*reader)->system(HistoryDatabase::SystemTable::minutes, 0, INT64_MAX);
  ASSERT_TRUE(rows);
  ASSERT_FALSE(rows->empty());
  // A second start is refused again.
  auto second = InstanceLock::acquire(data_ / InstanceLock::fileName);
  ASSERT_FALSE(second);
  EXPECT_EQ(second.error().kind, InstanceLock::Failure::Kind::alreadyRunning);
}

}  // namespace
}  // namespace omnira
