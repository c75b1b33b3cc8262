// The action log in a real file: what a record keeps, how long and how many, and a file
// that cannot be read set aside rather than overwritten.

#include "OmniraCore/bridge/ActionLog.h"

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include "tests/platform/linux/TempTree.h"

#include <filesystem>
#include <fstream>

namespace omnira {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

ActionRecord record(Date at, const char* target) {
  ActionRecord r;
  r.id = UUID::random();
  r.date = at;
  r.asker = "Claude Code";
  r.target = target;
  r.verdict = "safe";
  r.outcome = ActionRecord::Outcome::quit;
  r.detail = ActionRecord::Detail{"A tool of yours that nothing else uses.", {"esbuild (52)"}, {5173}, {}, 12.5, {}};
  return r;
}

TEST(ActionLog, KeepsThirtyDaysAndFiveHundredAtMost) {
  const Date now = Date(std::chrono::seconds(1'795'600'000));
  std::vector<ActionRecord> records;
  records.push_back(record(now - 31 * 24h, "too old"));
  records.push_back(record(now - 29 * 24h, "kept"));
  EXPECT_EQ(ActionRecord::pruned(records, now).size(), 1u);
  for (int i = 0; i < 600; ++i) records.push_back(record(now - std::chrono::seconds(600 - i), "many"));
  const auto kept = ActionRecord::pruned(records, now);
  ASSERT_EQ(kept.size(), 500u);
  EXPECT_EQ(kept.back().date, now - 1s);  // the newest stay

  const auto json = records[1].toJSON();
  EXPECT_EQ(ActionRecord::fromJSON(json).value(), records[1]);
  auto wrong = json;
  wrong["outcome"] = "exploded";
  EXPECT_EQ(ActionRecord::fromJSON(wrong).error().message, "\"outcome\" is not quit, declined, unanswered or refused");
}

TEST(ActionLog, ADamagedLogIsSetAsideAndABadRecordCostsOnlyItself) {
  const platform::TempTree tree;
  const fs::path& folder = tree.root();
  const ActionLog log(folder / "requests.json");
  EXPECT_TRUE(log.read()->records.empty());  // missing: empty
  const Date now = std::chrono::system_clock::now();
  ASSERT_TRUE(log.add(record(now - 1min, "node (1)"), now).ok());
  ASSERT_TRUE(log.add(record(now, "node (2)"), now).ok());
  ASSERT_EQ(log.read()->records.size(), 2u);
  struct stat info {};
  ::stat((folder / "requests.json").c_str(), &info);
  EXPECT_EQ(info.st_mode & 0777, 0600u) << "what agents asked is the person's alone";

  // Cut short, as by a crash of some other writer: moved aside with its bytes, then a fresh log.
  const std::string cut = R"([{"id": "3f2a)";
  std::ofstream(folder / "requests.json") << cut;
  const auto added = log.add(record(now, "node (3)"), now);
  ASSERT_TRUE(added.ok());
  ASSERT_TRUE(added->setAside);
  const auto aside = folder / ("requests.json.bad-" + formatLocal(std::chrono::system_clock::now(), "%Y-%m-%d"));
  EXPECT_NE(added->setAside->find(aside.string()), std::string::npos) << *added->setAside;
  EXPECT_EQ(log.read()->records.size(), 1u);

  // One record that no longer decodes costs only itself; the whole file is kept aside first.
  std::ofstream(folder / "requests.json", std::ios::trunc)
      << "[" << record(now - 2min, "a").toJSON().dump() << ", {\"id\": 5}, " << record(now - 1min, "b").toJSON().dump() << "]";
  const auto kept = log.add(record(now, "c"), now);
  ASSERT_TRUE(kept.ok()) << kept.error().message;
  EXPECT_FALSE(kept->setAside);
  ASSERT_EQ(log.read()->records.size(), 3u);
}

}  // namespace
}  // namespace omnira
