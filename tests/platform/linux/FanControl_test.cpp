// Fan control on a writable copy of a small hwmon tree: an nct6775-like chip set by duty
// cycle, an applesmc device that keeps its files in device/, and a chip with fan1_target
// numbered hwmon10 so that numeric and text order differ.

#include "OmniraCore/platform/linux/FanControl.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>

#include "tests/platform/linux/TempTree.h"
#include "tests/support/Refused.h"

namespace omnira::platform {
namespace {

namespace fs = std::filesystem;

class FanControlTest : public ::testing::Test {
 protected:
  TempTree tree{"helper-sys"};
  const fs::path& folder = tree.root();
  Roots roots{folder / "proc", folder / "sys"};

  fs::path hwmon(const std::string& relative) const { return roots.sys / "class/hwmon" / relative; }
  static std::string read(const fs::path& file) { return fileText(file); }
};

TEST_F(FanControlTest, NumbersFansByDeviceNumberThenFanNumber) {
  const auto fans = locateFans(roots);
  ASSERT_EQ(fans.size(), 5u);
  EXPECT_EQ(fans[0], (FanLocation{0, "nct6775", "class/hwmon/hwmon2", 1}));
  EXPECT_EQ(fans[3], (FanLocation{3, "applesmc", "class/hwmon/hwmon3/device", 1}));
  EXPECT_EQ(fans[4], (FanLocation{4, "amdgpu", "class/hwmon/hwmon10", 1}));

  const auto statuses = FanControl(roots).fans();
  ASSERT_EQ(statuses.size(), 5u);
  EXPECT_EQ(statuses[0].mode, FanStatus::Mode::automatic);  // pwm1_enable 5
  EXPECT_EQ(statuses[1].label, "CPU Fan");
  EXPECT_EQ(statuses[1].mode, FanStatus::Mode::manual);
  EXPECT_EQ(statuses[1].maximumRPM, 1800);
  EXPECT_EQ(statuses[3].rpm, 1299);
  EXPECT_EQ(statuses[3].targetRPM, 1200);
  EXPECT_EQ(statuses[4].targetRPM, 1500);
  EXPECT_EQ(statuses[4].source, "class/hwmon/hwmon10");
}

TEST_F(FanControlTest, SetsEachChipItsOwnWayWithinItsRangeAndPutsItBack) {
  FanControl control(roots);
  // fanN_target: manual first, then the target, clamped to fan1_max.
  auto target = control.setSpeed(4, 5000);
  ASSERT_TRUE(target) << target.error().message;
  EXPECT_EQ(*target, 3300);
  EXPECT_EQ(read(hwmon("hwmon10/pwm1_enable")), "1");
  EXPECT_EQ(read(hwmon("hwmon10/fan1_target")), "3300");
  EXPECT_EQ(read(hwmon("hwmon10/pwm1")), "90");  // not the file this chip is set through

  // applesmc: fan1_manual and fan1_output, clamped up to fan1_min.
  auto apple = control.setSpeed(3, 100);
  ASSERT_TRUE(apple) << apple.error().message;
  EXPECT_EQ(*apple, 1200);
  EXPECT_EQ(read(hwmon("hwmon3/device/fan1_manual")), "1");
  EXPECT_EQ(read(hwmon("hwmon3/device/fan1_output")), "1200");

  // Only pwm: linear between fan1_min (200) and fan1_max (2000).
  auto duty = control.setSpeed(0, 1100);
  ASSERT_TRUE(duty) << duty.error().message;
  EXPECT_EQ(read(hwmon("hwmon2/pwm1_enable")), "1");
  EXPECT_EQ(read(hwmon("hwmon2/pwm1")), "128");
  // A fan already manual keeps its mode and is put back at the duty it had.
  ASSERT_TRUE(control.setSpeed(1, 1800));
  EXPECT_EQ(read(hwmon("hwmon2/pwm2")), "255");
  // Changing a fan twice keeps the state from before the first change.
  ASSERT_TRUE(control.setSpeed(0, 200));
  EXPECT_EQ(read(hwmon("hwmon2/pwm1")), "0");

  // No fan3_max: nothing to map onto, and nothing written.
  EXPECT_TRUE(testing::refusedSaying(control.setSpeed(2, 1000), "top speed"));
  EXPECT_EQ(read(hwmon("hwmon2/pwm3_enable")), "5");
  EXPECT_FALSE(control.setSpeed(5, 1000));
  EXPECT_FALSE(control.setSpeed(-1, 1000));
  EXPECT_FALSE(control.setSpeed(0, std::nan("")));
  EXPECT_EQ(control.changed().size(), 4u);

  ASSERT_TRUE(control.restore(4));
  EXPECT_EQ(read(hwmon("hwmon10/pwm1_enable")), "2");
  EXPECT_EQ(control.changed().size(), 3u);
  ASSERT_TRUE(control.restore());
  EXPECT_TRUE(control.changed().empty());
  EXPECT_EQ(read(hwmon("hwmon3/device/fan1_manual")), "0");
  EXPECT_EQ(read(hwmon("hwmon2/pwm1_enable")), "5");
  EXPECT_EQ(read(hwmon("hwmon2/pwm2")), "100");

  // auto on a fan never changed hands it to the chip.
  ASSERT_TRUE(control.setAutomatic(1));
  EXPECT_EQ(read(hwmon("hwmon2/pwm2_enable")), "2");
  ASSERT_TRUE(control.setAutomatic(3));
  EXPECT_EQ(read(hwmon("hwmon3/device/fan1_manual")), "0");
}

TEST_F(FanControlTest, RefusesMissingAndLinkedControlFiles) {
  FanControl control(roots);
  const fs::path manual = hwmon("hwmon3/device/fan1_manual");
  fs::remove(manual);
  auto missing = control.setSpeed(3, 2000);
  ASSERT_FALSE(missing);
  EXPECT_FALSE(fs::exists(manual));
  EXPECT_EQ(read(hwmon("hwmon3/device/fan1_output")), "1200");

  // A link where a control file belongs is never written through.
  const fs::path victim = folder / "victim";
  std::ofstream(victim) << "keep\n";
  fs::remove(hwmon("hwmon2/pwm1"));
  fs::create_symlink(victim, hwmon("hwmon2/pwm1"));
  EXPECT_TRUE(testing::refusedSaying(control.setSpeed(0, 1000), "link"));
  EXPECT_EQ(read(victim), "keep");
  // The mode it had already switched is still put back.
  EXPECT_EQ(read(hwmon("hwmon2/pwm1_enable")), "1");
  EXPECT_TRUE(control.restore());
  EXPECT_EQ(read(hwmon("hwmon2/pwm1_enable")), "5");
  EXPECT_EQ(read(victim), "keep");
}

TEST_F(FanControlTest, SavedStatesOutliveTheProcessThatChangedTheFans) {
  std::string kept;
  {
    FanControl control(roots);
    ASSERT_TRUE(control.setSpeed(4, 2000));
    ASSERT_TRUE(control.setSpeed(3, 3000));
    kept = FanControl::encodeSaved(control.changed());
  }  // "crashed": nothing put back
  EXPECT_EQ(read(hwmon("hwmon10/pwm1_enable")), "1");

  auto saved = FanControl::decodeSaved(kept);
  ASSERT_TRUE(saved);
  ASSERT_TRUE(FanControl::restoreSaved(roots, *saved));
  EXPECT_EQ(read(hwmon("hwmon10/pwm1_enable")), "2");

  // A folder that holds another chip by now is left alone.
  ASSERT_TRUE(FanControl(roots).setSpeed(4, 2000));
  std::ofstream(hwmon("hwmon10/name")) << "nouveau\n";
  auto moved = FanControl::restoreSaved(roots, {(*saved)[0].fan.index == 4 ? (*saved)[0] : (*saved)[1]});
  ASSERT_FALSE(moved);
  EXPECT_EQ(read(hwmon("hwmon10/pwm1_enable")), "1");

  for (const char* hostile :
       {"", "{}", "[1]", R"([{"index":0,"chip":"x","folder":"/etc","number":1}])",
        R"([{"index":0,"chip":"x","folder":"class/hwmon/hwmon1/../../../../etc","number":1}])",
        R"([{"index":0,"chip":"x","folder":"class/hwmon/hwmon1","number":"1"}])",
        R"([{"index":0,"chip":"x","folder":"class/hwmon/hwmon1","number":1,"speed":"1; reboot"}])",
        R"([{"index":0,"chip":"x","folder":"class/hwmon/hwmon1","number":1,"mode":"2"}])"})
    EXPECT_FALSE(FanControl::decodeSaved(hostile)) << hostile;
}

}  // namespace
}  // namespace omnira::platform
