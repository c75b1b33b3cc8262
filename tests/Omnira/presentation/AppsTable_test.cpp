// The Apps page's table over real app groups: sorting by the figures, filtering by name,
// and rows that keep up with the next tick's groups.

#include "Omnira/presentation/AppsModel.h"

#include <gtest/gtest.h>

#include "tests/Omnira/QtTestApp.h"

namespace omnira::presentation {
namespace {

ProcessSample process(int32_t pid, const std::string& name, double cpu, uint64_t memory, double diskRead = 0,
                      double networkIn = 0) {
  ProcessSample sample;
  sample.pid = pid;
  sample.name = name;
  sample.cpuPercent = cpu;
  sample.memoryBytes = memory;
  sample.diskReadBytesPerSec = diskRead;
  sample.networkInBytesPerSec = networkIn;
  return sample;
}

AppGroup group(const std::string& id, const std::string& name, std::vector<ProcessSample> processes) {
  return AppGroup(id, name, GroupKind::app, std::nullopt, std::move(processes));
}

std::vector<std::string> names(const AppsTable& table) {
  std::vector<std::string> out;
  for (int row = 0; row < table.rowCount(); ++row) out.push_back(table.index(row, AppsModel::name).data().toString().toStdString());
  return out;
}

TEST(AppsTable, SortsByTheFiguresAndFiltersByName) {
  testing::qtTestApp();
  AppsModel model;
  AppsTable table(&model);
  model.setGroups({
      group("exec:/usr/bin/firefox", "Firefox", {process(10, "firefox", 30, 900'000'000), process(11, "web", 10, 300'000'000)}),
      group("exec:/usr/bin/code", "Code", {process(20, "code", 42.5, 400'000'000, 5e6)}),
      group("system", "System", {process(1, "systemd", 0.5, 20'000'000, 0, 2e6), process(2, "kthreadd", 0, 0)}),
      group("name:bash", "Bash", {process(30, "bash", 0.5, 5'000'000)}),
  });

  // CPU first, largest on top; the summed figures of a group, not one process's.
  EXPECT_EQ(names(table), (std::vector<std::string>{"Code", "Firefox", "Bash", "System"}));
  EXPECT_EQ(table.index(0, AppsModel::cpu).data().toString(), "42.5 %");
  EXPECT_EQ(table.index(1, AppsModel::memory).data().toString(), "1.20 GB");
  EXPECT_EQ(table.index(1, AppsModel::processes).data().toInt(), 2);
  EXPECT_EQ(table.idAt(0), "exec:/usr/bin/code");
  // Equal CPU (Bash and System at 0.5 %) goes by the name, A first, either way round.

  table.sortBy(AppsModel::cpu);  // the same column again turns the order round
  EXPECT_TRUE(table.ascending());
  EXPECT_EQ(names(table), (std::vector<std::string>{"Bash", "System", "Firefox", "Code"}));

  table.sortBy(AppsModel::memory);  // another column starts with its largest
  EXPECT_FALSE(table.ascending());
  EXPECT_EQ(names(table), (std::vector<std::string>{"Firefox", "Code", "System", "Bash"}));
  table.sortBy(AppsModel::disk);
  EXPECT_EQ(names(table)[0], "Code");
  table.sortBy(AppsModel::network);
  EXPECT_EQ(names(table)[0], "System");
  table.sortBy(AppsModel::processes);
  EXPECT_EQ(names(table)[0], "Firefox");  // two processes, as System has: the tie goes by name
  EXPECT_EQ(names(table)[1], "System");
  table.sortBy(AppsModel::name);
  EXPECT_TRUE(table.ascending());
  EXPECT_EQ(names(table), (std::vector<std::string>{"Bash", "Code", "Firefox", "System"}));

  // Filtering: any case, trimmed, on the app's name only.
  table.setFilterText("  FIRE ");
  EXPECT_EQ(names(table), (std::vector<std::string>{"Firefox"}));
  table.setFilterText("systemd");  // a process's name is not the app's
  EXPECT_EQ(table.rowCount(), 0);
  table.setFilterText("");
  EXPECT_EQ(table.rowCount(), 4);
  table.sortBy(99);  // no such column: the order stays
  EXPECT_EQ(table.sortColumn(), AppsModel::name);
}

TEST(AppsTable, FollowsTheNextTicksGroupsInPlace) {
  testing::qtTestApp();
  AppsModel model;
  AppsTable table(&model);
  model.setGroups({group("a", "Alpha", {process(1, "a", 10, 1000)}), group("b", "Beta", {process(2, "b", 20, 1000)}),
                   group("c", "Gamma", {process(3, "c", 30, 1000)})});
  table.setFilterText("a");  // all three hold an "a"
  ASSERT_EQ(names(table), (std::vector<std::string>{"Gamma", "Beta", "Alpha"}));

  int removed = 0, inserted = 0, resets = 0;
  QObject::connect(&model, &QAbstractItemModel::rowsRemoved, [&] { ++removed; });
  QObject::connect(&model, &QAbstractItemModel::rowsInserted, [&] { ++inserted; });
  QObject::connect(&model, &QAbstractItemModel::modelReset, [&] { ++resets; });
  // Beta went away, Alpha got busy, Delta and Echo are new; bytes that are not UTF-8 still name a row.
  model.setGroups({group("c", "Gamma", {process(3, "c", 5, 1000)}), group("a", "Alpha", {process(1, "a", 50, 1000)}),
                   group("d", "Delta", {process(4, "d", 40, 1000)}), group("e", "Echo", {process(5, "e", 1, 1000)}),
                   group("x", std::string("ba\xff" "d"), {process(6, "x", 45, 1000)})});
  EXPECT_EQ(removed, 1);
  EXPECT_EQ(inserted, 1);  // the new ones arrive together
  EXPECT_EQ(resets, 0);    // a view keeps its place
  EXPECT_EQ(model.rowCount(), 5);
  EXPECT_EQ(names(table), (std::vector<std::string>{"Alpha", "ba\xef\xbf\xbd" "d", "Delta", "Gamma"}));
  EXPECT_EQ(table.idAt(0), "a");

  model.setGroups({});
  EXPECT_EQ(table.rowCount(), 0);
}

}  // namespace
}  // namespace omnira::presentation
