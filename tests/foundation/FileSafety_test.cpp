// Omnira's files against another local user: links planted where Omnira writes, FIFOs and
// devices where it reads, folders others can change, and modes under a permissive umask.

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include <fmt/format.h>

#include "Omnira/InstanceLock.h"
#include "OmniraCore/foundation/AppPaths.h"
#include "OmniraCore/foundation/AtomicFile.h"
#include "OmniraCore/foundation/FileLock.h"
#include "OmniraCore/foundation/Settings.h"
#include "OmniraCore/history/HistoryDatabase.h"
#include "OmniraCore/history/HistoryExport.h"
#include "OmniraCore/history/UsageLedger.h"
#include "tests/Omnira/RunningOmnira.h"
#include "tests/support/Refused.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;
using Kind = AtomicFile::ReadFailure::Kind;

constexpr uid_t kNobody = 65534;

using testing::slurp;

mode_t modeOf(const fs::path& path) {
  struct stat info {};
  if (::lstat(path.c_str(), &info) != 0) return 0;
  return info.st_mode & 07777;
}

// A scratch folder, and the umask at its most permissive for the test's length so that
// every mode below is Omnira's own doing.
struct FileSafety : ::testing::Test {
  fs::path root;
  fs::path victim;  // another user's precious file, which must come out untouched
  mode_t savedMask = 0;

  void SetUp() override {
    std::string pattern = (fs::temp_directory_path() / "omnira-safety-XXXXXX").string();
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    root = pattern;
    victim = root / "victim.txt";
    std::ofstream(victim) << "precious";
    ::chmod(victim.c_str(), 0644);
    savedMask = ::umask(0);
  }
  void TearDown() override {
    ::umask(savedMask);
    fs::remove_all(root);
  }

  void plant(const fs::path& link, const fs::path& target = {}) {
    fs::create_directories(link.parent_path());
    fs::create_symlink(target.empty() ? victim : target, link);
  }
  void expectVictimUntouched() {
    EXPECT_EQ(slurp(victim), "precious");
    EXPECT_EQ(fs::file_size(victim), 8u);
    EXPECT_EQ(modeOf(victim), 0644u);
  }
};

TEST_F(FileSafety, SavesArePrivateAndReplaceAPlantedLinkInsteadOfWritingThroughIt) {
  const fs::path file = root / "data" / "Omnira" / "live.json";
  ASSERT_TRUE(AtomicFile::write(file, "{}"));
  EXPECT_EQ(modeOf(file), 0600u);
  EXPECT_EQ(modeOf(root / "data" / "Omnira"), 0700u);

  const fs::path linked = root / "data" / "Omnira" / "usage.json";
  plant(linked);
  ASSERT_TRUE(AtomicFile::write(linked, "{\"days\":{}}"));
  expectVictimUntouched();
  EXPECT_EQ(slurp(linked), "{\"days\":{}}");
  EXPECT_EQ(modeOf(linked), 0600u);
  // Nothing of the saves is left beside them.
  size_t entries = 0;
  for ([[maybe_unused]] const auto& entry : fs::directory_iterator(root / "data" / "Omnira")) ++entries;
  EXPECT_EQ(entries, 2u);
}

