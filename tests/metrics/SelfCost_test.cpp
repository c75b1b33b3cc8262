#include "OmniraCore/metrics/SelfCost.h"

#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>

#include "OmniraCore/platform/linux/LinuxSystemSource.h"

namespace omnira::platform {
namespace {

const std::filesystem::path fixtures = std::filesystem::path(OMNIRA_FIXTURES) / "metrics";

TEST(SelfCost, ReadsResidentPagesAndLeavesBadFilesAbsent) {
  EXPECT_EQ(*parseResidentPages("52118 3109 1754 112 0 9040 0\n"), 3109u);
  EXPECT_FALSE(parseResidentPages(""));
  EXPECT_FALSE(parseResidentPages("52118"));

  const auto page = static_cast<uint64_t>(::sysconf(_SC_PAGESIZE));
  EXPECT_EQ(readSelfCost({.proc = fixtures / "good"}).residentBytes, 3109 * page);
  EXPECT_FALSE(readSelfCost({.proc = fixtures / "truncated"}).residentBytes);
  // The CPU figure is the process's own, whatever the root.
  EXPECT_GT(readSelfCost({.proc = fixtures / "absent"}).cpuSeconds, 0);
}

TEST(SelfCost, TurnsTheKernelsTicksIntoSecondsPerCore) {
  const auto laptop = std::filesystem::path(OMNIRA_FIXTURES) / "system" / "laptop";
  LinuxSystemSource source(Roots{.proc = laptop / "proc", .sys = laptop / "sys"}, laptop);
  const auto counters = machineCounters(source, 100);
  ASSERT_EQ(counters.cores.size(), 2u);  // cpu0 and cpu1, not the summary line
  EXPECT_DOUBLE_EQ(counters.cores[0].user, 5.0);
  EXPECT_DOUBLE_EQ(counters.cores[0].system, 1.59);  // system, irq, softirq and steal
  EXPECT_TRUE(counters.diskRead.has_value());

  LinuxSystemSource empty(Roots{.proc = fixtures / "absent", .sys = fixtures / "absent"}, fixtures / "absent");
  const auto nothing = machineCounters(empty, 100);
  EXPECT_TRUE(nothing.cores.empty());
  EXPECT_FALSE(nothing.diskRead);
}

}  // namespace
}  // namespace omnira::platform
