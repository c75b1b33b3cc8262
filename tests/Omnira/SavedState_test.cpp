// The files the running application keeps between runs: the live charts, "Worth a Look",
// the single-instance lock.

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>

#include "Omnira/InstanceLock.h"
#include "Omnira/LiveHistory.h"
#include "OmniraCore/history/WorthALook.h"
#include "tests/Omnira/RunningOmnira.h"
#include "tests/platform/linux/TempTree.h"
#include "tests/support/Refused.h"

namespace omnira {
namespace {

using namespace std::chrono_literals;

class SavedState : public ::testing::Test {
 protected:
  void write(const std::string& name, const std::string& text) { tree_.write(name, text); }
  std::string read(const std::string& name) { return testing::slurp(folder_ / name); }

  platform::TempTree tree_;
  const std::filesystem::path& folder_ = tree_.root();
};

Insight insight(const std::string& app, Date date) {
  Insight i;
  i.id = UUID::random();
  i.date = date;
  i.appID = app;
  i.title = app + " has been busy";
  i.detail = "For ten minutes.";
  return i;
}

TEST_F(SavedState, LiveHistoryRoundTripsTrimsAndRefusesDamage) {
  const Date now = std::chrono::time_point_cast<std::chrono::seconds>(std::chrono::system_clock::now());
  LiveHistory live;
  live.savedAt = now;
  for (int i = 0; i < 3; ++i) {
    SystemSample sample;
    sample.timestamp = now - std::chrono::seconds(200 * i);
    sample.cpuUser = 0.1 * i;
    sample.memoryTotal = 8ull << 30;
    live.systemHistory.insert(live.systemHistory.begin(), sample);
  }
  live.groupHistory["firefox"] = {{now - 400s, 12.5, 1ull << 30, 0.5, 100, 200}, {now, 3, 1ull << 29, 0, 0, 0}};
  live.groupHistory["gone"] = {{now - 1000s, 1, 1, 0, 0, 0}};
  ASSERT_TRUE(live.save(folder_ / "live.json"));

  auto loaded = LiveHistory::load(folder_ / "live.json");
  ASSERT_TRUE(loaded) << loaded.error().message;
  EXPECT_EQ(*loaded, live);

  // Five minutes back from now: the 400 s sample and the app with only old points go.
  loaded->trim(now, 300);
  EXPECT_EQ(loaded->systemHistory.size(), 2u);
  EXPECT_EQ(loaded->groupHistory.size(), 1u);

  EXPECT_TRUE(LiveHistory::load(folder_ / "missing.json"));  // nothing saved yet
  const std::string good = read("live.json");
  // Not live history at all: moved aside whole, and the failure says where.
  for (const std::string& damaged : {good.substr(0, good.size() / 2), std::string("[]")}) {
    write("live.json", damaged);
    EXPECT_TRUE(testing::refusedSaying(LiveHistory::load(folder_ / "live.json"), "live.json.bad-")) << damaged;
  }
  // A bad sample or point costs only itself.
  write("live.json", R"({"savedAt":"2026-11-22T10:00:00Z","systemHistory":[{"cpuUser":"x"}],)"
                     R"("groupHistory":{"a":[{"date":"2026-11-22T10:00:00Z","cpu":1,"memory":-5,"power":0,"disk":0,"network":0},)"
                     R"({"date":"2026-11-22T10:00:01Z","cpu":2,"memory":5,"power":0,"disk":0,"network":0}]}})");
  auto partly = LiveHistory::load(folder_ / "live.json");
  ASSERT_TRUE(partly) << partly.error().message;
  EXPECT_TRUE(partly->systemHistory.empty());
  ASSERT_EQ(partly->groupHistory["a"].size(), 1u);
  EXPECT_EQ(partly->groupHistory["a"][0].cpu, 2);
}

TEST_F(SavedState, WorthALookKeepsNewestFirstAndPins) {
  const Date now{std::chrono::seconds(1'800'000'000)};
  WorthALook list;
  ASSERT_TRUE(list.note({insight("a", now), insight("b", now + 1s)}));
  EXPECT_EQ(list.insights()[0].appID, "b");
  const UUID pinned = list.insights()[1].id;
  EXPECT_TRUE(list.togglePin(pinned));

  // Past the bound the oldest unpinned fall off; the pinned one stays.
  std::vector<Insight> many;
  for (size_t i = 0; i < WorthALook::kept + 10; ++i) many.push_back(insight("x" + std::to_string(i), now + 10s));
  list.note(many);
  EXPECT_EQ(list.insights().size(), WorthALook::kept + 1);
  EXPECT_TRUE(list.isPinned(pinned));
  EXPECT_EQ(list.insights().back().id, pinned);

  ASSERT_TRUE(list.save(folder_ / "insights.json"));
  auto loaded = WorthALook::load(folder_ / "insights.json");
  ASSERT_TRUE(loaded);
  EXPECT_EQ(*loaded, list);

}

TEST_F(SavedState, InsightsSurviveABadEntryAnUnreadableFileAndDamage) {
  const Date now{std::chrono::seconds(1'800'000'000)};
  const auto path = folder_ / "insights.json";
  const auto aside = path.string() + ".bad-" + formatLocal(std::chrono::system_clock::now(), "%Y-%m-%d");
  // Three insights, one pinned, and entries and a pin that no longer decode: each costs only itself.
  WorthALook list;
  list.note({insight("a", now), insight("b", now + 1s), insight("c", now + 2s)});
  const UUID pinned = list.insights()[1].id;
  list.pin(pinned, true);
  auto json = list.toJSON();
  json["insights"].push_back({{"id", "bad"}});
  json["insights"].push_back({{"kind", "unknown"}});
  json["pinned"].push_back("nope");
  const std::string original = json.dump();
  write("insights.json", original);

  auto noted = WorthALook::update(path, [&](WorthALook& l) { l.note({insight("d", now + 3s)}); }, &list);
  ASSERT_TRUE(noted) << noted.error().message;
  auto loaded = WorthALook::load(path);
  ASSERT_TRUE(loaded);
  EXPECT_EQ(loaded->insights().size(), 4u);
  EXPECT_TRUE(loaded->isPinned(pinned));
  {
    std::ifstream kept(aside);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(kept), {}), original);
  }

  // Unreadable: the running list changes, the file is not written over.
  const std::string before = read("insights.json");
  const auto unreadable = [&](const char* how) {
    const WorthALook empty;
    auto changed = WorthALook::update(path, [&](WorthALook& l) { l.note({insight("e", now + 4s)}); }, &empty);
    ASSERT_TRUE(changed) << how;
    EXPECT_EQ(changed->insights().size(), 1u) << how;
    EXPECT_TRUE(testing::refusedSaying(WorthALook::update(path, [](WorthALook&) {}), "not saved over")) << how;
  };
  if (::geteuid() != 0) {  // root reads anything
    std::filesystem::permissions(path, std::filesystem::perms::none);
    unreadable("chmod 000");
    std::filesystem::permissions(path, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    EXPECT_EQ(read("insights.json"), before);
  }
  const auto moved = folder_ / "held";
  std::filesystem::rename(path, moved);
  std::filesystem::create_directories(path / "inside");  // a folder cannot be read as a file, even by root
  unreadable("a folder");
  EXPECT_TRUE(std::filesystem::exists(path / "inside"));
  std::filesystem::remove_all(path);
  std::filesystem::rename(moved, path);
  // Readable again: the file is where changes start, and saves resume.
  auto resumed = WorthALook::update(path, [&](WorthALook& l) { l.dismiss(pinned); });
  ASSERT_TRUE(resumed) << resumed.error().message;
  EXPECT_EQ(WorthALook::load(path)->insights().size(), 3u);

}

TEST_F(SavedState, OneInstanceHoldsTheLockUntilItLetsGo) {
  const auto file = folder_ / "sub" / "omnira.lock";
  auto first = InstanceLock::acquire(file);
  ASSERT_TRUE(first) << first.error().message;
  auto second = InstanceLock::acquire(file);
  ASSERT_FALSE(second);
  EXPECT_EQ(second.error().kind, InstanceLock::Failure::Kind::alreadyRunning);
  EXPECT_EQ(second.error().message, "Omnira is already running (process " + std::to_string(::getpid()) + ").");

  { InstanceLock moved = std::move(*first); }  // released with its last owner
  EXPECT_TRUE(InstanceLock::acquire(file));

  std::filesystem::create_directories(folder_ / "blocked");
  std::filesystem::permissions(folder_ / "blocked", std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
  if (::geteuid() != 0) {  // root ignores permissions
    auto refused = InstanceLock::acquire(folder_ / "blocked" / "omnira.lock");
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().kind, InstanceLock::Failure::Kind::cannotLock);
  }
  std::filesystem::permissions(folder_ / "blocked", std::filesystem::perms::owner_all);
}

}  // namespace
}  // namespace omnira
