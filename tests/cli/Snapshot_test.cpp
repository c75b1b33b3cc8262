// The omnira command, run as a person runs it, on this machine.

#include "tests/cli/CommandRun.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

namespace {

using omnira::testing::CommandRun;

CommandRun run(const std::string& arguments) {
  return omnira::testing::runShell(std::string(OMNIRA_CLI_PATH) + " " + arguments + " 2>/dev/null");
}

size_t runningProcesses() {
  size_t running = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc"))
    running += std::isdigit(static_cast<unsigned char>(entry.path().filename().string()[0])) ? 1 : 0;
  return running;
}

uint64_t memTotalBytes() {
  std::ifstream meminfo("/proc/meminfo");
  std::string key;
  uint64_t kb = 0;
  meminfo >> key >> kb;
  return kb * 1024;
}

TEST(SnapshotCommand, JSONDescribesThisMachineAndItsApps) {
  const CommandRun r = run("snapshot --json");
  ASSERT_EQ(r.status, 0);
  const auto json = nlohmann::ordered_json::parse(r.out);
  ASSERT_EQ(json.begin().key(), "system");

  const auto& sample = json.at("system");
  EXPECT_EQ(sample.at("memoryTotal").get<uint64_t>(), memTotalBytes());
  const double cpu = sample.at("cpuUser").get<double>() + sample.at("cpuSystem").get<double>();
  EXPECT_TRUE(cpu >= 0 && cpu <= 1.0 + 1e-9) << cpu;
  const auto cores = sample.at("cpuPerCore").get<std::vector<double>>();
  EXPECT_EQ(cores.size(), static_cast<size_t>(::sysconf(_SC_NPROCESSORS_ONLN)));
  const uint64_t used = sample.at("memoryApp").get<uint64_t>() + sample.at("memoryWired").get<uint64_t>();
  EXPECT_GT(used, 0u);
  EXPECT_LT(used, memTotalBytes());

  const auto& groups = json.at("groups");
  ASSERT_FALSE(groups.empty());
  std::set<std::string> ids;
  std::set<int> pids;
  uint64_t previousMemory = UINT64_MAX;
  bool sawSystem = false;
  for (const auto& group : groups) {
    const auto id = group.at("id").get<std::string>();
    EXPECT_TRUE(ids.insert(id).second) << "group id twice: " << id;
    const auto kind = group.at("kind").get<std::string>();
    sawSystem = sawSystem || (id == "system" && kind == "system");
    const uint64_t memory = group.at("memoryBytes").get<uint64_t>();
    EXPECT_LE(memory, previousMemory) << "groups are sorted by memory, largest first";
    previousMemory = memory;
    uint64_t summed = 0;
    ASSERT_FALSE(group.at("processes").empty());
    for (const auto& process : group.at("processes")) {
      EXPECT_TRUE(pids.insert(process.at("pid").get<int>()).second);
      summed += process.at("memoryBytes").get<uint64_t>();
    }
    EXPECT_EQ(summed, memory);
  }
  EXPECT_TRUE(sawSystem);
  // The test runner itself is running, so it was measured and grouped.
  EXPECT_TRUE(pids.count(::getpid()));
  // Every process of the machine (other than ones that came or went meanwhile) is in a group.
  const size_t running = runningProcesses();
  EXPECT_NEAR(static_cast<double>(pids.size()), static_cast<double>(running), 10 + running * 0.1);
}

TEST(SnapshotCommand, TextShowsTheMachineAndTheTopAppsAndMistakesExitWithTwo) {
  const CommandRun r = run("snapshot --top 3");
  ASSERT_EQ(r.status, 0);
  for (const char* label : {"CPU", "Memory", "Swap", "Disk", "Network", "Battery", "Uptime", "APP"})
    EXPECT_NE(r.out.find(label), std::string::npos) << label;
  size_t rows = 0;
  std::istringstream lines(r.out.substr(r.out.find("APP")));
  std::string line;
  std::getline(lines, line);
  while (std::getline(lines, line) && !line.empty() && line.find("more") == std::string::npos) ++rows;
  EXPECT_LE(rows, 3u);
  EXPECT_GE(rows, 1u);

  for (const char* wrong : {"", "snapshto", "snapshot --jsn", "snapshot --top 0", "snapshot --top many"})
    EXPECT_EQ(run(wrong).status, 2) << wrong;
  const CommandRun version = run("--version");
  EXPECT_EQ(version.status, 0);
  EXPECT_EQ(version.out.rfind("omnira ", 0), 0u);
}

// Run as a person without root, on a machine where root runs processes too: those are
// shown with their CPU and memory, so they are not counted as unmeasured; what is
// counted is what is missing from the list.
TEST(SnapshotCommand, CountsAsUnmeasuredOnlyTheProcessesItLeavesOut) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root, to run the command as another user";
  const CommandRun r = omnira::testing::runShell("setpriv --reuid=65534 --regid=65534 --clear-groups " +
                                                 std::string(OMNIRA_CLI_PATH) + " snapshot --all 2>/dev/null");
  ASSERT_EQ(r.status, 0) << r.out;
  const auto at = r.out.find(" processes in ");
  ASSERT_NE(at, std::string::npos) << r.out;
  const auto lineStart = r.out.rfind('\n', at) + 1;
  const std::string line = r.out.substr(lineStart, r.out.find('\n', at) - lineStart);
  const size_t shown = std::stoul(line);
  size_t unmeasured = 0;
  if (const auto more = line.find(" more could not be measured"); more != std::string::npos) {
    unmeasured = std::stoul(line.substr(line.rfind('(', more) + 1));
  }
  const size_t running = runningProcesses();
  // This test runs as root, so at least it is shown without its disk figures.
  EXPECT_NE(line.find("of other users without disk figures, run as root to see them"), std::string::npos) << line;
  EXPECT_NEAR(static_cast<double>(shown + unmeasured), static_cast<double>(running), 10 + running * 0.1) << line;
}

}  // namespace
