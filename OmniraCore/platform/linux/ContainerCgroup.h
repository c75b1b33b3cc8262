#pragma once
// Which container a process runs in, from its control group. On Linux a container is a
// control group on this machine, named by its engine after the container's id:
//   /system.slice/docker-<id>.scope                     Docker, systemd driver
//   /docker/<id>                                        Docker, cgroupfs driver
//   .../libpod-<id>.scope, /machine.slice/libpod-<id>.scope   Podman (not libpod-conmon-)
//   .../cri-containerd-<id>.scope, .../crio-<id>.scope  Kubernetes runtimes
// with <id> the container's 64 hexadecimal digits. Pure text rules; no file access.

#include <optional>
#include <string>
#include <string_view>

namespace omnira::platform {

struct ContainerCgroup {
  std::string engine;  // "docker", "podman", "containerd", "cri-o"
  std::string id;      // 64 hexadecimal digits
  friend bool operator==(const ContainerCgroup&, const ContainerCgroup&) = default;
};

// https://man7.org/linux/man-pages/man7/cgroups.7.html (/proc/PID/cgroup)
// The container of the first line of a /proc/PID/cgroup text whose path names one.
std::optional<ContainerCgroup> containerOfCgroups(std::string_view cgroupText);

}  // namespace omnira::platform
