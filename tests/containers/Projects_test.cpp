// Projects from a tick's groups, and `omnira projects` on this machine with a real dev
// server running in a project folder.

#include "OmniraCore/containers/Projects.h"

#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tests/cli/CommandRun.h"
#include "tests/containers/DevServer.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;

ProcessSample process(int32_t pid, std::optional<std::string> project, std::vector<uint16_t> ports = {},
                      uint32_t uid = 1000, uint64_t memory = 1000) {
  ProcessSample s;
  s.pid = pid;
  s.name = "p" + std::to_string(pid);
  s.projectPath = std::move(project);
  s.listeningPorts = std::move(ports);
  s.uid = uid;
  s.memoryBytes = memory;
  s.cpuPercent = 1.5;
  return s;
}

TEST(Projects, FoldTheProcessesOfEachFolderAcrossApps) {
  const std::vector<AppGroup> groups = {
      AppGroup("exec:/usr/bin/node", "node", GroupKind::other, std::nullopt,
               {process(30, "/src/web", {3000, 5173}), process(31, "/src/Api", {3000}), process(32, std::nullopt)}),
      AppGroup("code.desktop", "Code", GroupKind::app, std::nullopt,
               {process(20, "/src/web"), process(21, "/src/web", {9229}, /*uid=*/0)}),
  };
  const auto projects = Project::of(groups, 1000);
  ASSERT_EQ(projects.size(), 2u);
  // By name, ignoring case; processes by pid.
  EXPECT_EQ(projects[0].name, "Api");
  EXPECT_EQ(projects[1].path, "/src/web");
  const Project& web = projects[1];
  ASSERT_EQ(web.processes.size(), 3u);
  EXPECT_EQ(web.processes[0].pid, 20);
  EXPECT_EQ(web.ports(), (std::vector<uint16_t>{3000, 5173, 9229}));
  // Only the person's listening processes are dev servers: not root's debugger.
  EXPECT_EQ(web.devServerCount(), 1u);
  EXPECT_EQ(web.memoryBytes(), 3000u);
  EXPECT_TRUE(web.matches("WEB"));
  EXPECT_FALSE(web.matches("api"));
  EXPECT_EQ(web.toJSON()["processes"][2]["ports"], nlohmann::ordered_json({3000, 5173}));
}

using ProjectsCommand = testing::CommandHome;

TEST_F(ProjectsCommand, FindsARealDevServerInAProjectFolder) {
  const fs::path project = root / "checkout" / "shop-frontend";
  fs::create_directories(project / "src");
  std::ofstream(project / "package.json") << "{}";

  // A dev server of the person's, working in a folder below the project's root.
  std::optional<testing::CommandRun> text, json, none;
  std::string port;
  pid_t server = 0;
  {
    const testing::DevServer dev(project / "src");
    ASSERT_NE(dev.port(), 0);
    port = std::to_string(dev.port());
    server = dev.pid();
    text = run("projects shop", false);
    json = run("projects --json", false);
    none = run("projects no-such-thing");
  }

  EXPECT_EQ(text->status, 0);
  EXPECT_NE(text->out.find("shop-frontend  " + project.string()), std::string::npos) << text->out;
  EXPECT_NE(text->out.find(":" + std::string(port)), std::string::npos) << text->out;

  ASSERT_EQ(json->status, 0);
  const auto parsed = nlohmann::json::parse(json->out);
  bool found = false;
  for (const auto& p : parsed["projects"]) {
    if (p["path"] != project.string()) continue;
    found = true;
    EXPECT_EQ(p["ports"], nlohmann::json::array({std::stoi(port)}));
    EXPECT_EQ(p["processes"][0]["pid"], server);
  }
  EXPECT_TRUE(found) << json->out;

  EXPECT_EQ(none->status, 1);
  EXPECT_EQ(none->out, "No project with something running in it matches \"no-such-thing\".\n");
}

}  // namespace
}  // namespace omnira
