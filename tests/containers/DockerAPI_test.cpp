// Engine replies as Docker and Podman send them, with keys missing, null or extra, and
// one list call over a real socket.

#include "OmniraCore/containers/DockerAPI.h"

#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>

#include "tests/containers/FakeEngine.h"
#include "tests/platform/linux/TempTree.h"

namespace omnira {
namespace {

TEST(DockerAPI, DecodesTheContainerListAsEnginesSendIt) {
  const auto list = DockerAPI::decodeList(R"([
    {"Id": "4f66ad9a0b2e", "Names": ["/shop-web-1"], "Image": "shop-web", "Status": "Up 3 minutes",
     "Labels": {"com.docker.compose.project": "shop", "com.docker.compose.service": "web",
                "com.docker.compose.project.working_dir": "/home/ada/src/shop", "other": 7},
     "Ports": [{"IP": "0.0.0.0", "PrivatePort": 3000, "PublicPort": 8080, "Type": "tcp"},
               {"IP": "::", "PrivatePort": 3000, "PublicPort": 8080, "Type": "tcp"},
               {"PrivatePort": 9229, "Type": "tcp"}],
     "Extra": {"nested": [1, 2]}},
    {"Id": "77aa", "Names": null, "Labels": null, "Ports": null},
    {"Names": ["/no-id"]},
    "not an object"
  ])");
  ASSERT_TRUE(list.ok()) << list.error().message;
  ASSERT_EQ(list->size(), 2u);
  const auto& web = (*list)[0];
  EXPECT_EQ(web.name, "shop-web-1");
  EXPECT_EQ(web.composeProject(), "shop");
  EXPECT_EQ(web.composeService(), "web");
  EXPECT_EQ(web.composeWorkingDir(), "/home/ada/src/shop");
  EXPECT_EQ(web.publishedPorts(), (std::vector<uint16_t>{8080}));
  EXPECT_EQ(web.labels.count("other"), 0u);  // not text
  const auto& bare = (*list)[1];
  EXPECT_TRUE(bare.labels.empty());

  EXPECT_EQ(DockerAPI::decodeList("{").error().message, "the engine's reply is not JSON");
  EXPECT_FALSE(DockerAPI::decodeList(R"({"message": "page not found"})").ok());
  EXPECT_EQ(DockerAPI::decodeInfo(R"({"MemTotal": 8254820352, "Name": "box"})")->memTotal, 8254820352u);
}

TEST(DockerAPI, DecodesStatsFromEitherControlGroupVersion) {
  // cgroup v2, two networks, block I/O in either case.
  const auto v2 = DockerAPI::decodeStats(R"({
    "cpu_stats": {"cpu_usage": {"total_usage": 5000000000}, "system_cpu_usage": 900000000000, "online_cpus": 4},
    "precpu_stats": {"cpu_usage": {"total_usage": 4000000000}, "system_cpu_usage": 898000000000},
    "memory_stats": {"usage": 300000000, "limit": 8000000000, "stats": {"inactive_file": 100000000, "file": 1}},
    "networks": {"eth0": {"rx_bytes": 1000, "tx_bytes": 200}, "eth1": {"rx_bytes": 10, "tx_bytes": 2}},
    "blkio_stats": {"io_service_bytes_recursive": [
      {"major": 8, "minor": 0, "op": "read", "value": 4096}, {"major": 8, "minor": 0, "op": "write", "value": 512},
      {"major": 8, "minor": 16, "op": "Read", "value": 4096}, {"major": 8, "minor": 0, "op": "total", "value": 9}]}
  })");
  ASSERT_TRUE(v2.ok()) << v2.error().message;
  EXPECT_EQ(v2->cpu.totalUsage, 5000000000u);
  EXPECT_EQ(v2->memory.inUse(), 200000000u);
  EXPECT_EQ(v2->networkReceived, 1010u);
  EXPECT_EQ(v2->blockIO.readBytes, 8192u);

  // cgroup v1 names the cache differently; a cache above the usage never goes below 0;
  // a container without networks (network none) and null block I/O.
  const auto v1 = DockerAPI::decodeStats(R"({
    "memory_stats": {"usage": 1000, "stats": {"total_inactive_file": 5000}},
    "blkio_stats": {"io_service_bytes_recursive": null}
  })");
  ASSERT_TRUE(v1.ok());
  EXPECT_EQ(v1->memory.inactiveFile, 5000u);
  EXPECT_EQ(v1->memory.inUse(), 0u);
  EXPECT_FALSE(DockerAPI::decodeStats("[]").ok());
}

TEST(DockerAPI, ListsOverARealSocketAndRefusesAnIdThatWouldBreakTheRequest) {
  const platform::TempTree tree;
  const auto& dir = tree.root();
  {
    testing::FakeEngine engine(dir / "d.sock", [](const std::string&) {
      return testing::FakeEngine::json(R"([{"Id": "abc", "Names": ["/db"]}])");
    });
    const auto list = DockerAPI::list(engine.path());
    ASSERT_TRUE(list.ok()) << list.error().message;
    EXPECT_EQ((*list)[0].name, "db");
    EXPECT_EQ(engine.requests().at(0).substr(0, 31), "GET /containers/json HTTP/1.1\r\n");
    // Refused before it is sent.
    EXPECT_FALSE(DockerAPI::stats(engine.path(), "abc HTTP/1.1\r\nX: y").ok());
    EXPECT_EQ(engine.requests().size(), 1u);
  }
  EXPECT_EQ(DockerAPI::info((dir / "none.sock").string()).error().message.substr(0, 8), "connect ");
}

}  // namespace
}  // namespace omnira
