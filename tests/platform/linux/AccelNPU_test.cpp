// NPUs from the accel class: the fixture laptop's device and busy shares over readings of
// a scratch tree whose counts change between them.

#include <gtest/gtest.h>

#include "OmniraCore/platform/linux/AccelNPU.h"
#include "tests/platform/linux/TempTree.h"

namespace omnira::platform {
namespace {

const std::filesystem::path fixtures = OMNIRA_FIXTURES;

TEST(AccelNPU, DevicesWithTheirDriverAndBusyCount) {
  auto devices = readAccelDevices(Roots{"", fixtures / "sys-thinkpad"});
  ASSERT_EQ(devices.size(), 1u);
  EXPECT_EQ(devices[0], (AccelDevice{"accel0", "intel_vpu", 8812345u, "class/accel/accel0"}));
  EXPECT_TRUE(readAccelDevices(Roots{"", fixtures / "sys-empty"}).empty());

  EXPECT_EQ(parseBusyMicroseconds("8812345\n"), 8812345u);
  EXPECT_FALSE(parseBusyMicroseconds("8812345 us\n"));
}

TEST(AccelNPU, BusyShareOverTwoReadings) {
  TempTree tree;
  tree.link("class/accel/accel0/device/driver", "../../../bus/pci/drivers/intel_vpu");
  tree.write("class/accel/accel0/device/npu_busy_time_us", "1000000\n");
  tree.link("class/accel/accel1/device/driver", "../../../bus/pci/drivers/amdxdna");  // no busy count
  tree.write("class/accel/accelerometer/name", "not an accel device\n");

  AccelNPUReader reader(Roots{"", tree.root()});
  auto first = reader.read(50.0);
  ASSERT_EQ(first.size(), 2u);
  EXPECT_EQ(first[0], (NPUReading{"accel0", "intel_vpu", std::nullopt, "class/accel/accel0"}));

  tree.write("class/accel/accel0/device/npu_busy_time_us", "1500000\n");
  auto second = reader.read(52.0);
  ASSERT_EQ(second.size(), 2u);
  EXPECT_DOUBLE_EQ(*second[0].busy, 0.25);
  EXPECT_FALSE(second[1].busy);

  tree.write("class/accel/accel0/device/npu_busy_time_us", "9500000\n");  // more than the interval holds
  EXPECT_DOUBLE_EQ(*reader.read(54.0)[0].busy, 1.0);
  tree.write("class/accel/accel0/device/npu_busy_time_us", "20\n");  // the driver reloaded
  EXPECT_FALSE(reader.read(56.0)[0].busy);
  tree.write("class/accel/accel0/device/npu_busy_time_us", "2x\n");
  EXPECT_FALSE(reader.read(60.0)[0].busy);
  tree.write("class/accel/accel0/device/npu_busy_time_us", "40\n");
  EXPECT_FALSE(reader.read(62.0)[0].busy);  // the garbled count gave no baseline

  // The pure step: a device new in the second reading has no share yet.
  EXPECT_FALSE(npuReadings({}, {{"accel0", "intel_vpu", 5u, "s"}}, 1.0)[0].busy);
}

}  // namespace
}  // namespace omnira::platform
