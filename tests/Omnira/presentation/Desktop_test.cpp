// The desktop parts on a running store: windows that exist only while open, and the status
// icon's readout following the settings file.

#include "Omnira/presentation/Desktop.h"
#include "Omnira/presentation/LiveFigures.h"

#include <QCoreApplication>
#include <QPointer>
#include <QQuickItem>
#include <QQuickWindow>

#include <algorithm>
#include <map>

#include <gtest/gtest.h>

#include "Omnira/SettingsWatcher.h"
#include "Omnira/presentation/AppsModel.h"
#include "Omnira/presentation/QmlWindow.h"
#include "Omnira/presentation/StatusIcon.h"
#include "tests/Omnira/presentation/RunningStore.h"

namespace omnira::presentation {
namespace {

class DesktopTest : public testing::RunningStore {
 protected:
  static void deleteLater() { QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); }
};

TEST_F(DesktopTest, WindowsExistOnlyWhileOpen) {
  // Outside a desktop session (CI, as root) every process is the system's: list that group
  // too, so the table has rows anywhere.
  writeSettings(R"({"showsSystemInLists": true})");
  auto& store = start();
  Desktop desktop(&store, paths(), Settings::load(settingsFile()));
  EXPECT_FALSE(desktop.mainWindow().isOpen());
  EXPECT_EQ(store.viewers(), 0);

  ASSERT_TRUE(desktop.open("apps"));
  QPointer<QQuickWindow> window = desktop.mainWindow().window();
  ASSERT_TRUE(window);
  EXPECT_TRUE(window->isVisible());
  EXPECT_EQ(desktop.page(), "apps");
  EXPECT_EQ(store.viewers(), 1);  // sampled as for a viewer while it shows
  // The table is fed from the store once the window shows it.
  ASSERT_TRUE(runUntil([&] { return desktop.appsTable().rowCount() > 0; }));

  // Opening again raises the same window; the panel closes when the window opens.
  ASSERT_TRUE(desktop.open("panel"));
  QPointer<QQuickWindow> panel = desktop.panel().window();
  ASSERT_TRUE(panel);
  EXPECT_EQ(store.viewers(), 1);
  // The panel ranks the top apps by CPU or by memory, as picked; anything else is no choice.
  auto* figures = qobject_cast<LiveFigures*>(desktop.figures());
  ASSERT_TRUE(runUntil([&] { return !figures->topApps().isEmpty(); }));
  for (const auto* metric : {"memory", "cpu"}) {
    figures->setTopAppsBy(QString::fromLatin1(metric));
    figures->setTopAppsBy(QStringLiteral("energy"));
    EXPECT_EQ(figures->topAppsBy().toStdString(), metric);
    // Ranked by that figure, the largest first (ties in any order).
    const auto figure = [&](const AppGroup& group) {
      return metric == std::string_view("memory") ? static_cast<double>(group.memoryBytes()) : group.cpuPercent();
    };
    double largest = 0;
    std::map<std::string, double> byID;
    for (const auto& group : store.groups()) largest = std::max(largest, byID[group.id] = figure(group));
    std::vector<double> shown;
    for (const auto& app : figures->topApps()) shown.push_back(byID.at(app.toMap()["groupID"].toString().toStdString()));
    ASSERT_FALSE(shown.empty());
    EXPECT_EQ(shown.front(), largest) << metric;
    EXPECT_TRUE(std::is_sorted(shown.rbegin(), shown.rend())) << metric;
  }
  ASSERT_TRUE(desktop.open("overview"));
  EXPECT_EQ(desktop.mainWindow().window(), window.data());
  EXPECT_EQ(desktop.page(), "overview");
  deleteLater();
  EXPECT_TRUE(panel.isNull());
  EXPECT_FALSE(desktop.open("no-such-page"));
  EXPECT_EQ(desktop.page(), "overview");

  // Closing it as a person does releases the window and its engine; Omnira stays.
  window->close();
  EXPECT_FALSE(desktop.mainWindow().isOpen());
  deleteLater();
  EXPECT_TRUE(window.isNull());
  EXPECT_EQ(store.viewers(), 0);
  EXPECT_EQ(desktop.appsTable().rowCount(), 0);

  // A row of the panel opens the window again, anew, on that app.
  desktop.openPanel();
  desktop.showApp("system");
  EXPECT_EQ(desktop.selectedApp(), "system");
  EXPECT_EQ(desktop.page(), "apps");
  ASSERT_TRUE(desktop.mainWindow().isOpen());
  EXPECT_FALSE(desktop.panel().isOpen());
  EXPECT_EQ(store.viewers(), 1);
  desktop.mainWindow().close();
  deleteLater();
  EXPECT_EQ(store.viewers(), 0);
}

TEST_F(DesktopTest, TheIconsReadoutFollowsTheSettings) {
  writeSettings(R"({"menuBarReadout": "memory"})");
  auto& store = start();
  SettingsWatcher watcher(settingsFile());
  StatusIcon icon(&store, watcher.current());
  QObject::connect(&watcher, &SettingsWatcher::changed, &icon, &StatusIcon::applySettings);
  EXPECT_TRUE(icon.readout().text.isEmpty());  // nothing sampled yet
  ASSERT_TRUE(runUntil([&] { return store.system().has_value(); }));

  const auto percent = [](double fraction) { return QString::number(std::lround(fraction * 100)); };
  EXPECT_EQ(icon.readout().figure, StatusIcon::Figure::memory);
  EXPECT_EQ(icon.readout().text, percent(store.system()->memoryUsedFraction()));
  EXPECT_FALSE(icon.icon().isNull());

  writeSettings(R"({"menuBarReadout": "pressure", "menuBarShowsGraph": true, "insightNotifications": false})");
  ASSERT_TRUE(runUntil([&] { return icon.readout().figure == StatusIcon::Figure::pressure; }));
  EXPECT_TRUE(icon.readout().graph);
  EXPECT_EQ(icon.readout().text, percent(store.system()->memoryPressureFraction));
  bool paused = false;
  for (QAction* action : icon.menu()->actions())
    if (action->isCheckable()) paused = action->isChecked();
  EXPECT_TRUE(paused);  // the menu shows the notifications as paused

  // Anything else, or nothing, is CPU; the readout follows each tick.
  writeSettings(R"({"menuBarReadout": "gpu"})");
  ASSERT_TRUE(runUntil([&] { return icon.readout().figure == StatusIcon::Figure::cpu; }));
  const int64_t tick = store.tickCount();
  ASSERT_TRUE(runUntil([&] { return store.tickCount() > tick; }));
  EXPECT_EQ(icon.readout().text, percent(std::clamp(store.system()->cpu(), 0.0, 1.0)));
  EXPECT_FALSE(icon.readout().graph);
}

}  // namespace
}  // namespace omnira::presentation
