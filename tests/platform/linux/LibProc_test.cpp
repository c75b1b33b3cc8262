// LibProc and ProcessSampler over /proc: a fixture tree with the awkward cases, a copy of
// it that changes between ticks, and a real child process.

#include "OmniraCore/platform/linux/LibProc.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include <gtest/gtest.h>

#include "OmniraCore/sampling/ProcessSampler.h"
#include "tests/platform/linux/TempTree.h"

namespace omnira::platform {
namespace {

namespace fs = std::filesystem;

const fs::path kBasic = fs::path(OMNIRA_FIXTURES) / "proc" / "basic";

uint64_t nanosecondsPerTick() { return 1'000'000'000ull / static_cast<uint64_t>(::sysconf(_SC_CLK_TCK)); }

Date bootPlusTicks(uint64_t ticks) {
  return Date(std::chrono::seconds(1'700'000'000)) +
         std::chrono::duration_cast<Date::duration>(std::chrono::nanoseconds(ticks * nanosecondsPerTick()));
}

const ProcessSample* find(const std::vector<ProcessSample>& samples, int32_t pid) { return findPID(samples, pid); }

std::string stat107(uint64_t utime, uint64_t start) {
  return "107 (chrome) S 1 107 107 0 -1 4194304 100 0 0 0 " + std::to_string(utime) + " 100 0 0 20 0 1 0 " +
         std::to_string(start) + " 1000000 100 18446744073709551615 1 1 0 0 0 0 0 0 0 0 0 0 17 1 0 0 0 0 0\n";
}

// What the sampler does not show: the listing, failure kinds, and the raw counters.
TEST(LibProc, ReadsTheFixtureTree) {
  LibProc proc(Roots{kBasic, kBasic / "sys"}, false);
  auto pids = proc.allPIDs();
  ASSERT_TRUE(pids.ok()) << pids.error().detail;
  EXPECT_EQ(*pids, (std::vector<int32_t>{1, 2, 100, 101, 102, 103, 104, 105, 106, 107, 4242}));

  auto odd = proc.basicInfo(102);
  ASSERT_TRUE(odd.ok()) << odd.error().detail;
  EXPECT_EQ(odd->name, "a) b");
  EXPECT_EQ(proc.basicInfo(4242).error().kind, ProcessReadFailure::Kind::vanished);
  EXPECT_EQ(proc.basicInfo(105).error().kind, ProcessReadFailure::Kind::malformed);
  EXPECT_EQ(proc.facts(4242).error().kind, ProcessReadFailure::Kind::vanished);

  auto usage = proc.usage(100);
  ASSERT_TRUE(usage.ok());
  EXPECT_EQ(usage->usage.footprint, (300000u + 20000u + 4000u) * 1024u);

  EXPECT_DOUBLE_EQ(proc.proportionalMemory(100)->residentRatio, 200000.0 / 350000.0);
  EXPECT_FALSE(proc.proportionalMemory(101).has_value());
  EXPECT_EQ(proc.listeningSockets(),
            (std::vector<ListeningSocket>{{5001, 8080, 1000}, {7001, 22, 0}, {5002, 3000, 1000}}));
}

TEST(LibProc, SamplerSeesTheFixtureTreeWithOrWithoutKeptFiles) {
  for (const bool keep : {true, false}) {
    SCOPED_TRACE(keep ? "kept files" : "files opened per read");
    ProcessSampler sampler(std::make_unique<LibProc>(Roots{kBasic, kBasic / "sys"}, keep));
    const auto samples = sampler.sample(ProcessDetails{.projects = true});
    std::vector<int32_t> pids;
    for (const auto& s : samples) pids.push_back(s.pid);
    // 105 is garbled and 4242 vanished: neither is in the list.
    EXPECT_EQ(pids, (std::vector<int32_t>{1, 2, 100, 101, 102, 103, 104, 106, 107}));
    EXPECT_EQ(sampler.unmeasuredCount(), 1u);  // 105; 102 is shown, without disk figures
    EXPECT_EQ(sampler.withoutDiskCount(), 1u);

    const auto* firefox = find(samples, 100);
    ASSERT_NE(firefox, nullptr);
    EXPECT_EQ(firefox->helperRole, std::nullopt);
    EXPECT_TRUE(firefox->hasMetrics);
    EXPECT_DOUBLE_EQ(firefox->lifetimeCPUSeconds, 1500.0 * static_cast<double>(nanosecondsPerTick()) / 1e9);
    EXPECT_EQ(firefox->startedAt, bootPlusTicks(5000));
    EXPECT_EQ(firefox->listeningPorts, (std::vector<uint16_t>{3000, 8080}));
    // Refined with its proportional share (Pss_Anon + Pss_Shmem + SwapPss).
    EXPECT_EQ(firefox->memoryBytes, (150000u + 10000u + 2000u) * 1024u);

    EXPECT_EQ(find(samples, 101)->helperRole, HelperRole::renderer);
    EXPECT_EQ(find(samples, 101)->path, "/usr/lib/firefox-esr/firefox-esr");  // " (deleted)" after an update
    EXPECT_EQ(find(samples, 102)->name, "a) b");
    EXPECT_FALSE(find(samples, 102)->hasMetrics);
    EXPECT_TRUE(find(samples, 102)->hasTerminal);
    EXPECT_EQ(find(samples, 102)->appUnitID, "org.kde.konsole");  // hybrid hierarchy
    EXPECT_EQ(find(samples, 103)->flatpakAppID, "org.mozilla.firefox");
    EXPECT_EQ(find(samples, 1)->flatpakAppID, std::nullopt);  // the machine's own units are never looked into
    EXPECT_TRUE(find(samples, 104)->sessionService);
    EXPECT_EQ(find(samples, 107)->helperRole, HelperRole::renderer);
    EXPECT_TRUE(find(samples, 2)->kernelThread);
    EXPECT_TRUE(find(samples, 1)->listeningPorts.empty());  // uid 0 owns port 22, but pid 1 holds no socket
  }
}

TEST(LibProc, SamplerFollowsFilesThatChangeBetweenTicks) {
  for (const bool keep : {true, false}) {
    SCOPED_TRACE(keep ? "kept files" : "files opened per read");
    TempTree tree(kBasic);
    auto source = std::make_unique<LibProc>(Roots{tree.root(), tree.root() / "sys"}, keep);
    auto* proc = source.get();
    ProcessSampler sampler(std::move(source));
    ASSERT_EQ(sampler.sample().size(), 9u);
    if (keep) {
      EXPECT_GT(proc->keptDescriptors(), 0u);
    }

    tree.write("107/stat", stat107(1900, 9000));  // 1000 more ticks of user time
    auto samples = sampler.sample();
    ASSERT_NE(find(samples, 107), nullptr);
    EXPECT_EQ(find(samples, 107)->delta.cpuNanoseconds, 1000 * nanosecondsPerTick());

    // The pid now belongs to a new process running another program.
    tree.write("107/stat", stat107(5000, 12000));
    fs::remove(tree.root() / "107/exe");
    fs::create_symlink("/usr/bin/other", tree.root() / "107/exe");
    samples = sampler.sample();
    EXPECT_EQ(find(samples, 107)->delta, UsageDelta{});
    EXPECT_EQ(find(samples, 107)->path, "/usr/bin/other");

    // Gone: pruned, and its kept files closed.
    const size_t keptBefore = proc->keptDescriptors();
    fs::remove_all(tree.root() / "107");
    samples = sampler.sample();
    EXPECT_EQ(find(samples, 107), nullptr);
    EXPECT_EQ(sampler.trackedCount(), 8u);
    if (keep) {
      EXPECT_LT(proc->keptDescriptors(), keptBefore);
    }
  }
}

// A child read from the real /proc (its CPU share is checked in LibProcThreads).
class Sleeper {
 public:
  Sleeper() {
    pid_ = ::fork();
    if (pid_ == 0) {
      ::execl("/bin/sleep", "sleep", "600", static_cast<char*>(nullptr));
      ::_exit(127);
    }
  }
  ~Sleeper() { stop(); }
  void stop() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
    pid_ = -1;
  }
  pid_t pid() const { return pid_; }

 private:
  pid_t pid_ = -1;
};

TEST(LibProc, ReadsARealChildUntilItIsReaped) {
  Sleeper child;
  ASSERT_GT(child.pid(), 0);
  ProcessSampler sampler(std::make_unique<LibProc>());
  // Wait for the exec to land (the name changes from ours to "sleep"); bounded, never timed.
  std::vector<ProcessSample> samples;
  const ProcessSample* first = nullptr;
  for (int i = 0; i < 500 && !(first && first->name == "sleep"); ++i) {
    if (i > 0) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    samples = sampler.sample();
    first = find(samples, child.pid());
    ASSERT_NE(first, nullptr);
  }
  ASSERT_EQ(first->name, "sleep");
  EXPECT_EQ(first->parentPID, ::getpid());
  EXPECT_EQ(first->path, fs::canonical("/bin/sleep").string());  // read again after the exec
  child.stop();  // reaped: its kept files now read ESRCH
  samples = sampler.sample();
  EXPECT_EQ(find(samples, child.pid()), nullptr);
}

}  // namespace
}  // namespace omnira::platform
