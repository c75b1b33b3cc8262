// `omnira sensors` and `omnira fans` as a person runs them, on this machine's own /sys.

#include <gtest/gtest.h>

#include <filesystem>

#include <nlohmann/json.hpp>

#include "tests/cli/CommandRun.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;
using testing::runCommandIn;

using SensorsCommand = testing::CommandHome;

TEST_F(SensorsCommand, ListsEveryReadingWithItsFileAndFanSettingNeedsTheHelper) {
  const auto r = runCommandIn(root, "sensors --json", false);
  ASSERT_EQ(r.status, 0);
  const auto json = nlohmann::json::parse(r.out);
  // Whatever this machine has, each figure names a file under /sys that is there.
  for (const auto& t : json.at("temperatures")) EXPECT_TRUE(fs::exists(fs::path("/sys") / t["source"].get<std::string>())) << t;
  for (const auto& f : json.at("fans")) EXPECT_TRUE(fs::exists(fs::path("/sys") / f["source"].get<std::string>())) << f;
  EXPECT_EQ(json.at("cpu_celsius").is_null(), json["temperatures"].empty());

  const auto text = runCommandIn(root, "sensors", false);
  ASSERT_EQ(text.status, 0);
  const bool none = json["temperatures"].empty() && json.at("fans").empty() && json.at("power").empty() &&
                    json.at("gpus").empty();
  EXPECT_EQ(text.out.find("has no sensors") != std::string::npos, none) << text.out;

  const auto set = runCommandIn(root, "fans set 0 2000 --socket '" + (root / "none.sock").string() + "'", true);
  EXPECT_EQ(set.status, 1);
  EXPECT_NE(set.out.find("omnira helper install"), std::string::npos) << set.out;
  EXPECT_EQ(runCommandIn(root, "fans set 0 fast", true).status, 2);  // neither rpm nor auto
  EXPECT_EQ(runCommandIn(root, "fans --json", false).status, 0);
}

}  // namespace
}  // namespace omnira
