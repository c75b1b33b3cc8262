// A real Docker daemon, started by the test on a private socket and data root, with an
// image made here from busybox (nothing is pulled): the engine's replies, and the
// container's processes grouped as the container through their control group.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include <nlohmann/json.hpp>

#include "OmniraCore/containers/ContainerSampler.h"
#include "OmniraCore/containers/DockerAPI.h"
#include "OmniraCore/containers/UnixHTTP.h"
#include "tests/cli/CommandRun.h"
#include "tests/support/LoopbackHTTP.h"

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
    docker("network rm omnira-net");
    ::kill(daemon_, SIGTERM);
    ::waitpid(daemon_, nullptr, 0);
    std::error_code ignored;
    fs::remove_all(root_, ignored);
  }
  // An image of busybox alone, as "omnira-test:1".
  void importImage() {
    const fs::path image = root_ / "image";
    fs::create_directories(image / "bin");
    fs::copy_file("/bin/busybox", image / "bin/busybox");
    for (const char* applet : {"sleep", "httpd", "sh"}) fs::create_symlink("busybox", image / "bin" / applet);
    fs::create_directories(image / "www");
    std::ofstream(image / "www/index.html") << std::string(10'000, 'x');
    ASSERT_EQ(testing::runShell("tar -C " + image.string() + " -c . | docker -H unix://" + socket_ +
                                " import - omnira-test:1 >/dev/null 2>&1")
                  .status,
              0);
  }
  // The command, asking this test's daemon.
  testing::CommandRun omnira(const std::string& arguments) {
    return testing::runShell("DOCKER_HOST=unix://" + socket_ + " " + OMNIRA_CLI_PATH + " " + arguments + " 2>&1");
  }
  testing::CommandRun docker(const std::string& arguments) {
    return testing::runShell("docker -H unix://" + socket_ + " " + arguments + " 2>&1");
  }
  // The container's process is a group of its own in `omnira snapshot --json`. (The reply is
  // kept in a variable: a range-for over a member of parse()'s temporary reads freed memory.)
  void expectContainerGroup(const std::string& id, int pid) {
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

  fs::path root_;
  std::string socket_;
  pid_t daemon_ = -1;
};

TEST_F(RealDocker, ListsInfoAndStatsAndGroupsTheContainersProcesses) {
  importImage();
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
  EXPECT_EQ(web.image, "omnira-test:1");
  EXPECT_EQ(web.composeWorkingDir(), "/home/ada/shop");
  EXPECT_TRUE(web.status.starts_with("Up")) << web.status;

  const auto info = DockerAPI::info(socket_);
  ASSERT_TRUE(info.ok()) << info.error().message;
  EXPECT_GT(info->memTotal, 0u);
  const auto stats = DockerAPI::stats(socket_, id);
  ASSERT_TRUE(stats.ok()) << stats.error().message;
  EXPECT_GT(stats->memory.limit, 0u);
  EXPECT_EQ(DockerAPI::stats(socket_, std::string(64, 'a')).error().message, "status 404");

  // The container's process is a group of its own, found from its control group alone.
  const auto pid = std::stoi(docker("inspect -f '{{.State.Pid}}' shop-web-1").out);
  expectContainerGroup(id, pid);
}

// A page fetched through the published port: traffic the container's network counts.
size_t fetch(uint16_t port) {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = testing::loopbackAddress(port);
  size_t got = 0;
  if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
      testing::sendAll(fd, "GET /index.html HTTP/1.0\r\n\r\n")) {
    char buffer[16384];
    for (ssize_t n; (n = ::read(fd, buffer, sizeof buffer)) > 0;) got += static_cast<size_t>(n);
  }
  ::close(fd);
  return got;
}

