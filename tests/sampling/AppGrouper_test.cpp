#include "OmniraCore/sampling/AppGrouper.h"

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <thread>

#include "OmniraCore/sampling/AppIdentifier.h"

namespace omnira {
namespace {

using Descriptor = AppGrouper::Descriptor;

const Descriptor macOS{"system", "macOS", GroupKind::system, std::nullopt};

TEST(AppGrouper, PathRules) {
  const AppGrouper grouper("macOS");
  struct Case {
    std::string path;
    Descriptor expected;
  };
  const Case cases[] = {
      {"/usr/local/bin/tool", {"exec:/usr/local/bin/tool", "tool", GroupKind::other, std::nullopt}},
      {"/usr/bin/tool", macOS},
      {"/Users/ada/.nvm/versions/node/v20.1.0/bin/node",
       {"exec:/Users/ada/.nvm/versions/node/*/bin/node", "node", GroupKind::other, std::nullopt}},
  };
  for (const auto& c : cases) EXPECT_EQ(grouper.descriptorForPath(c.path), c.expected) << c.path;
}

TEST(AppGrouper, CanonicalIDFoldsVersionFolders) {
  const std::pair<std::string, std::string> cases[] = {
      {"exec:/opt/x/2.1/abc1234/bin/x", "exec:/opt/x/*/bin/x"},
      {"exec:/opt/x/abcdefg/bin/x", "exec:/opt/x/abcdefg/bin/x"},  // a hash without a version before it
      {"/opt/tool/1.2.3/bin/tool", "/opt/tool/*/bin/tool"},
      {"exec:/a/1.2/abcdef/b", "exec:/a/*/abcdef/b"},          // six characters are no hash
      {"exec:/a/1.2/abc1234", "exec:/a/*"},                    // a trailing hash goes too
      {"exec:/a/*/abc1234/b", "exec:/a/*/b"},
      {"exec:/a/1.2/abc1234/def5678/b", "exec:/a/*/def5678/b"},  // only the hash right after it
      {"exec:/a/v10.4.1/b/2024.01.15/c", "exec:/a/*/b/*/c"},
      {"exec:/a/v1/1./.1/V1.2/vv1.2/1..2/1.2a/v/b", "exec:/a/v1/1./.1/V1.2/vv1.2/1..2/1.2a/v/b"},  // no versions
      {"exec:/a/1.2/ABC1234/b", "exec:/a/*/ABC1234/b"},  // hashes are lower-case hex with a digit
      {"exec:/a/1.2/" + std::string(40, '1') + "/b", "exec:/a/*/b"},
      {"exec:/a/1.2/" + std::string(41, '1') + "/b", "exec:/a/*/" + std::string(41, '1') + "/b"},
  };
  for (const auto& [id, expected] : cases) EXPECT_EQ(AppGrouper::canonicalID(id), expected) << id;
}

ProcessSample sample(int32_t pid, std::optional<std::string> path, uint64_t memory = 0, double cpu = 0) {
  ProcessSample s;
  s.pid = pid;
  s.parentPID = 1;
  s.uid = 1000;
  s.path = std::move(path);
  s.name = s.path ? s.path->substr(s.path->rfind('/') + 1) : "";
  s.memoryBytes = memory;
  s.cpuPercent = cpu;
  return s;
}

// Answers from the launch facts and counts how often it is asked.
class CountingIdentifier final : public AppIdentifier {
 public:
  std::optional<Verdict> identify(const ProcessSample& s) const override {
    ++calls;
    if (s.uid == 0) return System{};
    if (s.appUnitID) return Descriptor{"/apps/" + *s.appUnitID + ".desktop", *s.appUnitID, GroupKind::app, std::nullopt};
    return std::nullopt;
  }
  void reload() override { ++reloads; }
  mutable std::atomic<int> calls{0};
  std::atomic<int> reloads{0};
};

// Apps come from the identifier: a process in a unit is that unit's app.
AppGrouper::Options withIdentifier() {
  AppGrouper::Options options;
  options.identifier = std::make_shared<CountingIdentifier>();
  return options;
}

ProcessSample inApp(ProcessSample s, std::string unit) {
  s.appUnitID = std::move(unit);
  return s;
}

TEST(AppGrouper, ProcessesWithoutAPath) {
  const AppGrouper grouper("macOS");
  EXPECT_EQ(grouper.descriptor(sample(0, std::nullopt)), macOS);
  auto named = sample(7, std::nullopt);
  named.name = "(Web Content)";
  EXPECT_EQ(grouper.descriptor(named), (Descriptor{"name:(Web Content)", "(Web Content)", GroupKind::other, std::nullopt}));
  EXPECT_EQ(grouper.descriptor(sample(8, std::nullopt)), macOS);
  // pid 0 with a path is an ordinary process.
  EXPECT_EQ(grouper.descriptor(sample(0, "/opt/x/x")).id, "exec:/opt/x/x");
}

TEST(AppGrouper, GroupsSumAndSortByMemoryThenCPUThenID) {
  const AppGrouper grouper("macOS", withIdentifier());
  auto groups = grouper.group({
      sample(1, "/opt/b/b", 100, 1),
      inApp(sample(2, "/opt/A/A", 300, 2.5), "A"),
      inApp(sample(3, "/opt/A/H", 200, 0.5), "A"),
      sample(4, "/opt/c/c", 100, 3),
      sample(5, "/opt/a/a", 100, 1),
      sample(6, "/usr/bin/x", 10, 0),
      sample(7, "/sbin/y", 10, 0),
  });
  std::vector<std::string> ids;
  for (const auto& g : groups) ids.push_back(g.id);
  EXPECT_EQ(ids, (std::vector<std::string>{"/apps/A.desktop", "exec:/opt/c/c", "exec:/opt/a/a", "exec:/opt/b/b",
                                           "system"}));
  const auto& app = groups[0];
  EXPECT_EQ(app.processCount(), 2u);
  EXPECT_EQ(app.memoryBytes(), 500u);
  EXPECT_DOUBLE_EQ(app.cpuPercent(), 3.0);
  EXPECT_TRUE(grouper.group({}).empty());
}

TEST(AppGrouper, HelpersJoinTheNearestAppAbove) {
  const AppGrouper grouper("macOS", withIdentifier());
  const auto child = [](int32_t pid, int32_t parent, std::string path, std::optional<HelperRole> role) {
    auto s = sample(pid, std::move(path));
    s.parentPID = parent;
    s.helperRole = role;
    return s;
  };
  const auto groups = grouper.group({
      inApp(child(10, 1, "/opt/browser/browser", std::nullopt), "Browser"),
      child(11, 10, "/opt/browser/helper", HelperRole::renderer),
      child(12, 11, "/opt/browser/sub-helper", HelperRole::gpu),   // through a helper that is no app
      child(13, 10, "/usr/libexec/some-service", HelperRole::other),  // not left in the system group
      child(14, 10, "/opt/browser/launched", HelperRole::main),   // a main process is its own root
      child(15, 10, "/opt/tools/tool", std::nullopt),              // no helper role: its own group
      child(20, 21, "/opt/loop/a", HelperRole::other),             // parents in a cycle
      child(21, 20, "/opt/loop/b", HelperRole::other),
      child(22, 22, "/opt/loop/self", HelperRole::other),
      child(23, 999, "/opt/gone/helper", HelperRole::renderer),    // parent already exited
  });
  std::map<std::string, std::vector<int32_t>> members;
  for (const auto& g : groups) {
    for (const auto& p : g.processes) members[g.id].push_back(p.pid);
  }
  EXPECT_EQ(members["/apps/Browser.desktop"], (std::vector<int32_t>{10, 11, 12, 13}));
  EXPECT_EQ(members["exec:/opt/browser/launched"], (std::vector<int32_t>{14}));
  EXPECT_EQ(members["exec:/opt/loop/a"], (std::vector<int32_t>{20}));
  EXPECT_EQ(members["exec:/opt/gone/helper"], (std::vector<int32_t>{23}));
  EXPECT_EQ(members.count("system"), 0u);
}

TEST(AppGrouper, AsksTheIdentifierFirstAndCachesByLaunchFacts) {
  auto identifier = std::make_shared<CountingIdentifier>();
  AppGrouper::Options options;
  options.identifier = identifier;
  AppGrouper grouper("Debian GNU/Linux", options);

  auto plain = sample(1, "/usr/bin/editor");
  auto inUnit = plain;
  inUnit.appUnitID = "editor";
  auto root = plain;
  root.uid = 0;
  EXPECT_EQ(grouper.descriptor(plain), (Descriptor{"system", "Debian GNU/Linux", GroupKind::system, std::nullopt}))
      << "the macOS folders apply without the platform's own";
  EXPECT_EQ(grouper.descriptor(inUnit).id, "/apps/editor.desktop");
  EXPECT_EQ(grouper.descriptor(root).id, "system");
  EXPECT_EQ(identifier->calls, 3);
  EXPECT_EQ(identifier->calls, 3) << "served from the cache";

  grouper.reload();
  EXPECT_EQ(identifier->reloads, 1);
  EXPECT_EQ(grouper.descriptor(inUnit).id, "/apps/editor.desktop");
  EXPECT_EQ(identifier->calls, 4) << "the cache was emptied";
}

TEST(AppGrouper, DescriptorsFromManyThreads) {
  AppGrouper grouper("macOS");
  std::vector<ProcessSample> samples;
  for (int i = 0; i < 64; ++i) samples.push_back(sample(i + 1, "/opt/tool" + std::to_string(i % 16) + "/1.2/bin/t"));
  std::vector<std::thread> threads;
  std::atomic<int> wrong{0};
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int round = 0; round < 50; ++round) {
        if (t == 0 && round % 10 == 0) grouper.reload();
        for (const auto& s : samples) {
          const auto d = grouper.descriptor(s);
          if (d != grouper.descriptorForPath(*s.path)) ++wrong;
        }
        if (grouper.group(samples).size() != 16) ++wrong;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

TEST(AppGroup, JSONCarriesSums) {
  const AppGroup group("/apps/A.desktop", "A", GroupKind::app, "/apps/A.desktop",
                       {sample(1, "/opt/A/A", 100, 1.5), sample(2, "/opt/A/B", 50, 2)});
  const auto json = group.toJSON();
  EXPECT_EQ(json["processCount"], 2);
  EXPECT_DOUBLE_EQ(json["cpuPercent"].get<double>(), 3.5);
  EXPECT_FALSE(AppGroup("system", "macOS", GroupKind::system, std::nullopt, {}).toJSON().contains("bundlePath"));
}

}  // namespace
}  // namespace omnira
