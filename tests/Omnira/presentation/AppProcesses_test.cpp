// The Apps page's processes and its Quit on a running store: an app's row opens to the real
// processes under it, a real process is ended through the page's table, and what may not be
// stopped is refused with a sentence. The window itself opens with a row expanded.

#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <grp.h>

#include <QPersistentModelIndex>
#include <QQuickItem>
#include <QQuickWindow>

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "Omnira/ProcessActions.h"
#include "Omnira/presentation/AppsModel.h"
#include "Omnira/presentation/Desktop.h"
#include "Omnira/presentation/QmlWindow.h"
#include "tests/Omnira/presentation/RunningStore.h"

namespace omnira::presentation {
namespace {

namespace fs = std::filesystem;

// A child running `command` in the shell, as nobody when asked.
pid_t spawn(const std::string& command, bool asNobody = false) {
  const pid_t pid = ::fork();
  if (pid == 0) {
    if (asNobody && (::setgroups(0, nullptr) != 0 || ::setresgid(65534, 65534, 65534) != 0 ||
                     ::setresuid(65534, 65534, 65534) != 0))
      ::_exit(3);
    ::execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
    ::_exit(2);
  }
  return pid;
}

class AppProcessesTest : public testing::RunningStore {
 protected:
  void TearDown() override {
    for (const pid_t pid : children_)
      if (pid > 0) {
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
      }
    RunningStore::TearDown();
  }
  pid_t child(const std::string& command, bool asNobody = false) { return children_.emplace_back(spawn(command, asNobody)); }

  std::vector<pid_t> children_;
};

TEST_F(AppProcessesTest, AnAppsRowOpensToItsRealProcessesWhichQuitEnds) {
  // Outside a desktop session (CI, as root) every process is the system's: list that group too.
  writeSettings(R"({"showsSystemInLists": true})");
  // A program of its own name, so its processes are easy to tell; the first starts the second.
  const fs::path sleeper = root_ / "omnira-sleeper";
  fs::copy_file("/bin/sleep", sleeper);
  const pid_t parent = child(sleeper.string() + " 301 & exec " + sleeper.string() + " 300");
  ASSERT_GT(parent, 0);

  auto& store = start();
  AppsModel model;
  AppsTable table(&model);
  ProcessActions actions;
  table.setActions(&actions);
  QObject::connect(&store, &MonitorStore::groupsChanged, [&] { model.setGroups(store.groups()); });

  // The sleeper's own child: the one process whose parent is the sleeper.
  int32_t started = 0;
  ASSERT_TRUE(runUntil([&] {
    if (!model.process(parent).second) return false;
    for (const auto& group : store.groups())
      for (const auto& p : group.processes)
        if (p.parentPID == parent) started = p.pid;
    return started != 0 && model.process(started).second;
  }));
  const AppsModel::Row* app = model.process(parent).first;
  ASSERT_TRUE(app);

  // The app's row in the sorted table holds its processes as child rows, with their own figures.
  QModelIndex row;
  for (int i = 0; i < table.rowCount(); ++i)
    if (table.idAt(i) == app->id) row = table.index(i, AppsModel::name);
  ASSERT_TRUE(row.isValid());
  ASSERT_EQ(table.rowCount(row), static_cast<int>(app->processes.size()));
  int seen = 0;
  for (int i = 0; i < table.rowCount(row); ++i) {
    const QModelIndex p = table.index(i, AppsModel::name, row);
    EXPECT_EQ(table.groupOf(p), app->id);
    EXPECT_EQ(table.rowCount(p), 0);  // processes open to nothing
    if (table.pidOf(p) != parent && table.pidOf(p) != started) continue;
    ++seen;
    EXPECT_EQ(p.data().toString(), "omnira-sleeper");
    EXPECT_EQ(table.index(i, AppsModel::processes, row).data().toString(), QString("PID %1").arg(table.pidOf(p)));
    EXPECT_TRUE(table.index(i, AppsModel::memory, row).data().toString().endsWith("B"));
  }
  EXPECT_EQ(seen, 2);

  // Quit names what stops, and ends the process with what it started.
  EXPECT_EQ(table.quitQuestion(app->id, parent, false),
            QString("Quit “omnira-sleeper” (PID %1)? It is asked to exit, with the process it started.").arg(parent));
  EXPECT_EQ(table.quit(app->id, parent, false), QString("“omnira-sleeper” (PID %1) was asked to exit.").arg(parent));
  int status = 0;
  bool reaped = false;
  ASSERT_TRUE(runUntil([&] { return reaped = reaped || ::waitpid(parent, &status, WNOHANG) == parent; }));
  children_.clear();
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM);
  EXPECT_TRUE(runUntil([&] { return !actions.isRunning(started); }));

