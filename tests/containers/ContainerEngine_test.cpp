#include "OmniraCore/containers/ContainerEngine.h"

#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>

#include "tests/containers/FakeEngine.h"
#include "tests/platform/linux/TempTree.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;

AppPaths::Environment environment(std::map<std::string, std::string> values) {
  return [values](const std::string& name) -> std::optional<std::string> {
    const auto found = values.find(name);
    if (found == values.end()) return std::nullopt;
    return found->second;
  };
}

TEST(ContainerEngine, TriesTheEnginesInOrderAndEachSocketOnce) {
  const platform::TempTree tree;
  const auto& dir = tree.root();
  fs::create_directories(dir / "run");
  // DOCKER_HOST names the runtime folder's socket through a link: one engine, tried first.
  fs::create_symlink(dir / "run", dir / "link");
  const auto engines = ContainerEngine::known(
      "/home/ada", environment({{"DOCKER_HOST", "unix://" + (dir / "link" / "docker.sock").string()},
                                {"XDG_RUNTIME_DIR", (dir / "run").string()}}));
  std::vector<std::string> paths;
  for (const auto& e : engines) paths.push_back(e.socketPath);
  EXPECT_EQ(paths, (std::vector<std::string>{
                       (dir / "link" / "docker.sock").string(), "/home/ada/.docker/run/docker.sock",
                       "/home/ada/.orbstack/run/docker.sock", "/home/ada/.colima/default/docker.sock",
                       "/home/ada/.rd/docker.sock", "/home/ada/.local/share/containers/podman/machine/podman.sock",
                       "/home/ada/.docker/desktop/docker.sock", (dir / "run" / "podman" / "podman.sock").string(),
                       "/var/run/docker.sock", "/run/podman/podman.sock"}));
  // A DOCKER_HOST over TCP is no socket of ours; without a runtime folder its rows go.
  EXPECT_EQ(ContainerEngine::known("/h", environment({{"DOCKER_HOST", "tcp://10.0.0.2:2375"}})).front().socketPath,
            "/h/.docker/run/docker.sock");

  // Present only where a socket is; runs only where it answers.
  ContainerEngine engine{"Docker", (dir / "run" / "docker.sock").string(), std::nullopt};
  EXPECT_FALSE(engine.isPresent());
  fs::remove(engine.socketPath);
  int status = 200;
  testing::FakeEngine server(engine.socketPath, [&](const std::string&) { return testing::FakeEngine::json("OK", status); });
  EXPECT_TRUE(engine.isPresent());
  EXPECT_TRUE(engine.runs());
  status = 500;
  EXPECT_FALSE(engine.runs());
}

}  // namespace
}  // namespace omnira
