// The cost of measuring network per process, side by side with `ss -tinp` in one run.
// Usage: omnira_network_probe [SOCKETS [ROUNDS]]   (defaults 1000 and 9)
//
// Starts 20 child processes that hold SOCKETS loopback TCP sockets between them
// (connections to a listener of their own) and keep bytes moving on every one, so each
// refresh has every socket's counters to read and give to its holder. Then, in rounds:
//   omnira network   the CPU time one process sample with network costs more than one
//                    without (the socket dump, finding new holders, the counting)
//   omnira ports     the same with the project scan (working directories, listening
//                    ports) and the port list with who is connected, over a grouped tick
//   ss -tinp         the CPU time of one whole `ss -tinp` run: every TCP socket with its
//                    tcp_info and the processes holding it
// and prints the medians and their ratio as JSON.

#include <arpa/inet.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "bench/ProcessCPU.h"
#include "OmniraCore/containers/Ports.h"
#include "OmniraCore/platform/linux/ThisMachine.h"

extern char** environ;

namespace {

constexpr int kChildren = 20;

// One child: `pairs` connections to its own listener, both ends kept, a few bytes each
// way on every one ten times a second until killed.
[[noreturn]] void traffic(int pairs) {
  const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  if (::bind(listener, reinterpret_cast<sockaddr*>(&address), length) != 0 || ::listen(listener, 128) != 0 ||
      ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    ::_exit(2);
  }
  std::vector<int> ends;
  for (int i = 0; i < pairs; ++i) {
    const int client = ::socket(AF_INET, SOCK_STREAM, 0);
    if (::connect(client, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) ::_exit(3);
    const int server = ::accept(listener, nullptr, nullptr);
    if (server < 0) ::_exit(4);
    ends.push_back(client);
    ends.push_back(server);
  }
  char buffer[512] = {};
  while (true) {
    for (const int fd : ends) (void)::send(fd, buffer, 64, MSG_NOSIGNAL | MSG_DONTWAIT);
    for (const int fd : ends) (void)::recv(fd, buffer, sizeof buffer, MSG_DONTWAIT);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

double ssCPUSeconds() {
  char ss[] = "ss", flags[] = "-tinp";
  char* argv[] = {ss, flags, nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t pid = 0;
  const int spawned = posix_spawnp(&pid, "ss", &actions, nullptr, argv, environ);
  posix_spawn_file_actions_destroy(&actions);
  if (spawned != 0) return -1;
  int status = 0;
  rusage usage{};
  if (::wait4(pid, &status, 0, &usage) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0) return -1;
  auto seconds = [](const timeval& t) { return static_cast<double>(t.tv_sec) + t.tv_usec / 1e6; };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

bool parseCount(const char* text, int& into) {
  const auto end = text + std::strlen(text);
  const auto [ptr, ec] = std::from_chars(text, end, into);
  return ec == std::errc() && ptr == end && into > 0;
}

}  // namespace

int main(int argc, char** argv) {
  int sockets = 1000, rounds = 9;
  if (argc > 3 || (argc > 1 && !parseCount(argv[1], sockets)) || (argc > 2 && !parseCount(argv[2], rounds))) {
    fmt::print(stderr, "usage: omnira_network_probe [SOCKETS [ROUNDS]]\n");
    return 2;
  }
  std::vector<pid_t> children;
  const int pairsEach = std::max(1, sockets / 2 / kChildren);
  for (int i = 0; i < kChildren; ++i) {
    const pid_t pid = ::fork();
    if (pid == 0) traffic(pairsEach);
    if (pid > 0) children.push_back(pid);
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(500));

  auto sampler = omnira::platform::makeProcessSampler();
  (void)sampler->sample({.network = true});  // the baseline
  // Every socket moved since the baseline: this refresh finds all their holders; later
  // ones look only for holders of new sockets.
  double before = omnira::bench::cpuSeconds();
  (void)sampler->sample({.network = true});
  const double first = omnira::bench::cpuSeconds() - before;
  auto grouper = omnira::platform::makeAppGrouper();
  const omnira::ProcessSampler::Details everything{.network = true, .projects = true};
  (void)grouper->group(sampler->sample(everything));
  std::vector<double> withNetwork, without, withPorts, groupedWithout, ss;
  size_t ports = 0, connected = 0;
  for (int round = 0; round < rounds; ++round) {
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    before = omnira::bench::cpuSeconds();
    (void)sampler->sample();
    without.push_back(omnira::bench::cpuSeconds() - before);
    // The ports with who is connected, as `omnira ports` and the store list them.
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    before = omnira::bench::cpuSeconds();
    (void)grouper->group(sampler->sample());
    groupedWithout.push_back(omnira::bench::cpuSeconds() - before);
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    before = omnira::bench::cpuSeconds();
    const auto groups = grouper->group(sampler->sample(everything));
    const auto listed = omnira::Port::of(sampler->lastSockets(), sampler->socketHolders(), groups, ::geteuid());
    withPorts.push_back(omnira::bench::cpuSeconds() - before);
    ports = listed.size();
    connected = 0;
    for (const auto& port : listed) connected += port.connectedFrom.size();
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    before = omnira::bench::cpuSeconds();
    (void)sampler->sample({.network = true});
    withNetwork.push_back(omnira::bench::cpuSeconds() - before);
    ss.push_back(ssCPUSeconds());
  }
  for (const pid_t pid : children) ::kill(pid, SIGKILL);
  for (const pid_t pid : children) ::waitpid(pid, nullptr, 0);

  const double network = std::max(0.0, median(withNetwork) - median(without));
  const double portsAndNetwork = std::max(0.0, median(withPorts) - median(groupedWithout));
  const double peer = median(ss);
  fmt::print("{{\"sockets\": {}, \"rounds\": {}, \"tick_ms\": {:.3f}, \"first_network_refresh_ms\": {:.3f}, "
             "\"network_refresh_ms\": {:.3f}, \"ports_and_network_refresh_ms\": {:.3f}, \"ports\": {}, "
             "\"connected_processes\": {}, \"ss_tinp_ms\": {:.3f}, \"ratio\": {:.3f}, \"ports_ratio\": {:.3f}}}\n",
             pairsEach * 2 * kChildren, rounds, median(without) * 1e3,
             std::max(0.0, first - median(without)) * 1e3, network * 1e3, portsAndNetwork * 1e3, ports, connected,
             peer * 1e3, peer > 0 ? network / peer : 0.0, peer > 0 ? portsAndNetwork / peer : 0.0);
  return 0;
}