TEST_F(RealDocker, AComposeServiceWithAPublishedPortIsMeasuredListedAndNotToBeQuit) {
  importImage();
  ASSERT_EQ(docker("network create -d bridge omnira-net").status, 0);
  const uint16_t port = testing::unusedPort();
  const auto run = docker("run -d --network omnira-net -p 127.0.0.1:" + std::to_string(port) +
                          ":80 --label com.docker.compose.project=shop --label com.docker.compose.service=web "
                          "--label com.docker.compose.project.working_dir=/home/ada/shop --name shop-web-1 "
                          "omnira-test:1 /bin/httpd -f -p 80 -h /www");
  ASSERT_EQ(run.status, 0) << run.out;
  const std::string id = run.out.substr(0, 64);

  ContainerSampler::Options options;
  options.engines = {{"Docker", socket_, std::nullopt}};
  ContainerSampler sampler(options);
  const auto first = sampler.sample(/*withStats=*/true);
  ASSERT_EQ(first.containers.size(), 1u);
  size_t fetched = 0;
  for (int i = 0; i < 20; ++i) fetched += fetch(port);
  EXPECT_GT(fetched, 200'000u);
  std::this_thread::sleep_for(1100ms);
  const auto second = sampler.sample(/*withStats=*/true);
  ASSERT_EQ(second.containers.size(), 1u);
  const auto& web = second.containers.front();
  EXPECT_EQ(web.id, id);
  EXPECT_EQ(web.displayName(), "web (shop)");
  EXPECT_EQ(web.publishedPorts, (std::vector<uint16_t>{port}));
  EXPECT_GT(web.memoryInUseBytes.value_or(0), 0u);
  ASSERT_TRUE(web.cpuPercent);
  EXPECT_GE(*web.cpuPercent, 0.0);
  // The pages left the container: at least what was fetched, over the time between readings.
  ASSERT_TRUE(web.networkOutBytesPerSec);
  EXPECT_GT(*web.networkOutBytesPerSec, 50'000.0);

  const auto listed = omnira("containers shop --json");
  ASSERT_EQ(listed.status, 0) << listed.out;
  const auto containers = nlohmann::json::parse(listed.out)["containers"];
  ASSERT_EQ(containers.size(), 1u);
  EXPECT_EQ(containers[0]["name"], "shop-web-1");
  EXPECT_TRUE(containers[0]["cpuPercent"].is_number());
  EXPECT_EQ(omnira("containers nothing-like-it").status, 1);

  const auto ports = omnira("ports " + std::to_string(port) + " --json");
  ASSERT_EQ(ports.status, 0) << ports.out;
  const auto held = nlohmann::json::parse(ports.out)["ports"];
  ASSERT_EQ(held.size(), 1u) << ports.out;
  EXPECT_EQ(held[0]["container"]["name"], "shop-web-1");
  EXPECT_EQ(held[0]["container"]["project"], "/home/ada/shop");

  const auto verdict = omnira("can-quit --port " + std::to_string(port) + " --json");
  ASSERT_EQ(verdict.status, 0) << verdict.out;
  const auto judged = nlohmann::json::parse(verdict.out)["verdicts"][0];
  EXPECT_EQ(judged["verdict"], "do_not");
  EXPECT_EQ(judged["how"], "docker stop shop-web-1");

  // The container's process is a group of its own in the snapshot too, and named after its
  // Compose service, it works in its project.
  const auto pid = std::stoi(docker("inspect -f '{{.State.Pid}}' shop-web-1").out);
  expectContainerGroup(id, pid);
  const auto projects = omnira("projects shop --json");
  ASSERT_EQ(projects.status, 0) << projects.out;
  const auto shop = nlohmann::json::parse(projects.out)["projects"][0];
  EXPECT_EQ(shop["path"], "/home/ada/shop");
  EXPECT_EQ(shop["containers"], nlohmann::json::array({"shop-web-1"}));
  bool named = false;
  for (const auto& process : shop["processes"]) named = named || (process["pid"] == pid && process["app"] == "web (shop)");
  EXPECT_TRUE(named) << projects.out;
}

}  // namespace
}  // namespace omnira
