// A process's chain of parents from a /proc tree of the test's own: names with spaces and
// parentheses, a stat file cut short, and a loop that must not spin.

#include "OmniraCore/platform/linux/ProcessChain.h"

#include <gtest/gtest.h>

#include "tests/platform/linux/TempTree.h"

namespace omnira::platform {
namespace {

namespace fs = std::filesystem;

TEST(ProcessChain, WalksUpToTheFirstParentThatCannotBeRead) {
  TempTree tree;
  const fs::path& root = tree.root();
  const auto stat = [&](int pid, const std::string& text) { tree.write(std::to_string(pid) + "/stat", text); };
  const std::string rest = " 1 1 0 -1 4194304 90 0 0 0 1 0 0 0 20 0 1 0 5000 0 0\n";
  stat(400, "400 (omnira) S 300" + rest);
  stat(300, "300 (node (MCP) x) S 200" + rest);
  stat(200, "200 (claude) S 100" + rest);
  stat(100, "100 (bash) S");  // cut short: the chain ends above it
  const auto chain = processChain(400, root);
  ASSERT_EQ(chain.size(), 3u);
  EXPECT_EQ(chain[1], (std::pair<int32_t, std::string>{300, "node (MCP) x"}));
  stat(500, "500 (a) S 600" + rest);
  stat(600, "600 (b) S 500" + rest);
  EXPECT_EQ(processChain(500, root).size(), 2u);
  EXPECT_TRUE(processChain(1, root).empty());
}

}  // namespace
}  // namespace omnira::platform
