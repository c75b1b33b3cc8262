// ProcessSampler's rules over a scripted source: rates, identity, pruning, unmeasured
// processes, the memory refinement budget and project details. The clock is the
// source's, so time is stepped, never waited for.

#include "OmniraCore/sampling/ProcessSampler.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>

#include <gtest/gtest.h>

#include "tests/platform/linux/TempTree.h"

#include <unordered_map>

namespace omnira {
namespace {

namespace fs = std::filesystem;
constexpr uint64_t kSecond = 1'000'000'000;

struct FakeProcess {
  ProcessReading reading{.diskMeasured = true, .parentPID = 1, .uid = 1000};
  ProcessFacts facts;
  std::optional<ProcessReadFailure> failure;  // what reading it gives instead
  std::optional<std::string> workingDirectory;
  std::optional<ProportionalMemory> memory;
  std::vector<uint64_t> socketInodes;
};

const ProcessReadFailure kVanished{ProcessReadFailure::Kind::vanished};

// The processes of a scripted machine; its clock moves only when the test says.
class World final : public ProcessSource {
 public:
  std::map<int32_t, FakeProcess> processes;
  std::vector<ListeningSocket> listening;
  uint64_t clock = 100 * kSecond;
  uint64_t clockStepPerMemoryRead = 0;
  bool listingFails = false;
  int factsCalls = 0;
  int directoryCalls = 0;
  std::vector<int32_t> memoryReads;
  std::vector<int32_t> socketReads;

  FakeProcess& add(int32_t pid, std::string name, uint64_t startTicks = 1000) {
    auto& p = processes[pid];
    p.reading.usage.pid = pid;
    p.reading.name = std::move(name);
    p.reading.startTicks = startTicks;
    p.facts.path = "/usr/bin/" + p.reading.name;
    return p;
  }
  RawUsage& usage(int32_t pid) { return processes.at(pid).reading.usage; }

  // Like a kept /proc file: bound to the process it was opened on.
  struct FakeHandle final : Handle {
    FakeHandle(World& w, int32_t p) : world(w), pid(p), startTicks(w.processes.at(p).reading.startTicks) {}
    Result<void, ProcessReadFailure> read(ProcessReading& reading) override {
      auto it = world.processes.find(pid);
      if (it == world.processes.end() || it->second.reading.startTicks != startTicks) return fail(kVanished);
      if (it->second.failure) return fail(*it->second.failure);
      reading = it->second.reading;
      return {};
    }
    World& world;
    int32_t pid;
    uint64_t startTicks;
  };

  Result<void, ProcessReadFailure> listPIDs(std::vector<int32_t>& pids) override {
    if (listingFails) return fail(ProcessReadFailure{});
    pids.clear();
    for (const auto& entry : processes) pids.push_back(entry.first);
    return {};
  }
  Result<std::unique_ptr<Handle>, ProcessReadFailure> open(int32_t pid) override {
    if (!processes.contains(pid)) return fail(kVanished);
    return std::unique_ptr<Handle>(std::make_unique<FakeHandle>(*this, pid));
  }
  Result<ProcessFacts, ProcessReadFailure> facts(int32_t pid) override {
    ++factsCalls;
    if (!processes.contains(pid)) return fail(kVanished);
    return processes.at(pid).facts;
  }
  std::vector<std::string> arguments(int32_t pid) override { return processes.at(pid).facts.arguments; }
  std::optional<std::string> workingDirectory(int32_t pid) override {
    ++directoryCalls;
    return processes.at(pid).workingDirectory;
  }
  std::optional<ProportionalMemory> proportionalMemory(int32_t pid) override {
    memoryReads.push_back(pid);
    clock += clockStepPerMemoryRead;
    return processes.at(pid).memory;
  }
  std::vector<ListeningSocket> listeningSockets() override { return listening; }
  std::vector<uint64_t> socketInodes(int32_t pid) override {
    socketReads.push_back(pid);
    return processes.at(pid).socketInodes;
  }
  uint64_t monotonicNanoseconds() override { return clock; }
};

struct Fixture {
  std::unique_ptr<World> owned = std::make_unique<World>();
  World* world = owned.get();  // owned by the sampler from here on
  ProcessSampler sampler;
  explicit Fixture(ProcessSampler::Options options = {}) : sampler(std::move(owned), std::move(options)) {}

