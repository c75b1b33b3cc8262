// The Projects page's model: a real project folder with a real dev server in it, fed from a
// running store while the window is open and scanned every tick while the page shows; and
// containers under their Compose project or apart.

#include "Omnira/presentation/ProjectsModel.h"

#include <unistd.h>

#include <QQuickWindow>

#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "Omnira/presentation/Desktop.h"
#include "Omnira/presentation/QmlWindow.h"
#include "tests/Omnira/presentation/RunningStore.h"
#include "tests/containers/DevServer.h"

namespace omnira::presentation {
namespace {

namespace fs = std::filesystem;

class ProjectsPageTest : public testing::RunningStore {};

// The row of the folder `path`, or -1.
int rowOf(const ProjectsModel& model, const QString& path) {
  for (int row = 0; row < model.rowCount(); ++row)
    if (model.index(row).data(ProjectsModel::pathRole).toString() == path) return row;
  return -1;
}

TEST_F(ProjectsPageTest, ListsARealProjectWhileTheWindowIsOpen) {
  const fs::path folder = root_ / "work" / "shop-web";
  fs::create_directories(folder);
  std::ofstream(folder / "package.json") << R"({"name": "shop-web"})";
  const testing::DevServer dev(folder);
  ASSERT_NE(dev.port(), 0);

  auto& store = start();
  Desktop desktop(&store, paths(), Settings::load(settingsFile()));
  ProjectsModel& model = desktop.projectsModel();
  EXPECT_FALSE(model.emptyText().isEmpty());
  ASSERT_TRUE(desktop.open("projects"));
  // Without the page's request the store scans projects only every two minutes.
  EXPECT_TRUE(store.processDetails().projects);
  const QString path = QString::fromStdString(folder.string());
  ASSERT_TRUE(runUntil([&] {
    const int row = rowOf(model, path);
    return row >= 0 && model.index(row).data(ProjectsModel::portsRole).toString() == QString(":%1").arg(dev.port());
  })) << "no project " << folder;
  EXPECT_TRUE(model.emptyText().isEmpty());

  const QModelIndex shop = model.index(rowOf(model, path));
  EXPECT_EQ(shop.data(ProjectsModel::nameRole).toString(), "shop-web");
  EXPECT_EQ(shop.data(ProjectsModel::summaryRole).toString(), "1 process · 1 dev server");
  const QVariantList processes = shop.data(ProjectsModel::processesRole).toList();
  ASSERT_EQ(processes.size(), 1);
  const QVariantMap server = processes[0].toMap();
  EXPECT_EQ(server["pid"].toInt(), dev.pid());
  EXPECT_EQ(server["name"].toString(), "python3");
  EXPECT_EQ(server["ports"].toString(), QString(":%1").arg(dev.port()));
  EXPECT_TRUE(server["devServer"].toBool());
  EXPECT_FALSE(server["idle"].toBool());  // idle takes half an hour without a connection
  EXPECT_TRUE(server["memory"].toString().endsWith("B"));
  EXPECT_TRUE(shop.data(ProjectsModel::containersRole).toList().isEmpty());

  // Another page: the costly scan stops, the rows stay; a closed window empties them.
  desktop.setPage("overview");
  EXPECT_FALSE(store.processDetails().projects);
  EXPECT_GE(rowOf(model, path), 0);
  desktop.setPage("projects");
  EXPECT_TRUE(store.processDetails().projects);
  desktop.mainWindow().close();
  EXPECT_FALSE(store.processDetails().projects);
  EXPECT_EQ(model.rowCount(), 0);
  EXPECT_FALSE(model.emptyText().isEmpty());
}

ContainerSample container(const std::string& name, std::optional<std::string> folder, std::vector<uint16_t> ports) {
  ContainerSample c;
  c.engine = "Docker";
  c.id = std::string(64, name[0]);
  c.name = name;
  c.image = "postgres:16";
  c.status = "Up 3 minutes";
  c.publishedPorts = std::move(ports);
  c.composeFolder = std::move(folder);
  return c;
}

TEST(ProjectsModel, PutsContainersUnderTheirProjectOrApart) {
  testing::qtTestApp();
  ContainerSnapshot snapshot;
  snapshot.containers = {container("shop-db-1", "/home/ada/shop", {5432}), container("redis", std::nullopt, {6379})};
  snapshot.containers[0].cpuPercent = 1.5;
  snapshot.containers[0].memoryInUseBytes = 52'000'000;
  ProjectsModel model("/home/ada/");
  model.update(Project::of({}, ::geteuid(), &snapshot), {}, snapshot);

  ASSERT_EQ(model.rowCount(), 1);
  const QModelIndex shop = model.index(0);
  EXPECT_EQ(shop.data(ProjectsModel::pathRole).toString(), "~/shop");
  EXPECT_EQ(shop.data(ProjectsModel::summaryRole).toString(), "1 container");
  EXPECT_EQ(shop.data(ProjectsModel::portsRole).toString(), ":5432");
  const auto db = shop.data(ProjectsModel::containersRole).toList().value(0).toMap();
  EXPECT_EQ(db["name"].toString(), "shop-db-1");
  EXPECT_EQ(db["state"].toString(), "Up 3 minutes");
  EXPECT_EQ(db["cpu"].toString(), "1.5 %");
  EXPECT_EQ(db["memory"].toString(), "52.0 MB");
  ASSERT_EQ(model.otherContainers().size(), 1);
  const auto redis = model.otherContainers()[0].toMap();
  EXPECT_EQ(redis["name"].toString(), "redis");
  EXPECT_EQ(redis["cpu"].toString(), "—");  // no stats asked for yet
  EXPECT_EQ(redis["ports"].toString(), ":6379");
  EXPECT_TRUE(model.emptyText().isEmpty());

  // A new folder goes in at its place by name; the one shown stays, not reset.
  int resets = 0;
  QObject::connect(&model, &QAbstractItemModel::modelReset, [&] { ++resets; });
  const QPersistentModelIndex kept = shop;
  snapshot.containers.push_back(container("api-1", "/home/ada/api", {}));
  model.update(Project::of({}, ::geteuid(), &snapshot), {}, snapshot);
  ASSERT_EQ(model.rowCount(), 2);
  EXPECT_EQ(model.index(0).data(ProjectsModel::pathRole).toString(), "~/api");
  EXPECT_EQ(kept.row(), 1);
  EXPECT_EQ(resets, 0);

  model.update({}, {}, {});
  EXPECT_EQ(model.rowCount(), 0);
  EXPECT_TRUE(model.otherContainers().isEmpty());
  EXPECT_FALSE(model.emptyText().isEmpty());
}

}  // namespace
}  // namespace omnira::presentation
