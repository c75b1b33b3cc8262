// The settings watcher on real files in a temporary folder, inside a real Qt event loop.
// The 5-second waits only keep a broken watcher from hanging the suite.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <optional>

#include "Omnira/SettingsWatcher.h"
#include "OmniraCore/foundation/SettingsFile.h"
#include "tests/Omnira/QtTestApp.h"
#include "tests/platform/linux/TempTree.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;

struct SettingsWatcherTest : ::testing::Test {
  void SetUp() override { testing::qtTestApp(); }

  platform::TempTree tree;  // the config folder in it comes later
  fs::path file = tree.root() / "config" / "Omnira" / "settings.json";

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
      });
    }
    std::optional<Settings> next(int guardMilliseconds = 5000) {
      const int before = count;
      return testing::pumpUntil([&] { return count > before; }, guardMilliseconds) ? last : std::nullopt;
    }
    QObject context;
    int count = 0;
    std::optional<Settings> last;
  };
};

TEST_F(SettingsWatcherTest, FollowsTheFileThroughEveryWayItChangesButNotThroughRewrites) {
  // Neither the config folder nor Omnira's folder in it exists yet.
  SettingsWatcher watcher(file);
  Listener listener(watcher);
  EXPECT_EQ(watcher.current().number(SettingsKeys::refreshSeconds), 1);

  ASSERT_TRUE(SettingsFile(file).set("refreshSeconds", "5").ok());
  auto seen = listener.next();
  ASSERT_TRUE(seen) << "a file in a folder made after the start was not seen";
  EXPECT_EQ(seen->number(SettingsKeys::refreshSeconds), 5);

  renameOver(R"({"refreshSeconds": 7})");
  seen = listener.next();
  ASSERT_TRUE(seen) << "a rename over the file was not seen";
  EXPECT_EQ(seen->number(SettingsKeys::refreshSeconds), 7);

  // The watch must follow the new file, not the one the rename replaced.
  writeInPlace(R"({"refreshSeconds": 8, "other": [1, 2]})");
  seen = listener.next();
  ASSERT_TRUE(seen) << "a write in place after a rename was not seen";
  EXPECT_EQ(seen->number(SettingsKeys::refreshSeconds), 8);

  // The same settings in another layout, written in place or set again, are no change;
  // nor is half an edit, after which the last good settings stay.
  const int before = listener.count;
  renameOver("{\n  \"other\": [1, 2],\n  \"refreshSeconds\": 8\n}\n");
  writeInPlace(R"({"refreshSeconds": 8, "other": [1, 2]})");
  ASSERT_TRUE(SettingsFile(file).set("refreshSeconds", "8").ok());
  EXPECT_FALSE(listener.next(1000));  // long enough for a watcher that did emit to have done so
  writeInPlace(R"({"refreshSeconds": )");
  EXPECT_FALSE(listener.next(3 * SettingsWatcher::gatherMilliseconds));
  EXPECT_EQ(watcher.current().number(SettingsKeys::refreshSeconds), 8);
  EXPECT_EQ(listener.count, before) << "the rewrites of the same settings emitted";

  writeInPlace(R"({"refreshSeconds": 9})");
  ASSERT_TRUE(listener.next());
  fs::remove(file);
  seen = listener.next();
  ASSERT_TRUE(seen) << "removing the file was not seen";
  EXPECT_FALSE(seen->contains("refreshSeconds"));

  // The folder goes away and comes back.
  ASSERT_TRUE(SettingsFile(file).set("insightHotCelsius", "80").ok());
  seen = listener.next();
  ASSERT_TRUE(seen) << "a file made again was not seen";
  EXPECT_EQ(seen->number(SettingsKeys::insightHotCelsius), 80);
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