  std::vector<ProcessSample> tickAfter(double seconds, ProcessDetails details = {}) {
    world->clock += static_cast<uint64_t>(seconds * kSecond);
    return sampler.sample(details);
  }
};

const ProcessSample& only(const std::vector<ProcessSample>& samples, int32_t pid) {
  for (const auto& s : samples) {
    if (s.pid == pid) return s;
  }
  ADD_FAILURE() << "no sample for " << pid;
  static ProcessSample none;
  return none;
}

bool has(const std::vector<ProcessSample>& samples, int32_t pid) {
  return std::any_of(samples.begin(), samples.end(), [pid](const auto& s) { return s.pid == pid; });
}

TEST(ProcessSampler, RatesAreDeltasOverEachProcesssOwnInterval) {
  Fixture f;
  f.world->add(10, "worker");
  f.world->usage(10) = {10, 4096, 3 * kSecond, 1000, 2000, 0, 50};

  auto first = f.sampler.sample();
  const auto& s0 = only(first, 10);
  EXPECT_EQ(s0.cpuPercent, 0);  // first seen: no rates
  EXPECT_EQ(s0.delta, UsageDelta{});

  f.world->usage(10) = {10, 8192, 4 * kSecond, 5000, 2000 + 8000, 0, 250};
  auto second = f.tickAfter(2);
  const auto& s1 = only(second, 10);
  EXPECT_DOUBLE_EQ(s1.cpuPercent, 50);
  EXPECT_EQ(s1.delta, (UsageDelta{kSecond, 4000, 8000, 0, 200}));

  // A process added later has its own interval.
  f.world->add(11, "late");
  f.world->usage(11).cpuNanoseconds = kSecond;
  f.world->usage(10).cpuNanoseconds = 6 * kSecond;
  f.tickAfter(1);
  f.world->usage(11).cpuNanoseconds = 3 * kSecond;
  f.world->usage(10).cpuNanoseconds = 6 * kSecond;
  auto third = f.tickAfter(4);
  EXPECT_DOUBLE_EQ(only(third, 11).cpuPercent, 50);

  // Counters that go back or leap count nothing.
  f.world->usage(10) = {10, 0, 5 * kSecond, 500, 10'000 + 1'000'000, 0, 10};  // back, up, back
  auto back = f.tickAfter(1);
  EXPECT_EQ(only(back, 10).delta, (UsageDelta{0, 0, 1'000'000, 0, 0}));

  f.world->usage(10).diskBytesRead = 500 + 200'000'000'000ull;  // 2e11 within one second
  auto leap = f.tickAfter(1);
  EXPECT_EQ(only(leap, 10).delta.diskBytesRead, 0u);

  f.world->usage(10).diskBytesRead += 500'000'000'000ull;  // 5e11 over ten seconds is allowed
  auto slow = f.tickAfter(10);
  EXPECT_EQ(only(slow, 10).delta.diskBytesRead, 500'000'000'000ull);
}

TEST(ProcessSampler, AProcessIsTheSameOnlyWithTheSamePidAndStartTime) {
  Fixture f;
  f.world->add(10, "first", 1000).reading.usage.cpuNanoseconds = 5 * kSecond;
  f.sampler.sample();
  EXPECT_EQ(f.world->factsCalls, 1);

  // Steady: facts are not read again.
  f.world->usage(10).cpuNanoseconds = 6 * kSecond;
  EXPECT_DOUBLE_EQ(only(f.tickAfter(1), 10).cpuPercent, 100);
  EXPECT_EQ(f.world->factsCalls, 1);

  // The same pid, a new process: starts afresh, even though its counter is higher.
  f.world->processes.erase(10);
  f.world->add(10, "second", 2000).reading.usage.cpuNanoseconds = 9 * kSecond;
  auto reused = f.tickAfter(1);
  EXPECT_EQ(only(reused, 10).delta, UsageDelta{});
  EXPECT_EQ(f.world->factsCalls, 2);

  // The same process running a new program: new facts, counters carry on.
  auto& p = f.world->processes.at(10);
  p.reading.name = "Web Content";
  p.reading.usage.cpuNanoseconds = 10 * kSecond;
  p.facts.path = "/usr/lib/firefox/firefox";
  p.facts.arguments = {"/usr/lib/firefox/firefox", "-contentproc", "3", "tab"};
  auto execed = f.tickAfter(1);
  EXPECT_EQ(f.world->factsCalls, 3);
  EXPECT_EQ(only(execed, 10).helperRole, HelperRole::renderer);
}

TEST(ProcessSampler, AsksOnlyForTheDiskCountersItCouldNotReadAndMakesRatesOfThem) {
  std::vector<std::vector<int32_t>> asked;
  uint64_t written = 1000;
  ProcessSampler::Options options;
  options.privilegedDisk = [&](const std::vector<int32_t>& pids) {
    asked.push_back(pids);
    std::unordered_map<int32_t, ProcessSampler::Options::DiskCounters> counters;
    counters[12] = {5'000, written};  // 13 is left out: the helper could not read it either
    return counters;
  };
  Fixture f(std::move(options));
  f.world->add(10, "mine");
  f.world->add(12, "another user's").reading.diskMeasured = false;
  f.world->add(13, "gone quiet").reading.diskMeasured = false;

  auto samples = f.sampler.sample();
  ASSERT_EQ(asked.size(), 1u);
  EXPECT_EQ(asked[0], (std::vector<int32_t>{12, 13}));
  EXPECT_FALSE(only(samples, 13).hasMetrics);
  EXPECT_EQ(f.sampler.withoutDiskCount(), 1u);

  written += 4'000;
  samples = f.tickAfter(2);
  EXPECT_DOUBLE_EQ(only(samples, 12).diskWriteBytesPerSec, 2'000);

  // Once every process can be read, nobody is asked.
  f.world->processes.at(12).reading.diskMeasured = true;
  f.world->processes.at(13).reading.diskMeasured = true;
  (void)f.tickAfter(1);
  EXPECT_EQ(asked.size(), 2u);
}

TEST(ProcessSampler, PrunesExitedProcessesAndCountsTheUnmeasured) {
  Fixture f;
  f.world->add(10, "steady");
  f.world->add(11, "exits");
  f.world->add(12, "private").reading.diskMeasured = false;
  f.world->add(13, "refuses").failure = ProcessReadFailure{ProcessReadFailure::Kind::denied, EACCES};
  f.world->add(14, "garbled").failure = ProcessReadFailure{ProcessReadFailure::Kind::malformed};
  f.world->add(15, "racing").failure = ProcessReadFailure{ProcessReadFailure::Kind::vanished, ESRCH};
  auto samples = f.sampler.sample();
  EXPECT_TRUE(has(samples, 10) && has(samples, 11) && has(samples, 12));
  EXPECT_FALSE(has(samples, 13) || has(samples, 14) || has(samples, 15));
  EXPECT_FALSE(only(samples, 12).hasMetrics);
  // 13 and 14 are not shown; 12 is, with CPU and memory, only without disk figures.
  // A vanished one is no failure.
  EXPECT_EQ(f.sampler.unmeasuredCount(), 2u);
  EXPECT_EQ(f.sampler.trackedCount(), 3u);

  f.world->processes.erase(11);
  f.world->processes.erase(15);
  // 12's disk counters become readable: no disk rate until two readings exist.
  f.world->processes.at(12).reading.diskMeasured = true;
  f.world->usage(12).diskBytesRead = 1 << 20;
  samples = f.tickAfter(1);
  EXPECT_FALSE(has(samples, 11));
  EXPECT_EQ(only(samples, 12).diskReadBytesPerSec, 0);

  // A tracked process that turns unreadable is dropped and counted.
  f.world->processes.at(10).failure = ProcessReadFailure{ProcessReadFailure::Kind::denied, EACCES};
  samples = f.tickAfter(1);
  EXPECT_FALSE(has(samples, 10));
  EXPECT_EQ(f.sampler.trackedCount(), 1u);

  // A failed listing returns nothing but forgets nothing.
  f.world->listingFails = true;
  EXPECT_TRUE(f.tickAfter(1).empty());
  f.world->listingFails = false;
  f.world->usage(12).cpuNanoseconds = kSecond;
  EXPECT_DOUBLE_EQ(only(f.tickAfter(1), 12).cpuPercent, 50);
}

TEST(ProcessSampler, RefinesTheBiggestProcessesWithinItsBudget) {
  ProcessSampler::Options options;
  options.memoryRefinementBudgetNanoseconds = 1'000'000;
  options.memoryRefinementMaxAgeSeconds = 30;
  options.memoryRefinementMinimumBytes = 1 << 20;
  Fixture f(options);
  f.world->clockStepPerMemoryRead = 600'000;  // each read takes 0.6 ms: two fit the budget
  const uint64_t mb = 1 << 20;
  for (int32_t pid : {10, 11, 12, 13}) f.world->add(pid, "p" + std::to_string(pid));
  f.world->usage(10).footprint = 100 * mb;
  f.world->usage(11).footprint = 400 * mb;
  f.world->usage(12).footprint = 200 * mb;
  f.world->usage(13).footprint = mb / 2;  // too small to matter
  for (int32_t pid : {10, 11, 12, 13}) f.world->processes.at(pid).reading.sharedMemoryBytes = 4096;
  f.world->processes.at(10).memory = ProportionalMemory{50 * mb, 0.9};
  f.world->processes.at(11).memory = ProportionalMemory{100 * mb, 0.9};
  f.world->processes.at(12).memory = ProportionalMemory{std::nullopt, 0.75};  // older kernel

  auto samples = f.sampler.sample();
  EXPECT_EQ(f.world->memoryReads, (std::vector<int32_t>{11, 12}));
  EXPECT_EQ(only(samples, 11).memoryBytes, 100 * mb);
  EXPECT_EQ(only(samples, 12).memoryBytes, 150 * mb);

  // Next tick: the one left over; the others keep their ratio on a grown footprint.
  f.world->usage(11).footprint = 800 * mb;
  samples = f.tickAfter(5);
  EXPECT_EQ(f.world->memoryReads, (std::vector<int32_t>{11, 12, 10}));
  EXPECT_EQ(only(samples, 11).memoryBytes, 200 * mb);
  EXPECT_EQ(only(samples, 10).memoryBytes, 50 * mb);

  samples = f.tickAfter(5);
  EXPECT_EQ(f.world->memoryReads.size(), 3u);  // all fresh

  // After the maximum age, refreshed again, biggest first.
  f.world->processes.at(11).memory = ProportionalMemory{400 * mb, 1};
  samples = f.tickAfter(30);
  EXPECT_EQ(f.world->memoryReads, (std::vector<int32_t>{11, 12, 10, 11, 12}));
  EXPECT_EQ(only(samples, 11).memoryBytes, 400 * mb);

  // A share above the footprint never inflates it.
  f.world->processes.at(10).memory = ProportionalMemory{500 * mb, 1};
  f.world->clockStepPerMemoryRead = 0;
  samples = f.tickAfter(31);
  EXPECT_EQ(only(samples, 10).memoryBytes, 100 * mb);
}

TEST(ProcessSampler, RefinesOnlyProcessesThatCanShareMemory) {
  ProcessSampler::Options options;
  options.memoryRefinementMinimumBytes = 1 << 20;
  Fixture f(options);
  const uint64_t mb = 1 << 20;
  auto big = [&](int32_t pid, int32_t parent, std::string path) {
    auto& p = f.world->add(pid, "p" + std::to_string(pid));
    p.reading.parentPID = parent;
    p.reading.usage.footprint = 100 * mb;
    p.facts.path = std::move(path);
    p.memory = ProportionalMemory{40 * mb, 1};
  };
  big(20, 1, "/usr/bin/editor");          // exec'd by its parent: nothing shared
  big(21, 1, "/opt/browser/browser");     // forked a child running the same program
  big(22, 21, "/opt/browser/browser");
  big(23, 21, "/opt/browser/helper");     // exec'd a helper of its own
  big(24, 23, "/usr/bin/tool");
  f.world->processes.at(24).reading.sharedMemoryBytes = 8 * mb;  // maps shared memory
  auto samples = f.sampler.sample();
  auto reads = f.world->memoryReads;
  std::sort(reads.begin(), reads.end());
  EXPECT_EQ(reads, (std::vector<int32_t>{21, 22, 24}));
  EXPECT_EQ(only(samples, 20).memoryBytes, 100 * mb);
  EXPECT_EQ(only(samples, 22).memoryBytes, 40 * mb);
}

TEST(ProcessSampler, FindsProjectsAndPortsOnlyWhenAsked) {
  const platform::TempTree tree;
  const auto& root = tree.root();
  for (const char* folder : {"home/ada/.git", "home/ada/src/shop/.git", "home/ada/src/shop/web/src", "home/ada/notes",
                             "srv/api/bin"}) {
    fs::create_directories(root / folder);
  }
  // home/ada/.git is a dotfiles repository: home itself is never a project.
  std::ofstream(root / "home/ada/src/shop/web/package.json") << "";
  std::ofstream(root / "srv/api/go.mod") << "";
  const auto home = root / "home/ada";

  ProcessSampler::Options options;
  options.homeDirectory = home.string() + "/";
  Fixture f(options);
  f.world->add(10, "node").workingDirectory = (home / "src/shop/web/src").string();
  f.world->add(11, "git").workingDirectory = (home / "src/shop").string();
  f.world->add(12, "vim").workingDirectory = (home / "notes").string();
  f.world->add(13, "api").workingDirectory = (root / "srv/api/bin").string();
  f.world->add(14, "sshd").reading.uid = 0;
  f.world->processes.at(10).socketInodes = {77, 78, 79};
  f.world->processes.at(13).socketInodes = {90};
  f.world->listening = {{77, 5173, 1000}, {78, 5173, 1000}, {90, 8080, 1000}};

  auto plain = f.sampler.sample();
  EXPECT_EQ(f.world->directoryCalls, 0);
  EXPECT_TRUE(f.world->socketReads.empty());
  EXPECT_EQ(only(plain, 10).projectPath, std::nullopt);

  const ProcessDetails projects{.projects = true};
  auto samples = f.tickAfter(1, projects);
  EXPECT_EQ(only(samples, 10).projectPath, (home / "src/shop/web").string());  // nearest marker wins
  EXPECT_EQ(only(samples, 11).projectPath, (home / "src/shop").string());
  EXPECT_EQ(only(samples, 13).projectPath, (root / "srv/api").string());
  EXPECT_EQ(only(samples, 10).listeningPorts, (std::vector<uint16_t>{5173}));
  EXPECT_EQ(only(samples, 13).listeningPorts, (std::vector<uint16_t>{8080}));
  // Only owners of listening sockets have their descriptors read.
  EXPECT_EQ(std::count(f.world->socketReads.begin(), f.world->socketReads.end(), 14), 0);
  EXPECT_EQ(f.world->directoryCalls, 5);

  // Working directories are read again only after ten seconds.
  f.world->processes.at(11).workingDirectory = (home / "notes").string();
  samples = f.tickAfter(5, projects);
  EXPECT_EQ(f.world->directoryCalls, 5);
  EXPECT_EQ(only(samples, 11).projectPath, (home / "src/shop").string());
  samples = f.tickAfter(6, projects);
  EXPECT_EQ(f.world->directoryCalls, 10);
  EXPECT_EQ(only(samples, 11).projectPath, std::nullopt);
}

}  // namespace
}  // namespace omnira
