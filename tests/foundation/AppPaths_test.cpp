#include "OmniraCore/foundation/AppPaths.h"

#include <gtest/gtest.h>

#include <map>

#include "tests/support/Refused.h"

namespace omnira {
namespace {

AppPaths::Environment environment(std::map<std::string, std::string> values) {
  return [values](const std::string& name) -> std::optional<std::string> {
    auto it = values.find(name);
    return it == values.end() ? std::nullopt : std::optional<std::string>(it->second);
  };
}

TEST(AppPaths, FollowsXDGWithHomeDefaults) {
  auto defaults = AppPaths::fromEnvironment(environment({{"HOME", "/home/ada"}}));
  ASSERT_TRUE(defaults.ok());
  EXPECT_EQ(defaults->dataFile("history.sqlite"), "/home/ada/.local/share/Omnira/history.sqlite");
  EXPECT_EQ(defaults->settingsFile(), "/home/ada/.config/Omnira/settings.json");

  auto xdg = AppPaths::fromEnvironment(
      environment({{"HOME", "/home/ada"}, {"XDG_DATA_HOME", "/data"}, {"XDG_CONFIG_HOME", "/cfg"}}));
  EXPECT_EQ(xdg->dataFolder(), "/data/Omnira");
  EXPECT_EQ(xdg->settingsFile(), "/cfg/Omnira/settings.json");
  EXPECT_EQ(AppPaths::fromEnvironment(environment({{"HOME", "/h"}, {"XDG_DOWNLOAD_DIR", "/dl"}}))->downloadsFolder(), "/dl");

  // Relative XDG values are invalid and ignored.
  auto relative = AppPaths::fromEnvironment(environment({{"HOME", "/h"}, {"XDG_DATA_HOME", "data"}}));
  EXPECT_EQ(relative->dataFolder(), "/h/.local/share/Omnira");

  EXPECT_TRUE(testing::refusedSaying(AppPaths::fromEnvironment(environment({{"XDG_DATA_HOME", "/data"}})), "HOME"));
}

}  // namespace
}  // namespace omnira
