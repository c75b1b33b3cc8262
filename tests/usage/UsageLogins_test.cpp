#include "OmniraCore/usage/UsageLogins.h"

#include <gtest/gtest.h>

#include "tests/usage/UsageLogFiles.h"

namespace omnira {
namespace {

using Paths = std::vector<std::filesystem::path>;
using usage_testing::environment;

TEST(UsageLogins, FindsTheHomesFromTheEnvironment) {
  EXPECT_EQ(UsageLogins::claudeHomes(environment({{"HOME", "/home/ada"}})),
            (Paths{"/home/ada/.claude", "/home/ada/.config/claude"}));
  EXPECT_EQ(UsageLogins::claudeHomes(environment({{"HOME", "/home/ada"}, {"XDG_CONFIG_HOME", "/cfg"}})),
            (Paths{"/home/ada/.claude", "/cfg/claude"}));
  // The configured folders replace both; "~" is HOME, relative and empty items are left out.
  EXPECT_EQ(UsageLogins::claudeHomes(environment(
                {{"HOME", "/home/ada"}, {"CLAUDE_CONFIG_DIR", " /work/claude , ~/alt/,relative,,/work/claude"}})),
            (Paths{"/work/claude", "/home/ada/alt"}));
  EXPECT_TRUE(UsageLogins::claudeHomes(environment({})).empty());

  EXPECT_EQ(UsageLogins::codexHomes(environment({{"HOME", "/home/ada"}})), (Paths{"/home/ada/.codex"}));
  EXPECT_EQ(UsageLogins::codexHomes(environment({{"HOME", "/home/ada"}, {"CODEX_HOME", "/a,~"}})),
            (Paths{"/a", "/home/ada"}));
}

}  // namespace
}  // namespace omnira