TEST_F(FileSafety, ReadTakesOnlyARegularFileWithinItsCapAndSaysWhyNot) {
  // A FIFO with no writer: opened without blocking, refused once seen. A hang fails the run.
  const fs::path fifo = root / "settings.json";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  for (auto links : {AtomicFile::Links::refuse, AtomicFile::Links::follow}) {
    auto read = AtomicFile::read(fifo, AtomicFile::settingsLimit, links);
    ASSERT_FALSE(read);
    EXPECT_EQ(read.error().kind, Kind::notRegular);
  }

  // /dev/zero linked in: refused as a link, and as a device when links are followed.
  const fs::path zero = root / "live.json";
  plant(zero, "/dev/zero");
  EXPECT_NE(AtomicFile::read(zero).error().message.find("link"), std::string::npos);
  EXPECT_EQ(AtomicFile::read(zero, 1024, AtomicFile::Links::follow).error().kind, Kind::notRegular);

  const fs::path linkedFile = root / "linked.json";
  plant(linkedFile);
  EXPECT_EQ(AtomicFile::read(linkedFile).error().kind, Kind::notRegular);
  EXPECT_EQ(AtomicFile::read(linkedFile, 1024, AtomicFile::Links::follow).value(), "precious");

  // The cap: exactly at it is read, one byte past is refused.
  const fs::path big = root / "big.json";
  std::ofstream(big) << std::string(4096, 'x');
  EXPECT_EQ(AtomicFile::read(big, 4096).value().size(), 4096u);
  auto tooLarge = AtomicFile::read(big, 4095);
  ASSERT_FALSE(tooLarge);
  EXPECT_EQ(tooLarge.error().kind, Kind::tooLarge);

  auto missing = AtomicFile::read(root / "nothing.json");
  ASSERT_FALSE(missing);
  EXPECT_EQ(missing.error().kind, Kind::missing);

  auto unreadable = AtomicFile::read(big / "inside.json");  // a file where a folder should be
  ASSERT_FALSE(unreadable);
  EXPECT_EQ(unreadable.error().kind, Kind::unreadable);

  // The loaders go through it: a FIFO or /dev/zero is a failure, at once.
  EXPECT_TRUE(testing::refusedSaying(Settings::read(fifo), "not a regular file"));
}

TEST_F(FileSafety, ACreatedFileIsNewNeverAnExistingOneOrALink) {
  const fs::path file = root / "export.csv";
  ASSERT_TRUE(AtomicFile::create(file, "a,b\r\n"));
  EXPECT_EQ(modeOf(file), 0600u);
  auto again = AtomicFile::create(file, "other");
  ASSERT_FALSE(again);
  EXPECT_EQ(slurp(file), "a,b\r\n");

  const fs::path linked = root / "linked.csv";
  plant(linked);
  auto through = AtomicFile::create(linked, "overwritten");
  ASSERT_FALSE(through);
  expectVictimUntouched();
  plant(root / "to-nowhere.csv", root / "made-through-the-link.csv");
  EXPECT_FALSE(AtomicFile::create(root / "to-nowhere.csv", "x"));
  EXPECT_FALSE(fs::exists(root / "made-through-the-link.csv"));
}

TEST_F(FileSafety, FilesKeptOpenRefuseLinksOtherNamesAndOtherUsers) {
  const fs::path fresh = root / "fresh.lock";
  auto opened = AtomicFile::openOwn(fresh);
  ASSERT_TRUE(opened) << opened.error().message;
  ::close(*opened);
  EXPECT_EQ(modeOf(fresh), 0600u);

  const fs::path loose = root / "loose.lock";
  std::ofstream(loose) << "1\n";
  ::chmod(loose.c_str(), 0644);
  opened = AtomicFile::openOwn(loose);
  ASSERT_TRUE(opened);
  ::close(*opened);
  EXPECT_EQ(modeOf(loose), 0600u);

  const fs::path linked = root / "linked.lock";
  plant(linked);
  EXPECT_TRUE(testing::refusedSaying(AtomicFile::openOwn(linked), "link"));

  const fs::path second = root / "second.lock";
  fs::create_hard_link(victim, second);
  EXPECT_FALSE(AtomicFile::openOwn(second));

  const fs::path fifo = root / "fifo.lock";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_FALSE(AtomicFile::openOwn(fifo));
  expectVictimUntouched();

  if (::geteuid() == 0) {
    const fs::path theirs = root / "theirs.lock";
    std::ofstream(theirs) << "";
    ASSERT_EQ(::chown(theirs.c_str(), kNobody, kNobody), 0);
    EXPECT_TRUE(testing::refusedSaying(AtomicFile::openOwn(theirs), "belongs to"));
  }
}

TEST_F(FileSafety, LocksAreNeverTakenThroughAPlantedLink) {
  const fs::path data = root / "data";
  plant(data / "omnira.lock");
  EXPECT_TRUE(testing::refusedSaying(InstanceLock::acquire(data / "omnira.lock"), "link"));
  expectVictimUntouched();

  plant(data / "insights.json.lock");
  {
    FileLock lock(data / "insights.json");
    EXPECT_NE(lock.failure().find("link"), std::string::npos) << lock.failure();
  }
  expectVictimUntouched();
}

