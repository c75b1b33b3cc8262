// LibProc on a scratch copy of a fixture tree that changes between reads: the
// scheduler gate, which must never hide a process that ran (in any of its threads) nor
// keep a stale reading forever, and processes with odd executables.

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "OmniraCore/platform/linux/LibProc.h"
#include "OmniraCore/platform/linux/PidSchedStat.h"
#include "OmniraCore/sampling/ProcessSampler.h"
#include "tests/platform/linux/TempTree.h"

namespace omnira::platform {
namespace {

namespace fs = std::filesystem;

TEST(PidSchedStat, ParsesThreeNumbersOnly) {
  auto s = parsePidSchedStat("91005 17 3\n");
  ASSERT_TRUE(s.ok());
  EXPECT_EQ(*s, (PidSchedStat{91005, 17, 3}));
  for (const char* bad : {"", "1 2", "1 2 3 4", "1 x 3", "-1 2 3", "1 2 3x"})
    EXPECT_FALSE(parsePidSchedStat(bad).ok()) << bad;
}

class GateTree : public ::testing::Test {
 protected:
  TempTree tree{"proc/basic"};
  const fs::path& root_ = tree.root();
  void write(const std::string& relative, const std::string& text) { tree.write(relative, text); }
  void setUserTicks(int ticks, int threads = 1) {
    write("100/stat", "100 (firefox-esr) S 1 100 100 0 -1 4194304 100 0 0 0 " + std::to_string(ticks) + " 300 0 0 20 0 " +
                          std::to_string(threads) +
                          " 0 5000 1000000 100 18446744073709551615 1 1 0 0 0 0 0 0 0 0 0 0 17 1 0 0 0 0 0\n");
  }
  // One thread's files under task/: how long it has run, and its context switches.
  void setThread(int tid, uint64_t runNanoseconds, uint64_t voluntarySwitches) {
    write("100/task/" + std::to_string(tid) + "/schedstat", std::to_string(runNanoseconds) + " 0 10\n");
    write("100/task/" + std::to_string(tid) + "/status",
          "Name:\tfirefox-esr\nUid:\t1000\t1000\t1000\t1000\nvoluntary_ctxt_switches:\t" +
              std::to_string(voluntarySwitches) + "\nnonvoluntary_ctxt_switches:\t5\n");
  }
  ProcessReading read(ProcessSource::Handle& handle) {
    ProcessReading reading;
    auto result = handle.read(reading);
    EXPECT_TRUE(result.ok());
    return reading;
  }
  uint64_t cpuNanoseconds(ProcessSource::Handle& handle) { return read(handle).usage.cpuNanoseconds; }
};

// The threads' schedstat files stand in for the kernel's CPU clock of the process,
// which only the live /proc has.
TEST_F(GateTree, AProcessIsReadAgainWhenAnyOfItsThreadsRan) {
  const uint64_t tick = 1'000'000'000ull / static_cast<uint64_t>(::sysconf(_SC_CLK_TCK));
  for (bool keepOpen : {true, false}) {
    SCOPED_TRACE(keepOpen ? "kept files" : "files opened per read");
    fs::remove_all(root_ / "100" / "task");
    setThread(100, 5000, 40);
    setThread(101, 7000, 500);
    setUserTicks(1200, 2);
    LibProc proc(Roots{root_, root_ / "sys"}, keepOpen);
    auto handle = proc.open(100);
    ASSERT_TRUE(handle.ok());
    auto first = read(**handle);
    EXPECT_EQ(first.usage.cpuNanoseconds, 1500 * tick);
    EXPECT_EQ(first.usage.idleWakeups, 45u + 505u);  // both threads, not the main one's status alone

    // No thread ran since: the costlier files are not consulted.
    setUserTicks(1300, 2);
    EXPECT_EQ(cpuNanoseconds(**handle), 1500 * tick);
    // Only the worker ran, the main thread slept: read in full, switches counted again.
    setThread(101, 9000, 600);
    auto second = read(**handle);
    EXPECT_EQ(second.usage.cpuNanoseconds, 1600 * tick);
    EXPECT_EQ(second.usage.idleWakeups, 45u + 605u);

    // Idle, but every sixth reading is a full one all the same.
    setUserTicks(1400, 2);
    int stale = 0;
    while (cpuNanoseconds(**handle) == 1600 * tick) ++stale;
    EXPECT_EQ(stale, 5);

    // A garbled schedstat turns the gate off rather than freezing the reading.
    write("100/task/101/schedstat", "garbage\n");
    setUserTicks(1500, 2);
    EXPECT_EQ(cpuNanoseconds(**handle), 1800 * tick);
  }
}

// A program run from an anonymous memory file: its "executable" is no path to group by.
TEST_F(GateTree, MemoryFileProgramsAreNamedByTheirFirstArgument) {
  write("300/stat", "300 (memfd:sealed-91) S 1 300 300 0 -1 4194304 0 0 0 0 5 5 0 0 20 0 1 0 9000 1 1 1 1 1 0 0 0 0 0 0 0 0 0 0 17 1 0 0 0 0 0\n");
  write("300/status", "Name:\tmemfd:sealed-91\nUid:\t1000\t1000\t1000\t1000\nRssAnon:\t100 kB\n"
                      "voluntary_ctxt_switches:\t5\nnonvoluntary_ctxt_switches:\t1\n");
  write("300/cmdline", std::string("tools/binary_backend\0--uid\0" "0\0", 27));
  fs::create_symlink("/memfd:sealed-91173221a7ea (deleted)", root_ / "300" / "exe");
  LibProc proc(Roots{root_, root_ / "sys"}, true);
  auto facts = proc.facts(300);
  ASSERT_TRUE(facts.ok());
  EXPECT_FALSE(facts->path);
  ProcessSampler sampler(std::make_unique<LibProc>(Roots{root_, root_ / "sys"}));
  const auto samples = sampler.sample();
  const auto* it = findPID(samples, 300);
  ASSERT_NE(it, nullptr);
  EXPECT_EQ(it->name, "binary_backend");
  EXPECT_FALSE(it->path);
}

}  // namespace
}  // namespace omnira::platform
