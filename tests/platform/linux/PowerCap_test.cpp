// RAPL counters read from fixture powercap trees and scratch trees, and the watts made
// from two readings, through wraps, resets and files that cannot be read.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "OmniraCore/platform/linux/PowerCap.h"
#include "tests/platform/linux/TempTree.h"

namespace omnira::platform {
namespace {

const std::filesystem::path fixtures = OMNIRA_FIXTURES;

TEST(PowerCap, ReadsZonesAndSubzonesButNotTheControlType) {
  auto counters = readRaplCounters(Roots{"", fixtures / "sys-thinkpad"});
  ASSERT_TRUE(counters.ok());
  ASSERT_EQ(counters->size(), 4u);  // "intel-rapl" itself is the control type, no zone
  EXPECT_EQ((*counters)[0], (RaplCounter{"intel-rapl:0", "package-0", 32147801123u, 262143328850u}));
  EXPECT_EQ((*counters)[3], (RaplCounter{"intel-rapl:1", "psys", 98455104566u, 262143328850u}));

  auto none = readRaplCounters(Roots{"", fixtures / "sys-empty"});
  ASSERT_TRUE(none.ok());
  EXPECT_TRUE(none->empty());
}

TEST(PowerCap, WattsOverTwoReadingsThroughWrapsAndResets) {
  const std::vector<RaplCounter> before = {
      {"intel-rapl:0", "package-0", 1'000'000, 262'143'328'850},
      {"intel-rapl:0:0", "core", 262'143'000'000, 262'143'328'850},  // about to wrap
      {"intel-rapl:0:2", "dram", 5'000'000, std::nullopt},          // no range: a drop is a reset
      {"intel-rapl:1", "psys", 10'000'000, 262'143'328'850},
  };
  const std::vector<RaplCounter> after = {
      {"intel-rapl:0", "package-0", 21'000'000, 262'143'328'850},
      {"intel-rapl:0:0", "core", 671'150, 262'143'328'850},
      {"intel-rapl:0:2", "dram", 1'000, std::nullopt},
      {"intel-rapl:0:1", "uncore", 4'000'000, 262'143'328'850},  // new this time
      {"intel-rapl:1", "psys", 50'000'000, 262'143'328'850},
  };
  auto watts = raplPower(before, after, 2.0);
  ASSERT_EQ(watts.size(), 3u);
  EXPECT_EQ(watts[0].kind, PowerReading::Kind::cpuPackage);
  EXPECT_DOUBLE_EQ(watts[0].watts, 10.0);
  EXPECT_EQ(watts[1].kind, PowerReading::Kind::cpuCores);
  EXPECT_DOUBLE_EQ(watts[1].watts, (328'850 + 671'150) / 1e6 / 2.0);
  EXPECT_EQ(watts[2].kind, PowerReading::Kind::system);
  EXPECT_DOUBLE_EQ(watts[2].watts, 20.0);

  EXPECT_TRUE(raplPower(before, after, 0).empty());
  // A drop below the last count even with a range known, but from above that range, is no wrap.
  EXPECT_TRUE(raplPower({{"z", "core", 900, 800}}, {{"z", "core", 10, 800}}, 1).empty());
}

TEST(PowerCap, MalformedCountsAndNamesLeaveTheirZoneOut) {
  EXPECT_EQ(parseEnergyMicrojoules("123456\n"), 123456u);
  EXPECT_FALSE(parseEnergyMicrojoules("99999999999999999999999\n"));

  TempTree tree;
  const std::filesystem::path base = "class/powercap";
  tree.write(base / "intel-rapl:0/name", "package-0\n");
  tree.write(base / "intel-rapl:0/energy_uj", "1000\n");
  tree.write(base / "intel-rapl:0/max_energy_range_uj", "garbage\n");  // the count still counts
  tree.write(base / "intel-rapl:0:0/name", "core\n");
  tree.write(base / "intel-rapl:0:0/energy_uj", "12");  // cut short: a number all the same
  tree.write(base / "intel-rapl:0:1/name", "uncore\n");
  tree.write(base / "intel-rapl:0:1/energy_uj", "");
  tree.write(base / "intel-rapl:0:2/energy_uj", "77\n");  // no name file
  auto counters = readRaplCounters(Roots{"", tree.root()});
  ASSERT_TRUE(counters.ok());
  ASSERT_EQ(counters->size(), 2u);
  EXPECT_EQ((*counters)[0], (RaplCounter{"intel-rapl:0", "package-0", 1000, std::nullopt}));
  EXPECT_EQ((*counters)[1], (RaplCounter{"intel-rapl:0:0", "core", 12, std::nullopt}));
}

// energy_uj is root's only on current kernels. Root reads a mode-000 file all the same, so
// the reading is done in a child that gave up root first (or by this process when it is no root).
TEST(PowerCap, ACounterNotOursToReadIsDeniedNotAbsent) {
  TempTree deniedOnly, mixed;
  for (const TempTree* tree : {&deniedOnly, &mixed}) {
    tree->write("class/powercap/intel-rapl:0/name", "package-0\n");
    tree->write("class/powercap/intel-rapl:0/energy_uj", "1000\n");
    ::chmod((tree->root() / "class/powercap/intel-rapl:0/energy_uj").c_str(), 0);
    for (auto folder = tree->root() / "class/powercap/intel-rapl:0"; folder != tree->root().parent_path();
         folder = folder.parent_path())
      ::chmod(folder.c_str(), 0755);
  }
  mixed.write("class/powercap/intel-rapl:1/name", "psys\n");
  mixed.write("class/powercap/intel-rapl:1/energy_uj", "5\n");

  // "ok" when both came out as they should; otherwise what did not.
  auto outcome = [&]() -> std::string {
    std::string faults;
    auto denied = readRaplCounters(Roots{"", deniedOnly.root()});
    if (denied.ok() || denied.error().kind != ReadFailure::Kind::denied) faults += "not denied; ";
    auto some = readRaplCounters(Roots{"", mixed.root()});  // the readable zone is still returned
    if (!some.ok() || some->size() != 1 || (*some)[0].name != "psys") faults += "readable zone lost";
    return faults.empty() ? "ok" : faults;
  };
  EXPECT_EQ(::geteuid() == 0 ? asNobody(outcome) : outcome(), "ok");
}

}  // namespace
}  // namespace omnira::platform
