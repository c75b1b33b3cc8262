// GPUs from the drm class: amdgpu's own figures from the fixture desktop, Intel's busy
// share from idle residency over two readings of a scratch tree, for i915 and xe.

#include <gtest/gtest.h>

#include "OmniraCore/platform/linux/DrmGPU.h"
#include "tests/platform/linux/TempTree.h"

namespace omnira::platform {
namespace {

const std::filesystem::path fixtures = OMNIRA_FIXTURES;

TEST(DrmGPU, AmdgpuFiguresAndOnlyCardsCount) {
  auto cards = readDrmCards(Roots{"", fixtures / "sys-ryzen"});
  ASSERT_EQ(cards.size(), 1u);  // not the connector card0-DP-1, not renderD128
  auto gpus = drmGPUReadings({}, cards, 0);
  ASSERT_EQ(gpus.size(), 1u);
  EXPECT_EQ(gpus[0], (GPUReading{"card0", "amdgpu", 0.27, 1528758272u, 8573157376u, 1900.0, "class/drm/card0"}));

  auto thinkpad = readDrmCards(Roots{"", fixtures / "sys-thinkpad"});
  ASSERT_EQ(thinkpad.size(), 1u);
  EXPECT_EQ(thinkpad[0], (DrmCard{"card0", "i915", std::nullopt, 48213977u, std::nullopt, std::nullopt, 350.0,
                                  "class/drm/card0"}));
  EXPECT_TRUE(readDrmCards(Roots{"", fixtures / "sys-empty"}).empty());
}

TEST(DrmGPU, ClockAndCountTextAsTheDriversWriteIt) {
  EXPECT_EQ(parseCurrentClock("0: 500Mhz \n1: 1900Mhz *\n2: 2615Mhz \n"), 1900.0);
  EXPECT_FALSE(parseCurrentClock("0: 500Mhz \n1: 1900Mhz \n"));  // no level marked
  EXPECT_FALSE(parseCurrentClock("1: fastMhz *\n"));
  EXPECT_EQ(parseDrmCount("27\n"), 27u);
  EXPECT_FALSE(parseDrmCount("-1\n"));

  TempTree tree;
  tree.link("class/drm/card0/device/driver", "../../../bus/pci/drivers/amdgpu");
  tree.write("class/drm/card0/device/gpu_busy_percent", "busy");
  tree.write("class/drm/card0/device/mem_info_vram_used", "");
  tree.write("class/drm/card0/device/mem_info_vram_total", "4294967296\n");
  tree.write("class/drm/card0/device/pp_dpm_sclk", "0: 500Mhz \n1: 19");  // cut short
  tree.link("class/drm/card1/device/driver", "../../../bus/platform/drivers/simple-framebuffer");
  auto gpus = drmGPUReadings({}, readDrmCards(Roots{"", tree.root()}), 0);
  ASSERT_EQ(gpus.size(), 1u);  // card1's driver tells nothing
  EXPECT_EQ(gpus[0], (GPUReading{"card0", "amdgpu", std::nullopt, std::nullopt, 4294967296u, std::nullopt,
                                 "class/drm/card0"}));
}

TEST(DrmGPU, IntelBusyShareFromIdleResidencyOverTwoReadings) {
  TempTree tree;
  // i915 now, i915 on an older kernel (power/), xe; card10 sorts after card2.
  tree.link("class/drm/card0/device/driver", "../../../bus/pci/drivers/i915");
  tree.write("class/drm/card0/gt/gt0/rc6_residency_ms", "1000\n");
  tree.write("class/drm/card0/gt_act_freq_mhz", "300\n");
  tree.link("class/drm/card2/device/driver", "../../../bus/pci/drivers/i915");
  tree.write("class/drm/card2/power/rc6_residency_ms", "5000\n");
  tree.link("class/drm/card10/device/driver", "../../../bus/pci/drivers/xe");
  tree.write("class/drm/card10/device/tile0/gt0/gtidle/idle_residency_ms", "70000\n");
  tree.write("class/drm/card10/device/tile0/gt0/freq0/act_freq", "1550\n");

  DrmGPUReader reader(Roots{"", tree.root()});
  auto first = reader.read(100.0);
  ASSERT_EQ(first.size(), 3u);
  EXPECT_EQ(first[2].name, "card10");
  for (const auto& gpu : first) EXPECT_FALSE(gpu.busy) << gpu.name;  // nothing to compare with yet
  EXPECT_EQ(first[2], (GPUReading{"card10", "xe", std::nullopt, std::nullopt, std::nullopt, 1550.0, "class/drm/card10"}));

  tree.write("class/drm/card0/gt/gt0/rc6_residency_ms", "1500\n");             // idle 0.5 s of 2
  tree.write("class/drm/card2/power/rc6_residency_ms", "7500\n");              // idle longer than the interval
  tree.write("class/drm/card10/device/tile0/gt0/gtidle/idle_residency_ms", "71900\n");  // idle 1.9 s of 2
  auto second = reader.read(102.0);
  ASSERT_EQ(second.size(), 3u);
  EXPECT_DOUBLE_EQ(*second[0].busy, 0.75);
  EXPECT_DOUBLE_EQ(*second[1].busy, 0.0);
  EXPECT_NEAR(*second[2].busy, 0.05, 1e-9);

  tree.write("class/drm/card0/gt/gt0/rc6_residency_ms", "10\n");  // went back: the driver reloaded
  tree.write("class/drm/card2/power/rc6_residency_ms", "junk\n");
  auto third = reader.read(104.0);
  ASSERT_EQ(third.size(), 2u);  // card2 now tells nothing at all
  EXPECT_FALSE(third[0].busy);
  EXPECT_DOUBLE_EQ(*third[1].busy, 1.0);  // card10's idle counter stood still
  auto fourth = reader.read(106.0);
  EXPECT_DOUBLE_EQ(*fourth[0].busy, 1.0);  // the reloaded count is the new baseline
}

}  // namespace
}  // namespace omnira::platform