TEST_F(FileSafety, TheHistoryAndItsJournalsArePrivateAndNeverALink) {
  const fs::path data = root / "data";
  fs::create_directories(data);
  {
    auto database = HistoryDatabase::open(data / "history.sqlite");
    ASSERT_TRUE(database) << database.error().message;
    // WAL mode: the -wal and -shm files exist while the connection is open.
    size_t journals = 0;
    for (const char* suffix : {"-wal", "-shm", "-journal"}) {
      const fs::path journal = data / ("history.sqlite" + std::string(suffix));
      if (!fs::exists(journal)) continue;
      ++journals;
      EXPECT_EQ(modeOf(journal), 0600u) << journal;
    }
    EXPECT_GE(journals, 1u);
  }
  EXPECT_EQ(modeOf(data / "history.sqlite"), 0600u);

  plant(data / "linked" / "history.sqlite");
  EXPECT_TRUE(testing::refusedSaying(HistoryDatabase::open(data / "linked" / "history.sqlite"), "link"));
  expectVictimUntouched();
}

TEST_F(FileSafety, AnExportNeverOverwritesOrFollowsWhatIsInTheDownloadsFolder) {
  auto database = HistoryDatabase::open(root / "data" / "history.sqlite");
  ASSERT_TRUE(database);
  const fs::path downloads = root / "Downloads";
  fs::create_directories(downloads);
  const Date now = std::chrono::system_clock::now();
  auto first = HistoryExport::write(**database, downloads, now - std::chrono::hours(1), now);
  ASSERT_TRUE(first) << first.error().message;
  EXPECT_EQ(modeOf(first->machine), 0600u);
  const std::string machineText = slurp(first->machine);

  // The same minute again: the first files stay, the new ones are numbered.
  auto second = HistoryExport::write(**database, downloads, now - std::chrono::hours(1), now);
  ASSERT_TRUE(second) << second.error().message;
  EXPECT_NE(second->machine.filename().string().find(" (2).csv"), std::string::npos) << second->machine;
  EXPECT_EQ(slurp(first->machine), machineText);

  // Another user's links at both names: they and their targets are left as they are.
  for (const auto& file : {first->machine, first->apps, second->machine, second->apps}) {
    fs::remove(file);
    plant(file);
  }
  auto third = HistoryExport::write(**database, downloads, now - std::chrono::hours(1), now);
  ASSERT_TRUE(third) << third.error().message;
  expectVictimUntouched();
  EXPECT_TRUE(fs::is_symlink(first->machine));
  EXPECT_NE(third->machine.filename().string().find(" (3).csv"), std::string::npos) << third->machine;
  EXPECT_EQ(slurp(third->machine), machineText);
}

TEST_F(FileSafety, FoldersOthersCanChangeAreRefusedWithASentence) {
  const AppPaths paths(root / "data" / "Omnira", root / "config" / "Omnira");
  ASSERT_TRUE(paths.prepareFolders()) << paths.prepareFolders().error().message;
  EXPECT_EQ(modeOf(paths.dataFolder()), 0700u);
  EXPECT_EQ(modeOf(paths.settingsFile().parent_path()), 0700u);

  // A folder of ours that others could read is narrowed; one they can write in is refused.
  ::chmod(paths.dataFolder().c_str(), 0755);
  ASSERT_TRUE(paths.prepareFolders());
  EXPECT_EQ(modeOf(paths.dataFolder()), 0700u);
  ::chmod(paths.settingsFile().parent_path().c_str(), 0777);
  EXPECT_TRUE(testing::refusedSaying(paths.prepareFolders(), "other users can write in it"));
  EXPECT_EQ(modeOf(paths.settingsFile().parent_path()), 0777u) << "a refused folder is left as it is";

  // Writable by all without the sticky bit, above Omnira's folder.
  fs::create_directories(root / "shared");
  ::chmod((root / "shared").c_str(), 0777);
  const AppPaths below(root / "shared" / "Omnira", root / "config2" / "Omnira");
  EXPECT_TRUE(testing::refusedSaying(below.prepareFolders(), "anyone can change"));
  EXPECT_FALSE(fs::exists(root / "shared" / "Omnira")) << "nothing is made in a refused place";
  ::chmod((root / "shared").c_str(), 01777);  // as /tmp: others cannot move our folder away
  EXPECT_TRUE(below.prepareFolders());

  if (::geteuid() == 0) {
    // Root with a home another user controls.
    fs::create_directories(root / "victim-home" / "Omnira");
    ASSERT_EQ(::chown((root / "victim-home" / "Omnira").c_str(), kNobody, kNobody), 0);
    EXPECT_TRUE(testing::refusedSaying(AppPaths::checkFolder(root / "victim-home" / "Omnira"), "belongs to"));
    ASSERT_EQ(::chown((root / "victim-home").c_str(), kNobody, kNobody), 0);
    const AppPaths home(root / "victim-home" / "share" / "Omnira", root / "config3" / "Omnira");
    EXPECT_TRUE(testing::refusedSaying(home.prepareFolders(), "above it belongs to"));
    EXPECT_FALSE(fs::exists(root / "victim-home" / "share"));
  }
}

