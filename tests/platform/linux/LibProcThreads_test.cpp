// Real children read from the real /proc: one whose main thread waits while a worker
// thread runs, as in every thread-pool server and runtime, and one of another user.

#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <new>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "OmniraCore/platform/linux/LibProc.h"
#include "OmniraCore/sampling/AppGrouper.h"
#include "OmniraCore/sampling/ProcessSampler.h"
#include "tests/platform/linux/TempTree.h"

namespace omnira::platform {
namespace {

// What the child tells the test, in memory both share.
struct Shared {
  std::atomic<bool> ready{false};
};

// A forked child: its main thread starts one spinning worker and then waits for good.
class WorkerChild {
 public:
  WorkerChild() {
    void* memory = ::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) return;
    shared_ = new (memory) Shared;
    pid_ = ::fork();
    if (pid_ == 0) {
      pthread_t worker;
      if (::pthread_create(&worker, nullptr, &WorkerChild::run, nullptr) != 0) ::_exit(1);
      shared_->ready = true;
      while (true) ::pause();
    }
  }
  ~WorkerChild() {
    if (pid_ > 0) {
      ::kill(pid_, SIGKILL);
      ::waitpid(pid_, nullptr, 0);
    }
    if (shared_) ::munmap(shared_, sizeof(Shared));
  }
  WorkerChild(const WorkerChild&) = delete;
  WorkerChild& operator=(const WorkerChild&) = delete;

  pid_t pid() const { return pid_; }
  // Bounded, never timed: the worker is up long before this gives up.
  bool waitUntilReady() const {
    for (int i = 0; i < 1000 && pid_ > 0 && !shared_->ready; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    return pid_ > 0 && shared_->ready;
  }
  // CPU time of all the child's threads, from the kernel's clock: the figure to check against.
  double cpuSeconds() const {
    clockid_t clock{};
    timespec t{};
    if (::clock_getcpuclockid(pid_, &clock) != 0 || ::clock_gettime(clock, &t) != 0) return -1;
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e9;
  }

 private:
  static void* run(void*) {
    volatile uint64_t spins = 0;
    while (true) spins = spins + 1;
    return nullptr;
  }

  Shared* shared_ = nullptr;
  pid_t pid_ = -1;
};

TEST(LibProcThreads, AWorkerBehindAnIdleMainThreadReadsAsBusyEveryTick) {
  WorkerChild child;
  ASSERT_TRUE(child.waitUntilReady());
  ProcessSampler sampler(std::make_unique<LibProc>());
  // The sampler reads the worker's clock somewhere within each sample() call, so each of its
  // readings lies between the test's readings just before and just after the call.
  double previousFrom = child.cpuSeconds();
  (void)sampler.sample();
  double previousTo = child.cpuSeconds();
  // stat counts whole clock ticks of each of user and system time.
  const double slack = 2.0 / static_cast<double>(::sysconf(_SC_CLK_TCK)) + 0.005;
  for (int tick = 1; tick <= 4; ++tick) {
    SCOPED_TRACE(tick);
    std::this_thread::sleep_for(std::chrono::milliseconds(250));
    const double from = child.cpuSeconds();
    const auto samples = sampler.sample();
    const double to = child.cpuSeconds();
    const auto* s = findPID(samples, child.pid());
    ASSERT_NE(s, nullptr);
    // The tick's CPU is what the worker really used meanwhile, whatever else the machine
    // runs: never 0 now and several ticks' worth later.
    const double used = static_cast<double>(s->delta.cpuNanoseconds) / 1e9;
    EXPECT_GT(s->cpuPercent, 0);
    EXPECT_GE(used, from - previousTo - slack);
    EXPECT_LE(used, to - previousFrom + slack);
    previousFrom = from;
    previousTo = to;
  }
}

// Another user's process may call itself anything in its arguments; that must not give
// it an executable path, which would let it pick the group it is shown and kept in.
TEST(LibProcThreads, AnotherUsersArgumentsAreNoExecutablePath) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root, to read as another user a process of root's";
  const pid_t victim = ::fork();
  ASSERT_GE(victim, 0);
  if (victim == 0) {
    ::execl("/bin/sleep", "/usr/lib/firefox/firefox", "600", static_cast<char*>(nullptr));
    ::_exit(127);
  }
  // Until the exec lands the child is a copy of this program; bounded, never timed.
  for (int i = 0; i < 1000; ++i) {
    char target[256] = {};
    const auto link = "/proc/" + std::to_string(victim) + "/exe";
    const ssize_t n = ::readlink(link.c_str(), target, sizeof target - 1);
    if (n > 0 && std::string(target, static_cast<size_t>(n)).ends_with("sleep")) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }

  const std::string answer = asNobody([&] {
    ProcessSampler sampler(std::make_unique<LibProc>());
    const auto samples = sampler.sample();
    const auto* s = findPID(samples, victim);
    if (!s) return std::string("no sample");
    return (s->path ? *s->path : std::string("no path")) + "|" + AppGrouper("Linux").descriptor(*s).id;
  });
  ::kill(victim, SIGKILL);
  ::waitpid(victim, nullptr, 0);
  EXPECT_EQ(answer, "no path|name:sleep");
}

}  // namespace
}  // namespace omnira::platform
