// `omnira actions` on a log of its own: newest first, as JSON, and cleared only when asked.

#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>

#include <nlohmann/json.hpp>

#include "OmniraCore/bridge/ActionLog.h"
#include "tests/cli/CommandRun.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

using ActionsCommand = testing::CommandHome;

TEST_F(ActionsCommand, ListsNewestFirstAndClearsOnlyWhenAsked) {
  const auto omnira = [&](const std::string& arguments) { return run(arguments); };
  EXPECT_EQ(omnira("actions").out, "No agent has asked to quit anything yet.\n");

  const ActionLog log(root / "data" / "Omnira" / "requests.json");
  const Date now = std::chrono::system_clock::now();
  for (const auto& [target, outcome] : {std::pair{"node (50)", ActionRecord::Outcome::quit},
                                        std::pair{"postgres (70)", ActionRecord::Outcome::declined}}) {
    ActionRecord r;
    r.id = UUID::random();
    r.date = now - (outcome == ActionRecord::Outcome::quit ? 2min : 1min);
    r.asker = "Claude Code";
    r.target = target;
    r.verdict = "ask_first";
    r.outcome = outcome;
    r.detail = ActionRecord::Detail{"It is a database: what uses it may lose work or fail when it stops."};
    ASSERT_TRUE(log.add(r, now).ok());
  }
  const auto listed = omnira("actions");
  EXPECT_LT(listed.out.find("postgres (70)"), listed.out.find("node (50)")) << listed.out;
  EXPECT_NE(listed.out.find("you said no"), std::string::npos);
  const auto json = nlohmann::json::parse(omnira("actions --json").out);
  EXPECT_EQ(json["records"][0]["outcome"], "declined");

  // Without a terminal to ask on, nothing goes unless --yes says so.
  const auto refused = omnira("actions clear");
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(log.read()->records.size(), 2u);
  EXPECT_EQ(omnira("actions clear --yes").out, "Cleared 2 quit requests.\n");
  EXPECT_TRUE(log.read()->records.empty());
  EXPECT_EQ(omnira("actions bogus").status, 2);
}

}  // namespace
}  // namespace omnira