TEST_F(FileSafety, LeftoversOfInterruptedSavesAreRemovedAndNothingElse) {
  const fs::path data = root / "data";
  ASSERT_TRUE(AtomicFile::makeFolders(data));
  // A writer that has ended: a real child, reaped.
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) ::_exit(0);
  ASSERT_EQ(::waitpid(child, nullptr, 0), child);

  const auto name = [](const char* file, pid_t pid, const char* random) {
    return fmt::format(".{}.tmp-{}-{}", file, pid, random);
  };
  const fs::path gone = data / name("live.json", child, "a1B2c3");
  const fs::path ours = data / name("usage.json", ::getpid(), "Zz9Yy8");
  const fs::path oldOurs = data / name("insights.json", ::getpid(), "Qq1Ww2");
  const fs::path link = data / name("requests.json", child, "Ee3Rr4");
  const fs::path person = data / "notes.json.tmp-1-abcdef";  // no leading dot: not ours
  for (const auto& file : {gone, ours, oldOurs, person}) std::ofstream(file) << "{";
  fs::create_symlink(victim, link);
  fs::last_write_time(oldOurs, fs::file_time_type::clock::now() - std::chrono::minutes(5));
  fs::last_write_time(person, fs::file_time_type::clock::now() - std::chrono::minutes(5));

  EXPECT_EQ(AtomicFile::temporaryWriter(gone.filename().string()), child);
  EXPECT_FALSE(AtomicFile::temporaryWriter("live.json"));
  EXPECT_FALSE(AtomicFile::temporaryWriter(".live.json.tmp-12-abc"));

  EXPECT_EQ(AtomicFile::removeStale(data), 2u);
  EXPECT_FALSE(fs::exists(gone));
  EXPECT_FALSE(fs::exists(oldOurs));
  EXPECT_TRUE(fs::exists(ours)) << "a save in progress is left alone";
  EXPECT_TRUE(fs::is_symlink(link));
  EXPECT_TRUE(fs::exists(person));
  expectVictimUntouched();

  // At start, through the folders' preparation.
  std::ofstream(data / name("live.json", child, "T5y6U7")) << "{";
  ASSERT_TRUE(AppPaths(data, root / "config").prepareFolders());
  EXPECT_FALSE(fs::exists(data / name("live.json", child, "T5y6U7")));
}

TEST_F(FileSafety, TheApplicationRefusesADataFolderOthersCanWriteInBeforeTouchingIt) {
  const fs::path data = root / "data" / "Omnira";
  ASSERT_TRUE(AtomicFile::makeFolders(data));
  ::chmod(data.c_str(), 0777);
  plant(data / "omnira.lock");
  testing::RunningOmnira omnira(root, {"--headless"});
  EXPECT_EQ(omnira.wait(), 1);
  const std::string said = testing::slurp(root / "stderr");
  EXPECT_NE(said.find("Omnira will not keep its files in " + data.string() + ": other users can write in it"),
            std::string::npos)
      << said;
  expectVictimUntouched();
  EXPECT_TRUE(fs::is_symlink(data / "omnira.lock"));
}

}  // namespace
}  // namespace omnira
