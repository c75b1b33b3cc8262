// Setting a damaged saved file aside on a real folder: the names it gets, that nothing is
// replaced, and what a later save may do.

#include "OmniraCore/foundation/SavedFile.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>

#include "tests/Omnira/RunningOmnira.h"
#include "tests/platform/linux/TempTree.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;

struct SavedFileFolder : ::testing::Test {
  platform::TempTree tree;
  const fs::path& folder = tree.root();
  fs::path file = folder / "worth-a-look.json";
  const Date now = std::chrono::system_clock::now();
  void write(const fs::path& path, const std::string& text) { std::ofstream(path, std::ios::trunc) << text; }
  std::string contents(const fs::path& path) { return testing::slurp(path); }
};

TEST_F(SavedFileFolder, AsidesAreDatedNumberedAndNeverReplaced) {
  const fs::path first = folder / ("worth-a-look.json.bad-" + formatLocal(now, "%Y-%m-%d"));
  write(file, "one");
  auto aside = SavedFile::setAside(file, now);
  ASSERT_TRUE(aside.ok()) << aside.error();
  EXPECT_EQ(*aside, first);
  EXPECT_FALSE(fs::exists(file));

  write(file, "two");
  aside = SavedFile::setAside(file, now, /*keepOriginal=*/true);
  ASSERT_TRUE(aside.ok()) << aside.error();
  EXPECT_EQ(aside->string(), first.string() + "-2");
  EXPECT_EQ(contents(file), "two");  // kept in place as well
  write(file, "three");
  aside = SavedFile::setAside(file, now);
  ASSERT_TRUE(aside.ok()) << aside.error();
  EXPECT_EQ(aside->string(), first.string() + "-3");
  EXPECT_EQ(contents(first), "one");
  EXPECT_EQ(contents(first.string() + "-3"), "three");

  EXPECT_FALSE(SavedFile::setAside(folder / "missing.json", now).ok());
}

TEST_F(SavedFileFolder, ASaveWaitsForAReadAndKeepsWhatWasDropped) {
  write(file, "[\"good\", \"bad\"]");
  SavedFile::found(file, SavedFile::Found::unreadable);
  EXPECT_FALSE(SavedFile::mayReplace(file, now));
  EXPECT_FALSE(SavedFile::mayReplace(file, now)) << "until a load reads it";
  SavedFile::found(file, SavedFile::Found::whole);
  EXPECT_TRUE(SavedFile::mayReplace(file, now));
  EXPECT_EQ(std::distance(fs::directory_iterator(folder), fs::directory_iterator()), 1);

  SavedFile::found(file, SavedFile::Found::someDropped, "1 entry was left out");
  EXPECT_TRUE(SavedFile::mayReplace(file, now));
  EXPECT_EQ(contents(folder / ("worth-a-look.json.bad-" + formatLocal(now, "%Y-%m-%d"))), "[\"good\", \"bad\"]");
  EXPECT_TRUE(SavedFile::mayReplace(file, now));
  EXPECT_EQ(std::distance(fs::directory_iterator(folder), fs::directory_iterator()), 2) << "kept once, not at every save";
}

}  // namespace
}  // namespace omnira
