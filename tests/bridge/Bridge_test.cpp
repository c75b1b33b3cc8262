// The tools' table as agents see it, and the person's sharing rules.

#include "OmniraCore/bridge/Bridge.h"

#include <gtest/gtest.h>

#include "OmniraCore/bridge/BridgeSharing.h"

namespace omnira {
namespace {

using json = nlohmann::ordered_json;

TEST(Bridge, TheTableAgentsSee) {
  const auto tools = Bridge::tools("Debian GNU/Linux");
  // The platform's words stand where the text names the machine and its system; the
  // product's name keeps the apostrophe it has always had.
  EXPECT_NE(tools[1].description.find("from Omnira' history"), std::string::npos);
  EXPECT_NE(tools[3].description.find("slowed down by Debian GNU/Linux to cool"), std::string::npos);
  for (const auto& t : tools) {
    EXPECT_EQ(t.description.find("Mac"), std::string::npos) << t.name;
    EXPECT_EQ(t.description.find("{system}"), std::string::npos) << t.name;
  }

  // Every schema is an object; "required" only where something is, which is nowhere.
  EXPECT_EQ(tools[0].schema, (json{{"type", "object"}, {"properties", json::object()}}));
  EXPECT_EQ(Bridge::object({{"pid", "integer", std::nullopt, {}, std::nullopt}}, {"pid"})["required"], json{"pid"});
  EXPECT_NE(Bridge::request("Debian GNU/Linux").description.find("say before you call that a Omnira window will appear"),
            std::string::npos);

  EXPECT_TRUE(Bridge::isTool("can_quit") && Bridge::isTool("stop_process"));
  EXPECT_TRUE(Bridge::isAction("quit") && !Bridge::isAction("can_quit"));
}

TEST(BridgeSharing, EachSwitchRefusesWhatItCovers) {
  const std::string refusalOfApps =
      "The person has turned off sharing apps with assistants, in Omnira → Settings → Integrations. Don't work around "
      "it; tell them if you need it.";
  struct Row {
    const char* tool;
    json arguments;
    BridgeSharing sharing;
    std::optional<std::string> refusedWord;
  };
  const BridgeSharing all;
  const auto without = [](bool BridgeSharing::*field) {
    BridgeSharing s;
    s.*field = false;
    return s;
  };
  const Row rows[] = {
      {"system_status", json::object(), without(&BridgeSharing::system), "system figures"},
      {"top_apps", json::object(), without(&BridgeSharing::system), std::nullopt},
      {"top_apps", json{{"period", "week"}}, without(&BridgeSharing::history), "history"},
      {"top_apps", json{{"period", "week"}}, without(&BridgeSharing::apps), "apps"},
      {"history", json::object(), without(&BridgeSharing::history), "history"},
      {"ports", json::object(), without(&BridgeSharing::projects), "projects and ports"},
      {"find_process", json{{"port", 3000}}, without(&BridgeSharing::projects), "projects and ports"},
      // Both kinds named: the tool's own kind is told first.
      {"can_quit", json{{"project", "shop"}}, [] {
         BridgeSharing s;
         s.apps = s.projects = false;
         return s;
       }(), "apps"},
      {"quit", json{{"pid", 5}}, without(&BridgeSharing::apps), "apps"},
      {"whats_wrong", json::object(), all, std::nullopt},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.tool) + " " + row.arguments.dump());
    const auto refusal = row.sharing.refusal(row.tool, row.arguments);
    if (!row.refusedWord) {
      EXPECT_FALSE(refusal) << *refusal;
      continue;
    }
    ASSERT_TRUE(refusal);
    EXPECT_TRUE(refusal->starts_with("The person has turned off sharing " + std::string(*row.refusedWord) + " with"))
        << *refusal;
  }
  EXPECT_EQ(without(&BridgeSharing::apps).refusal("top_apps", json::object()), refusalOfApps);
}

TEST(BridgeSharing, FolderNamesOnlyShortensEveryProjectFolder) {
  const json result = {{"projects", json::array({{{"name", "shop"}, {"path", "/home/ada/src/shop/"}}})},
                       {"ports", json::array({{{"port", 3000}, {"project", "/home/ada/src/api"}}})},
                       {"apps", json::array({{{"projects", json::array({"/home/ada/a", "/srv/b"})}}})},
                       {"containers", json::array({{{"compose_folder", "/home/ada/shop"}, {"image", "a/b:1"}}})}};
  EXPECT_EQ(BridgeSharing{}.applied(result), result);
  BridgeSharing names;
  names.folderNamesOnly = true;
  const auto shortened = names.applied(result);
  EXPECT_EQ(shortened["projects"][0]["path"], "shop");
  EXPECT_EQ(shortened["apps"][0]["projects"], (json{"a", "b"}));
  EXPECT_EQ(shortened["containers"][0]["image"], "a/b:1");  // not a folder
}

}  // namespace
}  // namespace omnira
