// The Settings page's model on a real settings file, next to `omnira settings` and the
// settings watcher of a running Omnira; and the page itself, built offscreen.

#include "Omnira/presentation/SettingsModel.h"

#include <QQuickItem>
#include <QQuickWindow>

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <sstream>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "Omnira/SettingsWatcher.h"
#include "Omnira/presentation/Desktop.h"
#include "Omnira/presentation/QmlWindow.h"
#include "cli/SettingsCommand.h"
#include "tests/Omnira/presentation/RunningStore.h"

namespace omnira::presentation {
namespace {

class SettingsPageTest : public testing::RunningStore {
 protected:
  std::string fileText() const {
    std::ifstream in(settingsFile());
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
  }
  nlohmann::json onDisk() const { return nlohmann::json::parse(fileText()); }
  QVariant role(const SettingsModel& model, const QString& key, int role) const {
    return model.data(model.index(model.rowOf(key)), role);
  }
  // What `omnira settings set KEY VALUE` prints on its error stream.
  std::string commandSays(const std::string& key, const std::string& value) const {
    char* buffer = nullptr;
    size_t size = 0;
    std::FILE* err = ::open_memstream(&buffer, &size);
    std::FILE* out = std::fopen("/dev/null", "w");
    cli::runSettings({cli::SettingsRequest::Command::set, false, key, value}, paths(), out, err);
    std::fclose(out);
    std::fclose(err);
    std::string said(buffer, size);
    std::free(buffer);
    return said;
  }
};

TEST_F(SettingsPageTest, ChangesReachTheFileAsTheCommandWritesThem) {
  writeSettings(R"({"refreshSeconds": 2, "someoneElses": {"kept": [1, 2]}, "insightCPUPercent": 50})");
  SettingsModel model(nullptr, paths(), Settings::load(settingsFile()));
  // Every key of the table has a row, so every one can be reached from the page.
  ASSERT_EQ(model.rowCount(), static_cast<int>(SettingsKeys::all().size()));
  for (const auto& spec : SettingsKeys::all()) EXPECT_GE(model.rowOf(QString::fromUtf8(spec.key.data(), spec.key.size())), 0);
  EXPECT_EQ(role(model, "menuBarReadout", SettingsModel::sectionRole).toString(), "general");
  EXPECT_EQ(role(model, "metricsToken", SettingsModel::sectionRole).toString(), "integrations");
  EXPECT_EQ(role(model, "refreshSeconds", SettingsModel::kindRole).toString(), "slider");
  EXPECT_EQ(role(model, "insightMutedApps", SettingsModel::kindRole).toString(), "mutedApps");

  // As the controls hand them over: a number, a switch, a choice.
  EXPECT_EQ(model.set("insightCPUPercent", 80.0), "");
  EXPECT_EQ(model.set("menuBarShowsGraph", true), "");
  EXPECT_EQ(model.set("menuBarReadout", QStringLiteral("pressure")), "");
  auto file = onDisk();
  EXPECT_EQ(file["insightCPUPercent"], 80);  // whole, as a person writes it
  EXPECT_EQ(file["menuBarShowsGraph"], true);
  EXPECT_EQ(file["menuBarReadout"], "pressure");
  EXPECT_EQ(file["refreshSeconds"], 2);
  EXPECT_EQ(file["someoneElses"], nlohmann::json::parse(R"({"kept": [1, 2]})"));
  EXPECT_EQ(model.value("insightCPUPercent").toDouble(), 80);  // shown at once
  EXPECT_FALSE(role(model, "insightCPUPercent", SettingsModel::isDefaultRole).toBool());

  // Out of range: refused with the command's own sentence, beside the control, the file untouched.
  const std::string before = fileText();
  const QString refusal = model.set("insightCPUPercent", 20000.0);
  EXPECT_EQ(refusal.toStdString(), R"("insightCPUPercent" takes a number from 1 to 10000, not 20000.)");
  EXPECT_EQ(commandSays("insightCPUPercent", "20000"), "omnira: " + refusal.toStdString() + "\n");
  EXPECT_EQ(role(model, "insightCPUPercent", SettingsModel::refusalRole).toString(), refusal);
  EXPECT_EQ(model.setText("historyDays", "45").toStdString(), R"("historyDays" takes 30, 90, 180 or 365, not 45.)");
  EXPECT_EQ(fileText(), before);
  EXPECT_EQ(model.value("insightCPUPercent").toDouble(), 80);
  // The next good value ends the refusal.
  EXPECT_EQ(model.set("insightCPUPercent", 120.5), "");
  EXPECT_EQ(onDisk()["insightCPUPercent"], 120.5);
  EXPECT_TRUE(role(model, "insightCPUPercent", SettingsModel::refusalRole).toString().isEmpty());

  // The list editors write whole values the key takes.
  EXPECT_EQ(model.muteApp("name:backupd", 0), "");
  EXPECT_EQ(model.addAppLimit("Builder", "memory", 2, 5), "");
  EXPECT_EQ(model.addFolder("bridgeAllowedProjects", "/home/ada/src/shop"), "");
  EXPECT_FALSE(model.addFolder("bridgeAllowedProjects", "src/shop").isEmpty());  // not a full path
  file = onDisk();
  EXPECT_EQ(file["insightMutedApps"], nlohmann::json::parse(R"({"name:backupd": null})"));
  ASSERT_EQ(file["insightAppLimits"].size(), 1u);
  EXPECT_EQ(file["insightAppLimits"][0]["appID"], "name:Builder");
  EXPECT_EQ(file["insightAppLimits"][0]["limit"], 2e9);
  EXPECT_EQ(file["bridgeAllowedProjects"], nlohmann::json::parse(R"(["/home/ada/src/shop"])"));
  EXPECT_EQ(model.setAppLimitOn(0, false), "");
  EXPECT_EQ(onDisk()["insightAppLimits"][0]["isOn"], false);
  EXPECT_EQ(model.unmuteApp("name:backupd"), "");
  EXPECT_EQ(onDisk()["insightMutedApps"], nlohmann::json::object());

  // Back to the default takes the key out of the file.
  EXPECT_EQ(model.reset("menuBarReadout"), "");
  EXPECT_FALSE(onDisk().contains("menuBarReadout"));
  EXPECT_EQ(model.value("menuBarReadout").toString(), "cpu");

  // A file broken by hand is left for the person: the change is refused, saying so.
  writeSettings("{\"refreshSeconds\": ");
  EXPECT_NE(model.set("refreshSeconds", 3.0).indexOf("is not valid JSON"), -1);
  EXPECT_EQ(fileText(), "{\"refreshSeconds\": ");
}

TEST_F(SettingsPageTest, EditsElsewhereShowOnThePage) {
  writeSettings(R"({"menuBarReadout": "memory"})");
  auto& store = start();
  SettingsWatcher watcher(settingsFile());
  Desktop desktop(&store, paths(), watcher.current());
  QObject::connect(&watcher, &SettingsWatcher::changed, &desktop, &Desktop::applySettings);
  SettingsModel& model = desktop.settingsModel();
  EXPECT_EQ(model.value("menuBarReadout").toString(), "memory");
  EXPECT_FALSE(model.bridgeListening());

  // A refused value stays on its row until the file says something new for the key.
  EXPECT_FALSE(model.set("metricsMaxApps", 0).isEmpty());
  ASSERT_EQ(commandSays("menuBarReadout", "pressure"), "");
  ASSERT_EQ(commandSays("metricsMaxApps", "70"), "");
  ASSERT_TRUE(runUntil([&] { return model.value("menuBarReadout").toString() == "pressure"; }));
  ASSERT_TRUE(runUntil([&] { return model.value("metricsMaxApps").toInt() == 70; }));
  EXPECT_TRUE(role(model, "metricsMaxApps", SettingsModel::refusalRole).toString().isEmpty());
  // A value the key does not take, put there by hand, reads as the default and says why.
  writeSettings(R"({"historySpan": "long"})");
  ASSERT_TRUE(runUntil([&] { return !role(model, "historySpan", SettingsModel::noteRole).toString().isEmpty(); }));
  EXPECT_EQ(model.value("historySpan").toInt(), 5);
  EXPECT_EQ(model.value("menuBarReadout").toString(), "cpu");

  // The bridge's state as the running bridge host writes it; one of another process is old.
  const auto socket = paths().dataFile("bridge.sock").string();
  const auto bridgeState = [&](int64_t pid) {
    std::ofstream(paths().dataFile("bridge.json"))
        << nlohmann::json{{"listening", true}, {"socket", socket}, {"pid", pid}, {"lastAsked", nullptr}}.dump();
  };
  bridgeState(::getpid());
  ASSERT_TRUE(runUntil([&] { return model.bridgeListening(); }));
  EXPECT_EQ(model.bridgeSocket().toStdString(), socket);
  EXPECT_EQ(model.bridgeStatus().toStdString(), "Listening at " + socket + "; not asked yet.");
  bridgeState(::getpid() + 1);
  ASSERT_TRUE(runUntil([&] { return !model.bridgeListening(); }));

  // The page itself builds from the model in every section without a QML error.
  QStringList problems;
  static QStringList* seen = nullptr;
  seen = &problems;
  const auto previous = qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString& message) {
    if (message.contains(QLatin1String("qrc:/omnira/qml/"))) seen->append(message);
  });
  for (const char* section : {"general", "insights", "integrations", "usage"}) {
    ASSERT_TRUE(desktop.open(QStringLiteral("settings/") + QLatin1String(section)));
    EXPECT_EQ(desktop.page(), "settings");
    EXPECT_EQ(desktop.section(), section);
    QCoreApplication::processEvents();
  }
  QQuickWindow* window = desktop.mainWindow().window();
  ASSERT_TRUE(window);
  qInstallMessageHandler(previous);
  EXPECT_TRUE(problems.isEmpty()) << problems.join('\n').toStdString();
  // Shown, with a row for each key of its section.
  const std::function<QQuickItem*(QQuickItem*)> find = [&](QQuickItem* item) -> QQuickItem* {
    if (item->objectName() == QLatin1String("settingsPage")) return item;
    for (QQuickItem* child : item->childItems())
      if (QQuickItem* found = find(child)) return found;
    return nullptr;
  };
  QQuickItem* page = find(window->contentItem());
  ASSERT_TRUE(page);
  EXPECT_TRUE(page->isVisible());
  EXPECT_GT(page->height(), 0);
  desktop.mainWindow().close();
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);  // the engine before the desktop
}

}  // namespace
}  // namespace omnira::presentation
