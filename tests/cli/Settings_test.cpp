// `omnira settings` run as a person runs it, with its own config folder.

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "OmniraCore/foundation/SettingsKeys.h"
#include "tests/Omnira/RunningOmnira.h"
#include "tests/cli/CommandRun.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;

struct SettingsCommand : testing::CommandHome {
  fs::path file = root / "config" / "Omnira" / "settings.json";
  // `omnira settings …`: standard output only, or both streams with `both`.
  testing::CommandRun run(const std::string& arguments, bool both = true) {
    return CommandHome::run("settings " + arguments, both);
  }
  std::string contents() { return testing::slurp(file); }
};

TEST_F(SettingsCommand, SetGetListUnset) {
  auto listed = run("list --json", false);
  ASSERT_EQ(listed.status, 0) << listed.out;
  auto rows = nlohmann::json::parse(listed.out);
  ASSERT_EQ(rows.size(), SettingsKeys::all().size());  // every row of the table
  EXPECT_EQ(rows[0]["key"], "refreshSeconds");
  EXPECT_FALSE(fs::exists(file)) << "reading must not create the file";

  EXPECT_EQ(run("set refreshSeconds 2.5").out, "refreshSeconds = 2.5\n");
  EXPECT_EQ(run("set insightMutedApps '{\"firefox\": null}'").status, 0);
  EXPECT_EQ(run("get refreshSeconds").out, "2.5\n");

  const auto text = run("list");
  ASSERT_EQ(text.status, 0) << text.out;
  EXPECT_NE(text.out.find(file.string()), std::string::npos) << text.out;
  const auto line = [&](const std::string& key) {
    const auto at = text.out.find("\n" + key + " ");
    return at == std::string::npos ? std::string() : text.out.substr(at + 1, text.out.find('\n', at + 1) - at - 1);
  };
  EXPECT_NE(line("refreshSeconds").find(" 2.5 "), std::string::npos) << text.out;

  EXPECT_EQ(run("unset refreshSeconds").out, "refreshSeconds = 1 (default)\n");
  auto values = nlohmann::json::parse(contents());
  EXPECT_FALSE(values.contains("refreshSeconds"));
}

TEST_F(SettingsCommand, MistakesAreSentencesAndChangeNothing) {
  ASSERT_EQ(run("set historySpan 15").status, 0);
  const std::string before = contents();

  auto unknown = run("get refreshseconds");
  EXPECT_EQ(unknown.status, 2);
  EXPECT_NE(unknown.out.find("did you mean \"refreshSeconds\""), std::string::npos) << unknown.out;
  auto wrong = run("set historySpan 10");
  EXPECT_EQ(wrong.status, 2);
  EXPECT_NE(wrong.out.find("\"historySpan\" takes 5, 15 or 30, not 10."), std::string::npos) << wrong.out;
  auto negative = run("set refreshSeconds -- -3");  // past the options, a value may start with a dash
  EXPECT_EQ(negative.status, 2);
  EXPECT_NE(negative.out.find("\"refreshSeconds\" takes a number from 1 to 10"), std::string::npos) << negative.out;
  EXPECT_EQ(contents(), before);

  // A file the person broke: reading says so and shows the defaults; writing refuses.
  const std::string broken = "{\"historySpan\": 15,\n";
  std::ofstream(file, std::ios::trunc) << broken;
  auto got = run("get historySpan");
  EXPECT_EQ(got.status, 0);
  EXPECT_NE(got.out.find("is not valid JSON"), std::string::npos) << got.out;
  EXPECT_EQ(run("get historySpan", false).out, "5\n");
  EXPECT_EQ(contents(), broken);

}

TEST_F(SettingsCommand, HandEditedValuesThatReadOtherwiseAreNamed) {
  fs::create_directories(file.parent_path());
  std::ofstream(file) << R"({"refreshSeconds": 25, "insightCPUMinutes": 1e308, "insightHotMinutes": 5, "x": 1})";
  auto rows = nlohmann::json::parse(run("list --json", false).out);
  EXPECT_EQ(rows[0]["value"], 10);
  const auto text = run("list").out;
  EXPECT_NE(text.find("adjusted"), std::string::npos) << text;
  EXPECT_NE(text.find("the file holds 25: \"refreshSeconds\" takes a number from 1 to 10, not 25."),
            std::string::npos)
      << text;
  // Out of range: that key reads as its default, with a sentence; the others stand.
  EXPECT_EQ(run("get insightCPUMinutes", false).out, "10\n");
  auto said = run("get insightCPUMinutes");
  EXPECT_NE(said.out.find("holds 1e+308 for \"insightCPUMinutes\", which takes a number from 0.01 to 60"), std::string::npos)
      << said.out;
}

TEST_F(SettingsCommand, TwoChangesAtOnceBothLand) {
  const std::string environment = "HOME='" + (root / "home").string() + "' XDG_CONFIG_HOME='" +
                                  (root / "config").string() + "' XDG_DATA_HOME='" + (root / "data").string() + "' ";
  const std::string settings = environment + OMNIRA_CLI_PATH + " settings set ";
  for (int round = 0; round < 20; ++round) {
    fs::remove(file);
    auto both = testing::runShell("(" + settings + "insightCPUPercent 80 >/dev/null 2>&1; echo a=$?) & (" + settings +
                                  "historySpan 15 >/dev/null 2>&1; echo b=$?) & wait");
    EXPECT_NE(both.out.find("a=0"), std::string::npos) << both.out;
    EXPECT_NE(both.out.find("b=0"), std::string::npos) << both.out;
    const auto values = nlohmann::json::parse(contents());
    EXPECT_EQ(values.value("insightCPUPercent", 0), 80) << "round " << round << ": " << values.dump();
    EXPECT_EQ(values.value("historySpan", 0), 15) << "round " << round << ": " << values.dump();
    if (::testing::Test::HasFailure()) break;
  }
}

}  // namespace
}  // namespace omnira
