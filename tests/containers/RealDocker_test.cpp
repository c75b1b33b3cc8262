// A real Docker daemon, started by the test on a private socket and data root, with an
// image made here from busybox (nothing is pulled): the engine's replies, and the
// container's processes grouped as the container through their control group.

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include <nlohmann/json.hpp>

#include "OmniraCore/containers/DockerAPI.h"
#include "OmniraCore/containers/UnixHTTP.h"
#include "tests/cli/CommandRun.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

bool onPath(const char* program) {
  return testing::runShell(std::string("command -v ") + program + " >/dev/null 2>&1").status == 0;
}

class RealDocker : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "a Docker daemon needs root";
    if (!onPath("dockerd") || !onPath("docker") || !fs::exists("/bin/busybox"))
      GTEST_SKIP() << "dockerd, docker or busybox-static is not installed";
    root_ = "/tmp/omnira-dockerd-" + std::to_string(::getpid());
    fs::remove_all(root_);
    fs::create_directories(root_);
    socket_ = (root_ / "d.sock").string();
    daemon_ = ::fork();
    if (daemon_ == 0) {
      const std::string log = (root_ / "log").string();
      std::freopen(log.c_str(), "w", stderr);
      std::freopen(log.c_str(), "a", stdout);
      ::execlp("dockerd", "dockerd", "--host", ("unix://" + socket_).c_str(), "--data-root",
               (root_ / "data").c_str(), "--exec-root", (root_ / "exec").c_str(), "--pidfile",
               (root_ / "pid").c_str(), "--bridge", "none", "--iptables=false", "--ip6tables=false", nullptr);
      ::_exit(127);
    }
    // Waits for the daemon to answer. A kernel or sandbox that does not let a daemon run
    // (no overlay file system, no cgroups) is no fault of ours: then the test says so and skips.
    for (int tries = 0; tries < 300 && !UnixHTTP::get("/_ping", socket_, 1000ms).ok(); ++tries) {
      if (::waitpid(daemon_, nullptr, WNOHANG) == daemon_) {
        daemon_ = -1;
        GTEST_SKIP() << "dockerd cannot run here: " << testing::runShell("tail -3 " + (root_ / "log").string()).out;
      }
      std::this_thread::sleep_for(100ms);
    }
    if (!UnixHTTP::get("/_ping", socket_, 1000ms).ok())
      GTEST_SKIP() << "dockerd did not answer in 30 s: " << testing::runShell("tail -3 " + (root_ / "log").string()).out;
  }
  void TearDown() override {
    if (daemon_ <= 0) return;
    docker("rm -f shop-web-1");
    ::kill(daemon_, SIGTERM);
    ::waitpid(daemon_, nullptr, 0);
    std::error_code ignored;
    fs::remove_all(root_, ignored);
  }
  testing::CommandRun docker(const std::string& arguments) {
    return testing::runShell("docker -H unix://" + socket_ + " " + arguments + " 2>&1");
  }

  fs::path root_;
  std::string socket_;
  pid_t daemon_ = -1;
};

TEST_F(RealDocker, ListsInfoAndStatsAndGroupsTheContainersProcesses) {
  // An image of busybox alone.
  const fs::path image = root_ / "image";
  fs::create_directories(image / "bin");
  fs::copy_file("/bin/busybox", image / "bin/busybox");
  fs::create_symlink("busybox", image / "bin/sleep");
  ASSERT_EQ(testing::runShell("tar -C " + image.string() + " -c . | docker -H unix://" + socket_ +
                              " import - omnira-test:1 >/dev/null 2>&1")
                .status,
            0);
  const auto run = docker(
      "run -d --network none --label com.docker.compose.project=shop --label com.docker.compose.service=web "
      "--label com.docker.compose.project.working_dir=/home/ada/shop --name shop-web-1 omnira-test:1 /bin/sleep 300");
  ASSERT_EQ(run.status, 0) << run.out;
  const std::string id = run.out.substr(0, 64);

  const auto list = DockerAPI::list(socket_);
  ASSERT_TRUE(list.ok()) << list.error().message;
  ASSERT_EQ(list->size(), 1u);
  const auto& web = list->front();
  EXPECT_EQ(web.id, id);
  EXPECT_EQ(web.name, "shop-web-1");
  EXPECT_EQ(web.image, "omnira-test:1");
  EXPECT_EQ(web.composeProject(), "shop");
  EXPECT_EQ(web.composeService(), "web");
  EXPECT_EQ(web.composeWorkingDir(), "/home/ada/shop");
  EXPECT_TRUE(web.status.starts_with("Up")) << web.status;

  const auto info = DockerAPI::info(socket_);
  ASSERT_TRUE(info.ok()) << info.error().message;
  EXPECT_GT(info->memTotal, 0u);
  const auto stats = DockerAPI::stats(socket_, id);
  ASSERT_TRUE(stats.ok()) << stats.error().message;
  EXPECT_GT(stats->memory.usage, 0u);
  EXPECT_GT(stats->memory.limit, 0u);
  EXPECT_EQ(DockerAPI::stats(socket_, std::string(64, 'a')).error().message, "status 404");

  // The container's process is a group of its own, found from its control group alone.
  const auto pid = std::stoi(docker("inspect -f '{{.State.Pid}}' shop-web-1").out);
  const auto snapshot = testing::runShell(std::string(OMNIRA_CLI_PATH) + " snapshot --json 2>/dev/null");
  ASSERT_EQ(snapshot.status, 0);
  const auto parsed = nlohmann::json::parse(snapshot.out);
  bool grouped = false;
  for (const auto& group : parsed["groups"]) {
    if (group["id"] != "container:docker:" + id) continue;
    for (const auto& process : group["processes"]) grouped = grouped || process["pid"] == pid;
  }
  EXPECT_TRUE(grouped) << "no group container:docker:" << id << " holding " << pid;
}

}  // namespace
}  // namespace omnira
