// The settings watcher on real files in a temporary folder, inside a real Qt event loop.
// The 5-second waits only keep a broken watcher from hanging the suite.

#include <gtest/gtest.h>
#include <unistd.h>

#include <QEventLoop>
#include <QTimer>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>

#include "Omnira/SettingsWatcher.h"
#include "OmniraCore/foundation/SettingsFile.h"
#include "tests/Omnira/QtTestApp.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;

struct SettingsWatcherTest : ::testing::Test {
  fs::path root = fs::temp_directory_path() / ("omnira-settings-watch-" + std::to_string(::getpid()));
  fs::path file = root / "config" / "Omnira" / "settings.json";

  void SetUp() override {
    testing::qtTestApp();
    fs::remove_all(root);
    fs::create_directories(root);
  }
  void TearDown() override { fs::remove_all(root); }

  void writeInPlace(const std::string& text) { std::ofstream(file, std::ios::trunc) << text; }
  // As editors save: a new file beside the old one, renamed over it.
  void renameOver(const std::string& text) {
    const fs::path temporary = file.parent_path() / "settings.json~";
    std::ofstream(temporary, std::ios::trunc) << text;
    fs::rename(temporary, file);
  }

  // Runs the event loop until the next changed() or the guard's end; every emission counts.
  struct Listener {
    explicit Listener(SettingsWatcher& watcher) {
      QObject::connect(&watcher, &SettingsWatcher::changed, &context, [this](const Settings& settings) {
        ++count;
        last = settings;
        if (loop) loop->quit();
      });
    }
    std::optional<Settings> next(int guardMilliseconds = 5000) {
      const int before = count;
      QEventLoop waiting;
      loop = &waiting;
      QTimer::singleShot(guardMilliseconds, &waiting, &QEventLoop::quit);
      if (count == before) waiting.exec();
      loop = nullptr;
      return count > before ? last : std::nullopt;
    }
    QObject context;
    QEventLoop* loop = nullptr;
    int count = 0;
    std::optional<Settings> last;
  };
};

TEST_F(SettingsWatcherTest, SeesSetsRenamesInPlaceWritesAndRemoval) {
  fs::create_directories(file.parent_path());
  SettingsWatcher watcher(file);
  Listener listener(watcher);
  EXPECT_EQ(watcher.current().number(SettingsKeys::refreshSeconds), 1);

  ASSERT_TRUE(SettingsFile(file).set("refreshSeconds", "5").ok());
  auto seen = listener.next();
  ASSERT_TRUE(seen) << "a set through the file was not seen";
  EXPECT_EQ(seen->number(SettingsKeys::refreshSeconds), 5);
  EXPECT_EQ(watcher.current(), *seen);

  renameOver(R"({"refreshSeconds": 7})");
  seen = listener.next();
  ASSERT_TRUE(seen) << "a rename over the file was not seen";
  EXPECT_EQ(seen->number(SettingsKeys::refreshSeconds), 7);

  // The watch must follow the new file, not the one the rename replaced.
  writeInPlace(R"({"refreshSeconds": 8})");
  seen = listener.next();
  ASSERT_TRUE(seen) << "a write in place after a rename was not seen";
  EXPECT_EQ(seen->number(SettingsKeys::refreshSeconds), 8);

  // Half an edit: the last good settings stay, nothing is announced.
  writeInPlace(R"({"refreshSeconds": )");
  EXPECT_FALSE(listener.next(3 * SettingsWatcher::gatherMilliseconds));
  EXPECT_EQ(watcher.current().number(SettingsKeys::refreshSeconds), 8);

  writeInPlace(R"({"refreshSeconds": 9})");
  ASSERT_TRUE(listener.next());
  fs::remove(file);
  seen = listener.next();
  ASSERT_TRUE(seen) << "removing the file was not seen";
  EXPECT_FALSE(seen->contains("refreshSeconds"));
}

TEST_F(SettingsWatcherTest, ARewriteOfTheSameSettingsEmitsNothing) {
  fs::create_directories(file.parent_path());
  writeInPlace(R"({"historySpan": 15, "other": [1, 2]})");
  SettingsWatcher watcher(file);
  Listener listener(watcher);

  renameOver("{\n  \"other\": [1, 2],\n  \"historySpan\": 15\n}\n");  // same values, other layout
  writeInPlace(R"({"historySpan": 15, "other": [1, 2]})");
  ASSERT_TRUE(SettingsFile(file).set("historySpan", "15").ok());
  // Long enough for a watcher that did emit to have done so by far.
  EXPECT_FALSE(listener.next(1000));

  writeInPlace(R"({"historySpan": 30, "other": [1, 2]})");
  auto seen = listener.next();
  ASSERT_TRUE(seen);
  EXPECT_EQ(seen->integer(SettingsKeys::historySpan), 30);
  EXPECT_EQ(listener.count, 1) << "the rewrites of the same settings emitted too";
}

TEST_F(SettingsWatcherTest, PicksUpAFolderThatAppearsLater) {
  // Neither the config folder nor Omnira's folder in it exists yet.
  SettingsWatcher watcher(file);
  Listener listener(watcher);

  ASSERT_TRUE(SettingsFile(file).set("temperatureUnit", "fahrenheit").ok());
  auto seen = listener.next();
  ASSERT_TRUE(seen) << "a file in a folder made after the start was not seen";
  EXPECT_EQ(seen->string(SettingsKeys::temperatureUnit), "fahrenheit");

  // Now watched in its own folder: an in-place write is seen too.
  writeInPlace(R"({"temperatureUnit": "celsius", "insightHotCelsius": 80})");
  seen = listener.next();
  ASSERT_TRUE(seen);
  EXPECT_EQ(seen->number(SettingsKeys::insightHotCelsius), 80);

  // The folder goes away and comes back.
  fs::remove_all(file.parent_path());
  seen = listener.next();
  ASSERT_TRUE(seen);
  EXPECT_EQ(seen->number(SettingsKeys::insightHotCelsius), 90);
  ASSERT_TRUE(SettingsFile(file).set("insightHotCelsius", "85").ok());
  seen = listener.next();
  ASSERT_TRUE(seen) << "a folder made again was not watched again";
  EXPECT_EQ(seen->number(SettingsKeys::insightHotCelsius), 85);
}

}  // namespace
}  // namespace omnira
