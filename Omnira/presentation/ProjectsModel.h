#pragma once
// The Projects page: one row per developer project folder with something running in it,
// as the store's last project scan found them (MonitorStore::projects), each with its
// processes, the ports they and its Compose containers listen on, which of its dev servers
// sit idle (MonitorStore::idleServers) and its containers with their figures
// (MonitorStore::containers). Containers that belong to no project are listed apart.
// Rows change in place, keyed by the folder and in the store's order (by name), so the view
// keeps its place across ticks.
//
// Main thread only, fed by Desktop through update() while the main window is open. Nothing
// here fails: a missing figure shows as "—".

#include <QAbstractListModel>
#include <QString>
#include <QVariantList>

#include <string>
#include <vector>

#include "OmniraCore/containers/ContainerSnapshot.h"
#include "OmniraCore/containers/Projects.h"
#include "OmniraCore/history/IdleServer.h"

namespace omnira::presentation {

class ProjectsModel : public QAbstractListModel {
  Q_OBJECT
  // Containers with no project folder: maps as in a project's "containers".
  Q_PROPERTY(QVariantList otherContainers READ otherContainers NOTIFY otherContainersChanged)
  // The sentence the page shows when there is nothing at all; empty when there is something.
  Q_PROPERTY(QString emptyText READ emptyText NOTIFY emptyTextChanged)

 public:
  enum Role {
    nameRole = Qt::UserRole + 1,
    pathRole,        // the folder, "~" for the home folder
    cpuRole,         // "3.2 %"
    memoryRole,      // "640 MB"
    portsRole,       // ":3000, :5432", or empty
    summaryRole,     // "3 processes · 1 dev server, idle"
    processesRole,   // list of maps: pid, name, app, cpu, memory, ports, devServer, idle
    containersRole,  // list of maps: name, state, cpu, memory, ports
  };

  // `home`: the person's home folder, shown as "~".
  explicit ProjectsModel(std::string home, QObject* parent = nullptr);

  void update(const std::vector<Project>& projects, const std::vector<IdleServer>& idle,
              const ContainerSnapshot& containers);

  QVariantList otherContainers() const { return otherContainers_; }
  QString emptyText() const;

  int rowCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
  QHash<int, QByteArray> roleNames() const override;

 signals:
  void otherContainersChanged();
  void emptyTextChanged();

 private:
  struct Row {
    QString path;  // the key
    QString name, shownPath, cpu, memory, ports, summary;
    QVariantList processes, containers;
    bool operator==(const Row&) const = default;
  };
  Row rowOf(const Project& project, const std::vector<IdleServer>& idle, const ContainerSnapshot& containers) const;

  std::string home_;
  std::vector<Row> rows_;
  QVariantList otherContainers_;
};

}  // namespace omnira::presentation
