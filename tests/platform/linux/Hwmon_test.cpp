// The hwmon reader on fixture machines and on trees the tests change between reads.

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>

#include "OmniraCore/platform/linux/Hwmon.h"
#include "OmniraCore/platform/linux/SensorKinds.h"
#include "tests/platform/linux/TempTree.h"

namespace omnira::platform {
namespace {

using Kind = SensorKind;
using Mode = FanStatus::Mode;
constexpr std::nullopt_t none = std::nullopt;

TemperatureReading temp(std::string name, std::string chip, Kind kind, double celsius, std::optional<double> hot,
                        std::optional<double> crit, std::string source) {
  return {std::move(name), std::move(chip), kind, celsius, hot, crit, std::move(source)};
}

FanStatus fan(int index, std::string chip, std::string label, std::optional<double> rpm, std::optional<double> min,
              std::optional<double> max, std::optional<double> target, Mode mode, std::string source) {
  return {index, std::move(chip), std::move(label), rpm, min, max, target, mode, std::move(source)};
}

TEST(HwmonParse, ReadsIntegersAsTheKernelWritesThem) {
  EXPECT_EQ(parseHwmonInteger("45000\n"), 45000);
  EXPECT_EQ(parseHwmonInteger("45000"), 45000);  // cut before its newline
  EXPECT_EQ(parseMillidegrees("-273150\n"), -273.15);
  EXPECT_EQ(parseMillidegrees("58625\n"), 58.625);
  EXPECT_EQ(parseMillivolts("1250\n"), 1.25);
  EXPECT_EQ(parseMicrowatts("27000000\n"), 27.0);
  for (const char* bad : {"", "\n", "-", "-\n", "abc\n", "12a\n", "4.5\n", "45000\n12", "99999999999999999999999\n"}) {
    EXPECT_EQ(parseHwmonInteger(bad), std::nullopt) << bad;
    EXPECT_EQ(parseMillidegrees(bad), std::nullopt) << bad;
    EXPECT_EQ(parseMicrowatts(bad), std::nullopt) << bad;
  }
}

TEST(HwmonParse, TellsPlaceholdersFromReadings) {
  struct Case {
    double celsius;
    Kind kind;
    bool kept;
  };
  for (auto [celsius, kind, kept] : {Case{45, Kind::cpu, true}, Case{-273.15, Kind::storage, false},
                                     Case{-30, Kind::ambient, true}, Case{0, Kind::cpu, false},
                                     Case{0, Kind::ambient, true}, Case{127, Kind::board, false},
                                     Case{126.5, Kind::gpu, true}})
    EXPECT_EQ(plausibleCelsius(celsius, kind), kept) << celsius << " " << rawValue(kind);
  for (double limit : {0.0, 128.0, 65261.85}) EXPECT_FALSE(plausibleLimitCelsius(limit)) << limit;
  for (double limit : {55.0, 100.0, 125.0}) EXPECT_TRUE(plausibleLimitCelsius(limit)) << limit;
}

TEST(SensorKinds, ClassifiesByDriverLabelAndZoneType) {
  struct Case {
    const char* chip;
    const char* label;
    Kind kind;
  };
  // One name from the exact table; the rest are rules: prefixes, SMC keys, labelled chips.
  for (auto [chip, label, kind] : {
           Case{"coretemp", "Core 0", Kind::cpu},   Case{"pch_cannonlake", "", Kind::board},
           Case{"nct6799", "CPUTIN", Kind::board},  Case{"", "", Kind::other},
           Case{"applesmc", "TG0P", Kind::gpu},     Case{"applesmc", "Ts0P", Kind::board},
           Case{"thinkpad", "CPU", Kind::cpu},      Case{"thinkpad", "", Kind::board},
           Case{"dell_smm", "SODIMM", Kind::memory},
       })
    EXPECT_EQ(sensorKind(chip, label), kind) << chip << " / " << label;

  struct Zone {
    const char* type;
    Kind kind;
  };
  for (auto [type, kind] : {Zone{"TCPU", Kind::cpu}, Zone{"pch_skylake", Kind::board}, Zone{"gpu-thermal", Kind::gpu},
                            Zone{"mystery", Kind::other}})
    EXPECT_EQ(thermalZoneKind(type), kind) << type;

  EXPECT_EQ(hwmonPowerKind("amdgpu", "PPT"), PowerReading::Kind::gpu);
  EXPECT_EQ(hwmonPowerKind("macsmc_hwmon", "Total System Power"), PowerReading::Kind::system);
  EXPECT_EQ(hwmonPowerKind("ina3221", "VBUS"), PowerReading::Kind::other);
}

// hwmon9 comes before hwmon10: numbers, not names, order the chips and so the fans.
TEST(HwmonReader, ReadsTheRyzenDesktopWithFansNumberedByHwmonNumber) {
  HwmonReader reader(fixtureRoots("sys-ryzen"));
  const auto r = reader.read();
  ASSERT_EQ(r.temperatures.size(), 16u);
  EXPECT_EQ(r.temperatures[9].chip, "amdgpu");
  ASSERT_EQ(r.fans.size(), 8u);
  EXPECT_EQ(r.fans[0], fan(0, "amdgpu", "Fan 1", 0, 0, 3200, 0, Mode::automatic, "class/hwmon/hwmon9"));
  EXPECT_EQ(r.fans[7], fan(7, "nct6799", "Fan 7", 1530, 0, none, none, Mode::fullSpeed, "class/hwmon/hwmon10"));
  EXPECT_EQ(r.power, (std::vector<PowerReading>{{PowerReading::Kind::gpu, "PPT", 27.0, "class/hwmon/hwmon9/power1_average"}}));
}

TEST(HwmonReader, ReadsTheSMCFromItsPlatformDeviceFolder) {
  HwmonReader reader(fixtureRoots("sys-intel-mac"));
  const auto r = reader.read();
  const std::string smc = "class/hwmon/hwmon0/device";
  // Ten keys from the SMC's device folder (temp8 is a placeholder), then coretemp's five.
  ASSERT_EQ(r.temperatures.size(), 15u);
  EXPECT_EQ(r.temperatures[0], temp("TA0P", "applesmc", Kind::ambient, 31.25, none, none, smc + "/temp1_input"));
  EXPECT_EQ(r.fans, (std::vector<FanStatus>{
                        fan(0, "applesmc", "Left side", 2160, 2160, 6156, 2160, Mode::automatic, smc),
                        fan(1, "applesmc", "Right side", 1998, 2000, 5700, 3000, Mode::manual, smc),
                    }));
  EXPECT_TRUE(r.power.empty());
}

TEST(HwmonTree, MalformedFilesGiveAbsentValues) {
  TempTree tree;
  const auto write = [&](const std::string& file, std::string_view text) { tree.write(file, text); };
  write("class/hwmon/hwmon0/name", "coretemp\n");
  write("class/hwmon/hwmon0/temp1_input", "");
  write("class/hwmon/hwmon0/temp2_input", "abc\n");
  write("class/hwmon/hwmon0/temp3_input", "-\n");
  write("class/hwmon/hwmon0/temp4_input", "52000\n");
  write("class/hwmon/hwmon0/temp4_max", "garbage\n");
  write("class/hwmon/hwmon0/temp4_crit", "");
  write("class/hwmon/hwmon0/temp5_input", "47000");  // no newline: still a whole number
  write("class/hwmon/hwmon0/temp6_input", "99999999999999999999999\n");
  write("class/hwmon/hwmon0/fan1_input", "xyz\n");
  write("class/hwmon/hwmon0/fan1_min", "-5\n");
  write("class/hwmon/hwmon0/fan1_max", "0\n");
  write("class/hwmon/hwmon0/pwm1_enable", "");
  write("class/hwmon/hwmon0/fan2_input", "1200\n");
  write("class/hwmon/hwmon0/pwm2_enable", "7\n");
  write("class/hwmon/hwmon0/power1_input", "abc\n");
  write("class/hwmon/hwmon0/power2_average", "-5000000\n");
  write("class/hwmon/hwmon0/power3_input", "1500000\n");
  write("class/hwmon/hwmon0/power3_average", "9000000\n");
  write("class/hwmon/hwmon1/temp1_input", "30000\n");  // no name file anywhere
  write("class/hwmon/hwmon_extra/name", "bogus\n");
  write("class/hwmon/hwmon2/name", "");  // a folder with nothing to read

  HwmonReader reader(tree.sys());
  const auto r = reader.read();
  const std::string h = "class/hwmon/hwmon";
  EXPECT_EQ(r.temperatures, (std::vector<TemperatureReading>{
                                temp("temp4", "coretemp", Kind::cpu, 52, none, none, h + "0/temp4_input"),
                                temp("temp5", "coretemp", Kind::cpu, 47, none, none, h + "0/temp5_input"),
                                temp("temp1", "", Kind::other, 30, none, none, h + "1/temp1_input"),
                            }));
  EXPECT_EQ(r.fans, (std::vector<FanStatus>{
                        fan(0, "coretemp", "Fan 1", none, none, none, none, Mode::unknown, h + "0"),
                        fan(1, "coretemp", "Fan 2", 1200, none, none, none, Mode::automatic, h + "0"),
                    }));
  EXPECT_EQ(r.power, (std::vector<PowerReading>{{PowerReading::Kind::other, "coretemp power3", 1.5, h + "0/power3_input"}}));
}

TEST(HwmonTree, PicksUpChangedValuesAndKeepsWhatItCachedUntilAskedToLookAgain) {
  TempTree tree("sys-thinkpad");
  const auto write = [&](const std::string& file, std::string_view text) { tree.write(file, text); };
  HwmonReader reader(tree.sys());
  const std::string core = "devices/platform/coretemp.0/hwmon/hwmon4/";
  const std::string pad = "devices/platform/thinkpad_hwmon/hwmon/hwmon2/";
  ASSERT_EQ(reader.read().temperatures.at(7).celsius, 55);

  write(core + "temp1_input", "71000\n");
  write(pad + "fan1_input", "4100\n");
  write(pad + "pwm1_enable", "0\n");
  write(core + "temp1_label", "Renamed\n");
  auto r = reader.read();
  EXPECT_EQ(r.temperatures.at(7).celsius, 71);
  EXPECT_EQ(r.temperatures.at(7).name, "Package id 0");  // labels are cached
  EXPECT_EQ(r.fans.at(0).mode, Mode::fullSpeed);

  reader.rediscover();
  EXPECT_EQ(reader.read().temperatures.at(7).name, "Renamed");
}

TEST(HwmonTree, FollowsDevicesComingAndGoing) {
  TempTree tree("sys-thinkpad");
  const auto write = [&](const std::string& file, std::string_view text) { tree.write(file, text); };
  const auto& root = tree.root();
  HwmonReader reader(tree.sys());
  ASSERT_EQ(reader.read().temperatures.size(), 12u);

  // The thinkpad device goes: its fan and temperatures with it.
  std::filesystem::remove(root / "class/hwmon/hwmon2");
  auto r = reader.read();
  EXPECT_EQ(r.temperatures.size(), 10u);
  EXPECT_TRUE(r.fans.empty());

  // A USB fan controller arrives as hwmon12 and a second board chip as hwmon5.
  write("devices/usb/hwmon12/name", "corsaircpro\n");
  write("devices/usb/hwmon12/fan1_input", "900\n");
  write("devices/usb/hwmon12/fan2_input", "950\n");
  std::filesystem::create_directory_symlink("../../devices/usb/hwmon12", root / "class/hwmon/hwmon12");
  write("class/hwmon/hwmon5/name", "it8686\n");
  write("class/hwmon/hwmon5/fan1_input", "1500\n");
  r = reader.read();
  ASSERT_EQ(r.fans.size(), 3u);
  EXPECT_EQ(r.fans[0].chip, "it8686");
  EXPECT_EQ(r.fans[0].index, 0);
  EXPECT_EQ(r.fans[1].chip, "corsaircpro");
  EXPECT_EQ(r.fans[2].index, 2);

  // The NVMe device is replaced under the same hwmon number with fewer sensors: the
  // reader notices the files it knew are gone and looks again.
  const std::string nvme = "devices/pci0000:00/0000:00:1d.0/0000:04:00.0/nvme/nvme0/hwmon1/";
  std::filesystem::remove_all(root / nvme);
  write(nvme + "name", "nvme\n");
  write(nvme + "temp1_input", "40850\n");
  write(nvme + "temp1_label", "Composite\n");
  r = reader.read();
  ASSERT_EQ(r.temperatures.size(), 8u);
  EXPECT_EQ(r.temperatures[1].name, "Composite");
  EXPECT_EQ(r.temperatures[1].hotCelsius, std::nullopt);
  EXPECT_EQ(r.temperatures[2].chip, "iwlwifi_1");
}

}  // namespace
}  // namespace omnira::platform
