// `omnira sensors` and `omnira fans` as a person runs them, on this machine's own /sys.

#include <gtest/gtest.h>

#include <filesystem>

#include "tests/cli/CommandRun.h"

namespace omnira {
namespace {

using testing::runCommandIn;

using SensorsCommand = testing::CommandHome;

TEST_F(SensorsCommand, RunsAndFanSettingNeedsTheHelper) {
  // What this machine has is read from the fixture machines (LinuxSensorSource_test); here
  // only that the command runs, and that setting a fan needs the helper.
  ASSERT_EQ(runCommandIn(root, "sensors --json", false).status, 0);
  const auto set = runCommandIn(root, "fans set 0 2000 --socket '" + (root / "none.sock").string() + "'", true);
  EXPECT_EQ(set.status, 1);
  EXPECT_NE(set.out.find("omnira helper install"), std::string::npos) << set.out;
  EXPECT_EQ(runCommandIn(root, "fans set 0 fast", true).status, 2);  // neither rpm nor auto
  EXPECT_EQ(runCommandIn(root, "fans --json", false).status, 0);
}

}  // namespace
}  // namespace omnira
