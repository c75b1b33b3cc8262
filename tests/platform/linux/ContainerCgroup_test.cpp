// Containers by control group, as each engine and driver names them, and the app group a
// container's processes then form.

#include "OmniraCore/platform/linux/ContainerCgroup.h"

#include <gtest/gtest.h>

#include "OmniraCore/platform/linux/LinuxAppIdentifier.h"

namespace omnira::platform {
namespace {

const std::string id = "3f1c8e2b9a7d4c6e5f0a1b2c3d4e5f60718293a4b5c6d7e8f9a0b1c2d3e4f5a6";

TEST(ContainerCgroup, EachEngineAndDriverNamesItsContainers) {
  struct Row {
    std::string text;
    std::optional<ContainerCgroup> container;
  };
  const Row rows[] = {
      {"0::/system.slice/docker-" + id + ".scope\n", ContainerCgroup{"docker", id}},
      // A process in a sub-group of the container's own.
      {"0::/system.slice/docker-" + id + ".scope/init.scope\n", ContainerCgroup{"docker", id}},
      // cgroup v1 with the cgroupfs driver: the first line that names it wins.
      {"12:pids:/docker/" + id + "\n11:memory:/docker/" + id + "\n1:name=systemd:/docker/" + id + "\n",
       ContainerCgroup{"docker", id}},
      {"0::/user.slice/user-1000.slice/user@1000.service/user.slice/libpod-" + id + ".scope/container\n",
       ContainerCgroup{"podman", id}},
      {"0::/kubepods.slice/kubepods-burstable.slice/kubepods-pod1.slice/cri-containerd-" + id + ".scope\n",
       ContainerCgroup{"containerd", id}},
      {"0::/kubepods.slice/crio-" + id + ".scope\n", ContainerCgroup{"cri-o", id}},
      // Not containers: Podman's monitor, an ordinary service, the engine itself, a short or
      // upper-case id, a malformed line.
      {"0::/machine.slice/libpod-conmon-" + id + ".scope\n", std::nullopt},
      {"0::/system.slice/docker.service\n", std::nullopt},
      {"0::/system.slice/docker-" + id.substr(0, 12) + ".scope\n", std::nullopt},
      {"0::/docker/3F1C8E2B9A7D4C6E5F0A1B2C3D4E5F60718293A4B5C6D7E8F9A0B1C2D3E4F5A6\n", std::nullopt},
      {"garbage without colons\n", std::nullopt},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(containerOfCgroups(row.text), row.container);
  }
}

TEST(ContainerCgroup, AContainersProcessesAreOneGroupWhoeverTheyRunAs) {
  LinuxAppIdentifier::Config config;
  config.personUID = 1000;
  const LinuxAppIdentifier identifier(config);
  ProcessSample root;
  root.pid = 10;
  root.uid = 0;
  root.path = "/usr/sbin/nginx";
  root.containerID = "docker:" + id;
  ProcessSample worker = root;
  worker.pid = 11;
  worker.uid = 101;
  for (const auto& sample : {root, worker}) {
    const auto verdict = identifier.identify(sample);
    ASSERT_TRUE(verdict);
    const auto* descriptor = std::get_if<AppGrouper::Descriptor>(&*verdict);
    ASSERT_NE(descriptor, nullptr);
    EXPECT_EQ(descriptor->id, "container:docker:" + id);
    EXPECT_EQ(descriptor->name, "Container 3f1c8e2b9a7d");
    EXPECT_EQ(descriptor->kind, GroupKind::other);
  }

  // A second container of the same image runs the same program, and is a group of its own.
  AppGrouper::Options options;
  options.identifier = std::make_shared<LinuxAppIdentifier>(config);
  const AppGrouper grouper("Debian", options);
  ProcessSample other = root;
  other.pid = 12;
  other.containerID = "docker:" + std::string(64, 'b');
  const auto groups = grouper.group({root, worker, other});
  ASSERT_EQ(groups.size(), 2u);
  for (const auto& group : groups) EXPECT_EQ(group.processes.size(), group.id.ends_with(id) ? 2u : 1u) << group.id;
}

}  // namespace
}  // namespace omnira::platform
