// Setting agents up: Omnira's own entry added, updated and removed while every other line
// of the agents' files stays, files that cannot be read as their format left alone, and
// the command on a home of its own, twice.

#include "cli/McpSetup.h"

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include <nlohmann/json.hpp>

#include "tests/cli/CommandRun.h"
#include "tests/platform/linux/TempTree.h"

namespace omnira::cli {
namespace {

namespace fs = std::filesystem;
using Change = McpSetup::Change;

TEST(McpSetup, TOMLKeepsEveryOtherLine) {
  const std::string theirs = "# mine\nmodel = \"o3\"\n\n[mcp_servers.github]\ncommand = \"gh\"\n";
  Change change{};
  auto added = McpSetup::editTOML(theirs, "/opt/o\"mni/omnira", false, change);
  ASSERT_TRUE(added.ok());
  EXPECT_EQ(change, Change::added);
  EXPECT_EQ(*added, theirs + "\n[mcp_servers.omnira]\ncommand = \"/opt/o\\\"mni/omnira\"\nargs = [\"mcp\"]\n");
  EXPECT_EQ(*McpSetup::editTOML(*added, "/opt/o\"mni/omnira", false, change), *added);
  EXPECT_EQ(change, Change::unchanged);
  // Moved: the table is rewritten in place of the old one, with what followed it kept.
  const std::string between = "[mcp_servers.omnira]\ncommand = \"/old\"\nargs = [\"mcp\"]\n\n[profiles.fast]\nmodel = \"x\"\n";
  auto moved = McpSetup::editTOML(between, "/new", false, change);
  EXPECT_EQ(change, Change::updated);
  EXPECT_EQ(*moved, "[profiles.fast]\nmodel = \"x\"\n\n[mcp_servers.omnira]\ncommand = \"/new\"\nargs = [\"mcp\"]\n");
  auto removed = McpSetup::editTOML(*added, "", true, change);
  EXPECT_EQ(change, Change::removed);
  EXPECT_EQ(*removed, theirs);
  // Written some other way: left to the person.
  EXPECT_FALSE(McpSetup::editTOML("[mcp_servers]\nomnira = { command = \"x\" }\n", "/o", false, change).ok());
}

TEST(McpSetup, JSONKeepsEveryOtherKeyAndRefusesWhatIsNotJSON) {
  Change change{};
  const std::string entry = R"({"command": "/o", "args": ["mcp"]})";
  auto added = McpSetup::editJSON(R"({"theme": "dark", "mcpServers": {"a": {"command": "b"}}, "z": 1})", entry, false, change);
  ASSERT_TRUE(added.ok());
  EXPECT_EQ(*added,
            "{\n  \"theme\": \"dark\",\n  \"mcpServers\": {\n    \"a\": {\n      \"command\": \"b\"\n    },\n    \"omnira\": {\n"
            "      \"command\": \"/o\",\n      \"args\": [\n        \"mcp\"\n      ]\n    }\n  },\n  \"z\": 1\n}\n");
  EXPECT_EQ(*McpSetup::editJSON(*added, entry, false, change), *added);
  EXPECT_EQ(change, Change::unchanged);
  EXPECT_TRUE(McpSetup::editJSON("", entry, false, change).ok());  // a new file
  EXPECT_EQ(McpSetup::editJSON("// a comment\n{}", entry, false, change).error().message,
            "it is not a JSON object (comments or a cut-off file?)");
}

TEST(McpSetup, TheCommandTwiceThroughALinkAndWithABrokenFile) {
  const platform::TempTree tree;
  const fs::path& home = tree.root();
  fs::create_directories(home / "dotfiles");
  fs::create_directories(home / ".codex");
  fs::create_directories(home / ".gemini");
  std::ofstream(home / "dotfiles" / "claude.json") << R"({"numStartups": 4})";
  fs::create_symlink(home / "dotfiles" / "claude.json", home / ".claude.json");
  ::chmod((home / "dotfiles" / "claude.json").c_str(), 0600);
  std::ofstream(home / ".gemini" / "settings.json") << "{ \"theme\": ";  // cut off
  const auto setup = [&](const std::string& arguments) {
    return testing::runShell("HOME='" + home.string() + "' PATH=/usr/bin:/bin " + OMNIRA_CLI_PATH + " mcp setup " +
                             arguments + " 2>&1");
  };
  const auto first = setup("");
  EXPECT_EQ(first.status, 1) << first.out;  // the Gemini file could not be read as JSON
  EXPECT_NE(first.out.find("Claude Code: added Omnira to ~/.claude.json"), std::string::npos) << first.out;
  EXPECT_NE(first.out.find("Codex: added Omnira to ~/.codex/config.toml"), std::string::npos);
  EXPECT_EQ(testing::runShell("cat '" + (home / ".gemini" / "settings.json").string() + "'").out, "{ \"theme\": ");
  EXPECT_TRUE(fs::is_symlink(home / ".claude.json"));
  struct stat info {};
  ::stat((home / "dotfiles" / "claude.json").c_str(), &info);
  EXPECT_EQ(info.st_mode & 0777, 0600u);
  const auto config = nlohmann::json::parse(testing::runShell("cat '" + (home / ".claude.json").string() + "'").out);
  EXPECT_EQ(config["mcpServers"]["omnira"]["command"], fs::canonical(OMNIRA_CLI_PATH).string());

  const auto second = setup("claude");
  EXPECT_EQ(second.status, 0);
  EXPECT_EQ(second.out, "Claude Code: Omnira is already set up in ~/.claude.json.\n");
  EXPECT_EQ(setup("codex --remove").out,
            "Codex: removed Omnira from ~/.codex/config.toml (it takes effect when the agent next starts).\n");
}

}  // namespace
}  // namespace omnira::cli
