// The official MCP clients from npm against the real thing: `omnira mcp setup claude` writes
// the agent's settings, and the Inspector's command-line mode and a client on the
// TypeScript SDK start the server those settings name, list the tools and call top_apps on
// a running Omnira. The clients are installed with npm into the build folder, once.

#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include <nlohmann/json.hpp>

#include "tests/Omnira/RunningOmnira.h"
#include "tests/cli/CommandRun.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;
using json = nlohmann::json;

std::string quoted(const std::string& text) { return "'" + text + "'"; }

TEST(McpClients, InspectorAndSDKCallTheServerThatSetupWrote) {
  ASSERT_EQ(testing::runShell("command -v node >/dev/null && command -v npm >/dev/null").status, 0)
      << "node and npm are needed for the MCP client tests (scripts/install-deps installs them)";
  const fs::path clients = fs::path(OMNIRA_BUILD_DIR) / "mcp-clients";
  const fs::path sources = fs::path(OMNIRA_FIXTURES).parent_path() / "cli" / "mcp";
  if (!fs::exists(clients / "node_modules" / ".bin" / "mcp-inspector")) {
    fs::create_directories(clients);
    for (const char* file : {"package.json", "package-lock.json", "sdk_client.mjs"})
      fs::copy_file(sources / file, clients / file, fs::copy_options::overwrite_existing);
    const auto installed = testing::runShell("cd " + quoted(clients) + " && npm ci --no-audit --no-fund 2>&1");
    ASSERT_EQ(installed.status, 0) << installed.out;
  }
  fs::copy_file(sources / "sdk_client.mjs", clients / "sdk_client.mjs", fs::copy_options::overwrite_existing);

  const fs::path root = fs::temp_directory_path() / ("omnira-mcp-clients-" + std::to_string(::getpid()));
  fs::remove_all(root);
  fs::create_directories(root / "home");
  fs::create_directories(root / "config" / "Omnira");
  std::ofstream(root / "config" / "Omnira" / "settings.json") << R"({"bridgeEnabled": true, "refreshSeconds": 1})";
  testing::RunningOmnira app(root);
  const std::string env = "HOME=" + quoted(root / "home") + " XDG_DATA_HOME=" + quoted(root / "data") +
                          " XDG_CONFIG_HOME=" + quoted(root / "config") + " ";
  // The first answers need a process sample: wait until top_apps has apps.
  bool ready = false;
  for (int i = 0; i < 300 && !ready; ++i) {
    ready = testing::runShell(env + OMNIRA_CLI_PATH + " ask top_apps 2>/dev/null | grep -q memory_mb").status == 0;
    if (!ready) std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  ASSERT_TRUE(ready) << testing::slurp(root / "stderr");

  const auto setup = testing::runShell(env + OMNIRA_CLI_PATH + " mcp setup claude 2>&1");
  ASSERT_EQ(setup.status, 0) << setup.out;
  const auto config = json::parse(testing::slurp(root / "home" / ".claude.json"));
  const auto& server = config["mcpServers"]["omnira"];
  std::string command = quoted(server["command"].get<std::string>());
  for (const auto& argument : server["args"]) command += " " + quoted(argument.get<std::string>());

  // The Inspector passes the server only a few variables of its own; the rest are given.
  const std::string inspector = "cd " + quoted(clients) + " && node_modules/.bin/mcp-inspector --cli -e HOME=" +
                                quoted(root / "home") + " -e XDG_DATA_HOME=" + quoted(root / "data") +
                                " -e XDG_CONFIG_HOME=" + quoted(root / "config") + " " + command;
  const auto listed = testing::runShell(inspector + " --method tools/list 2>&1");
  ASSERT_EQ(listed.status, 0) << listed.out;
  const auto tools = json::parse(listed.out)["tools"];
  EXPECT_EQ(tools.size(), 14u);
  EXPECT_EQ(tools[0]["name"], "system_status");
  const auto called = testing::runShell(inspector + " --method tools/call --tool-name top_apps 2>&1");
  ASSERT_EQ(called.status, 0) << called.out;
  const auto result = json::parse(called.out);
  EXPECT_EQ(result["isError"], false);
  const auto apps = json::parse(result["content"][0]["text"].get<std::string>())["apps"];
  ASSERT_FALSE(apps.empty());
  EXPECT_GT(apps[0]["memory_mb_with_helpers"].get<double>(), 0);

  const auto sdk = testing::runShell("cd " + quoted(clients) + " && " + env + "node sdk_client.mjs " + command);
  ASSERT_EQ(sdk.status, 0) << sdk.out;
  const auto seen = json::parse(sdk.out);
  EXPECT_EQ(seen["server"]["name"], "omnira");
  EXPECT_EQ(seen["tools"].size(), 14u);
  EXPECT_FALSE(seen["top"]["structuredContent"]["apps"].empty());
  EXPECT_EQ(seen["refused"]["isError"], true);
  EXPECT_EQ(seen["refused"]["content"][0]["text"], "Give the app's name.");

  EXPECT_EQ(app.stop(), 0);
  fs::remove_all(root);
}

}  // namespace
}  // namespace omnira
