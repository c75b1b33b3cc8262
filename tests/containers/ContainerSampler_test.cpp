// The container sampler: figures from two stats readings, and engines that misbehave
// (garbage, a hang, a container gone by its stats call, a socket path that is a file),
// over real Unix sockets.

#include "OmniraCore/containers/ContainerSampler.h"

#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>

#include "tests/containers/FakeEngine.h"
#include "tests/platform/linux/TempTree.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::FakeEngine;

DockerAPI::Stats stats(uint64_t cpu, std::optional<uint64_t> system, uint64_t received, uint64_t written) {
  DockerAPI::Stats s;
  s.cpu = {cpu, system, 4};
  s.memory = {300'000'000, 8'000'000'000, 100'000'000};
  s.networkReceived = received;
  s.networkSent = received / 10;
  s.blockIO = {0, written};
  return s;
}

TEST(ContainerSampler, FiguresComeFromTwoReadings) {
  ContainerSample c;
  // The first reading: memory only.
  ContainerSampler::measure(c, stats(1'000'000'000, 100'000'000'000, 5000, 0), nullptr, 0);
  EXPECT_EQ(c.memoryInUseBytes, 200'000'000u);
  EXPECT_FALSE(c.cpuPercent);

  // Two seconds later: 1 s of CPU out of the host's 8 s over four CPUs is half a core.
  const ContainerSampler::Reading before{stats(1'000'000'000, 100'000'000'000, 5000, 0), {}};
  ContainerSampler::measure(c, stats(2'000'000'000, 108'000'000'000, 9000, 4096), &before, 2.0);
  EXPECT_DOUBLE_EQ(*c.cpuPercent, 50.0);
  EXPECT_DOUBLE_EQ(*c.networkInBytesPerSec, 2000.0);

  // An engine without the host's counter: CPU over the time between the readings.
  const ContainerSampler::Reading bare{stats(1'000'000'000, std::nullopt, 0, 0), {}};
  ContainerSampler::measure(c, stats(1'500'000'000, std::nullopt, 0, 0), &bare, 1.0);
  EXPECT_DOUBLE_EQ(*c.cpuPercent, 50.0);

  // A restarted container counts from zero: no figure rather than a huge or negative one.
  ContainerSampler::measure(c, stats(10, 109'000'000'000, 3, 0), &before, 2.0);
  EXPECT_FALSE(c.cpuPercent);

  // The engine's own previous reading stands in for a first one of ours.
  auto withPrevious = stats(2'000'000'000, 104'000'000'000, 0, 0);
  withPrevious.previousCPU = {1'000'000'000, 100'000'000'000, 4};
  ContainerSampler::measure(c, withPrevious, nullptr, 0);
  EXPECT_DOUBLE_EQ(*c.cpuPercent, 100.0);

  // A cache larger than the usage is never negative memory.
  auto cached = stats(0, 1, 0, 0);
  cached.memory = {100, 0, 500};
  ContainerSampler::measure(c, cached, nullptr, 0);
  EXPECT_EQ(c.memoryInUseBytes, 0u);
}

std::string statsBody(uint64_t cpu, uint64_t system, const char* read) {
  return R"({"read": ")" + std::string(read) + R"(", "cpu_stats": {"cpu_usage": {"total_usage": )" +
         std::to_string(cpu) + R"(}, "system_cpu_usage": )" + std::to_string(system) +
         R"(, "online_cpus": 2}, "memory_stats": {"usage": 50000000, "limit": 1000000000},
         "networks": {"eth0": {"rx_bytes": )" + std::to_string(cpu / 1000) + R"(, "tx_bytes": 0}}})";
}

struct ContainerSamplerEngines : ::testing::Test {
  platform::TempTree tree;
  const fs::path& root_ = tree.root();
};

TEST_F(ContainerSamplerEngines, EachEngineThatMisbehavesShowsNoContainersAndCostsAtMostItsTimeOut) {
  const std::string a(64, 'a'), b(64, 'b'), gone(64, 'c');
  std::atomic<int> round{0};
  FakeEngine docker(root_ / "docker.sock", [&](const std::string& path) -> FakeEngine::Reply {
    if (path == "/containers/json")
      return FakeEngine::json(R"([
        {"Id": ")" + a + R"(", "Names": ["/shop-web-1"], "Image": "shop", "Status": "Up 1 minute",
         "Labels": {"com.docker.compose.project": "shop", "com.docker.compose.service": "web",
                    "com.docker.compose.project.working_dir": "/home/ada/shop"},
         "Ports": [{"PrivatePort": 80, "PublicPort": 8080, "Type": "tcp"}]},
        {"Id": ")" + b + R"(", "Names": ["/cache"], "Image": "redis", "Status": "Up 2 hours"},
        {"Id": ")" + gone + R"(", "Names": ["/one-off"], "Image": "busybox", "Status": "Up 1 second"}])");
    if (path == "/info") return FakeEngine::json(R"({"MemTotal": 16000000000})");
    if (path.starts_with("/containers/" + gone)) return FakeEngine::json(R"({"message": "No such container"})", 404);
    const bool second = round.load() > 0;
    return FakeEngine::json(second ? statsBody(3'000'000'000, 20'000'000'000, "2026-11-25T10:00:02.000000000Z")
                                   : statsBody(2'000'000'000, 16'000'000'000, "2026-11-25T10:00:00.000000000Z"));
  });
  FakeEngine garbage(root_ / "garbage.sock", [](const std::string&) { return FakeEngine::json("[{\"Id\": "); });
  FakeEngine noHeader(root_ / "noheader.sock", [](const std::string&) { return FakeEngine::Reply{"HTTP/1.1 200 OK\r\n"}; });
  FakeEngine hangs(root_ / "hangs.sock", [](const std::string&) { return FakeEngine::Reply{"", 60s}; });
  std::ofstream(root_ / "file.sock") << "not a socket";

  ContainerSampler::Options options;
  options.timeout = 300ms;
  options.engines = {{"Docker", docker.path(), std::nullopt},
                     {"Podman", (root_ / "garbage.sock").string(), std::nullopt},
                     {"Colima", (root_ / "noheader.sock").string(), std::nullopt},
                     {"OrbStack", (root_ / "hangs.sock").string(), std::nullopt},
                     {"Rancher Desktop", (root_ / "file.sock").string(), std::nullopt},
                     {"Docker", (root_ / "missing.sock").string(), std::nullopt}};
  ContainerSampler sampler(options);

  const auto started = std::chrono::steady_clock::now();
  const auto first = sampler.sample(/*withStats=*/true);
  const auto took = std::chrono::steady_clock::now() - started;
  // The hanging engine is asked beside the others, so the sample costs one time-out.
  EXPECT_LT(took, 1500ms);

  // The file and the missing path are no engines at all; the rest say why they showed nothing.
  ASSERT_EQ(first.engines.size(), 4u);
  EXPECT_TRUE(first.engines[0].answered);
  EXPECT_EQ(first.engines[1].failure, "the engine's reply is not JSON");
  EXPECT_EQ(first.engines[2].failure, "no header");
  EXPECT_TRUE(first.engines[3].failure && first.engines[3].failure->starts_with("read ")) << *first.engines[3].failure;

  // The container that was gone by its stats call is left out; the others have memory only.
  ASSERT_EQ(first.containers.size(), 2u);
  const auto& web = first.containers[1];
  EXPECT_EQ(web.displayName(), "web (shop)");
  EXPECT_EQ(web.publishedPorts, (std::vector<uint16_t>{8080}));
  EXPECT_EQ(web.memoryInUseBytes, 50'000'000u);
  EXPECT_FALSE(web.cpuPercent);
  EXPECT_EQ(first.byPublishedPort().at(8080)->id, a);

  // The second reading, two seconds later by the engine's clock: a share of a core and rates.
  round = 1;
  const auto second = sampler.sample(/*withStats=*/true);
  ASSERT_EQ(second.containers.size(), 2u);
  EXPECT_DOUBLE_EQ(*second.containers[1].cpuPercent, 50.0);  // 1 s of 4 s over 2 CPUs

  // Without stats only the lists are asked for, and the list is taken as it stands.
  const size_t asked = docker.asked().size();
  const auto listed = sampler.sample(/*withStats=*/false);
  EXPECT_EQ(docker.asked().size(), asked + 1);
  EXPECT_EQ(listed.containers.size(), 3u);
}

}  // namespace
}  // namespace omnira