  // Refused, each with its reason, and nothing is sent.
  EXPECT_TRUE(table.quit({}, 1, true).endsWith("(PID 1) was not stopped: it is part of the system."));
  const auto self = static_cast<int32_t>(::getpid());
  EXPECT_TRUE(table.quit({}, self, true).endsWith(" was not stopped: it is Omnira itself.")) << table.quit({}, self, true).toStdString();
  // Omnira's whole app too, whichever group holds it.
  ASSERT_TRUE(model.process(self).first);
  EXPECT_EQ(table.quit(model.process(self).first->id, 0, true),
            QString("“%1” was not stopped: it is Omnira itself.").arg(model.process(self).first->name));
  EXPECT_EQ(table.quit("exec:/no/such/app", 0, false), "That app is no longer running.");
  if (::getuid() == 0) {
    const pid_t stranger = child("exec sleep 302", /*asNobody=*/true);
    ASSERT_TRUE(runUntil([&] {
      struct stat info {};
      return ::stat(("/proc/" + std::to_string(stranger)).c_str(), &info) == 0 && info.st_uid == 65534;
    }));
    EXPECT_TRUE(table.quit({}, stranger, false).endsWith(" was not stopped: it belongs to another user."));
    EXPECT_TRUE(actions.isRunning(stranger));
  }
  EXPECT_TRUE(actions.isRunning(self));
}

// The page's tree view, among the items under `item`.
QQuickItem* treeIn(QQuickItem* item) {
  if (QByteArray(item->metaObject()->className()).startsWith("QQuickTreeView")) return item;
  for (auto* child : item->childItems())
    if (auto* found = treeIn(child)) return found;
  return nullptr;
}

TEST_F(AppProcessesTest, TheWindowShowsAnExpandedApp) {
  writeSettings(R"({"showsSystemInLists": true})");
  auto& store = start();
  Desktop desktop(&store, paths(), Settings::load(settingsFile()));
  ASSERT_TRUE(desktop.open("apps"));
  ASSERT_TRUE(runUntil([&] { return desktop.appsTable().rowCount() > 0; }));
  QQuickItem* view = treeIn(desktop.mainWindow().window()->contentItem());
  ASSERT_TRUE(view);
  const QPersistentModelIndex first = desktop.appsTable().index(0, 0);
  ASSERT_GT(desktop.appsTable().rowCount(first), 0);
  ASSERT_TRUE(QMetaObject::invokeMethod(view, "expand", Q_ARG(int, 0)));
  const auto showsAllOfIt = [&] {
    return view->property("rows").toInt() == desktop.appsTable().rowCount() + desktop.appsTable().rowCount(first);
  };
  EXPECT_TRUE(runUntil(showsAllOfIt));
  // The next ticks' figures, resorted, keep that app open and the others closed.
  const int64_t tick = store.tickCount();
  ASSERT_TRUE(runUntil([&] { return store.tickCount() > tick + 1; }));
  ASSERT_TRUE(first.isValid());
  EXPECT_TRUE(runUntil(showsAllOfIt));
}

}  // namespace
}  // namespace omnira::presentation
