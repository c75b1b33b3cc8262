// The machine readers on a fixture tree of a laptop: a copy in a temporary folder,
// so the test can break files.

#include "OmniraCore/platform/linux/LinuxSystemSource.h"

#include <gtest/gtest.h>

#include "tests/platform/linux/TempTree.h"

namespace omnira::platform {
namespace {

namespace fs = std::filesystem;

class LaptopTree : public ::testing::Test {
 protected:
  TempTree tree{"system/laptop"};
  const fs::path& root_ = tree.root();
  void write(const fs::path& relative, const std::string& text) { tree.write(relative, text); }
  Roots roots() const { return Roots{root_ / "proc", root_ / "sys"}; }
};

TEST_F(LaptopTree, ReadsEveryFigureFromTheTree) {
  LinuxSystemSource source(roots(), root_);
  auto cores = source.coreTicks();
  ASSERT_EQ(cores.size(), 2u);
  EXPECT_EQ(cores[1], (CoreTicks{500, 10, 150 + 3 + 3 + 3, 2520}));

  auto memory = source.memory();
  ASSERT_TRUE(memory);
  EXPECT_EQ(memory->compressed, 600 + 20'000ull * 1024);  // zram0 uses 600 bytes, zswap 20000 kB


  // Only devices: wlp2s0 and enp0s31f6, never lo, docker0, the veth pair or the tunnel.
  auto interfaces = source.interfaceCounters();
  ASSERT_EQ(interfaces.size(), 2u);
  EXPECT_EQ(interfaces.at("wlp2s0"), (ByteCounters{1000, 500}));

  // Whole physical disks: nvme0n1 and sda; no partitions, loop, zram or device-mapper.
  auto disk = source.diskCounters();
  ASSERT_TRUE(disk);
  EXPECT_EQ(disk->received, (20'000ull + 2'000) * 512);

  auto battery = source.battery();
  ASSERT_TRUE(battery);
  EXPECT_DOUBLE_EQ(battery->level, 0.5);  // the laptop's own battery, not the mouse's
  EXPECT_FALSE(source.onExternalPower());

  EXPECT_EQ(source.bootTime(), Date(std::chrono::seconds(1763762400)));
  EXPECT_TRUE(source.diskSpace());
}

TEST_F(LaptopTree, MissingOrBrokenFilesGiveAbsentReadings) {
  fs::remove(root_ / "proc" / "pressure" / "memory");
  write("proc/meminfo", "MemTotal: 100");  // cut off mid-file: still a total, nothing else
  write("proc/stat", "cpu0 1 2\n");
  fs::remove_all(root_ / "sys" / "class" / "power_supply");
  LinuxSystemSource source(roots(), root_ / "no-such-mount");
  EXPECT_FALSE(source.memoryStall());
  EXPECT_TRUE(source.coreTicks().empty());
  ASSERT_TRUE(source.memory());
  EXPECT_EQ(source.memory()->app, 0u);
  EXPECT_FALSE(source.battery());
  EXPECT_TRUE(source.onExternalPower());
  EXPECT_FALSE(source.diskSpace());
}

}  // namespace
}  // namespace omnira::platform
