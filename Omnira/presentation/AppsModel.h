#pragma once
// The Apps page's table: one row per app group of the last process sample, with its summed
// figures, and under each row that app's processes (name, role, pid and their own figures),
// which the page shows when the row is expanded. AppsModel holds the rows in the store's
// order and changes them in place (rows that went away are removed, new ones appended, for
// apps and for their processes alike), so a view keeps its scroll position, expanded rows
// and selection across ticks; AppsTable sorts and filters them for the view and quits what
// the person picked.
//
// Main thread only, like the store that feeds it through setGroups(). Quitting goes through
// ProcessActions (Desktop owns it); a refusal or a failure comes back as one sentence.

#include <QAbstractItemModel>
#include <QSortFilterProxyModel>
#include <QString>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "OmniraCore/sampling/AppGroup.h"

namespace omnira {
class ProcessActions;
}

namespace omnira::presentation {

class AppsModel : public QAbstractItemModel {
  Q_OBJECT

 public:
  enum Column { name, cpu, memory, disk, network, processes, columnCount_ };
  enum Role {
    sortRole = Qt::UserRole + 1,  // the figure itself, for sorting
    idRole,                       // the group's id (a process row: its app's)
    numericRole,                  // whether the column holds a figure (aligned right)
    pidRole,                      // a process row's pid; 0 on an app's row
    helperRoleRole,               // a process row's role in its app ("renderer"), or empty
  };

  // One process under an app row.
  struct Process {
    int32_t pid = 0;
    int32_t parentPID = 0;
    QString name;
    std::optional<HelperRole> role;
    double cpuPercent = 0;
    uint64_t memoryBytes = 0;
    double diskBytesPerSec = 0;
    double networkBytesPerSec = 0;
  };
  struct Row {
    QString id;
    QString name;
    GroupKind kind = GroupKind::other;
    std::optional<std::string> bundlePath;
    double cpuPercent = 0;
    uint64_t memoryBytes = 0;
    double diskBytesPerSec = 0;
    double networkBytesPerSec = 0;
    std::vector<Process> processes;  // by pid
  };

  using QAbstractItemModel::QAbstractItemModel;

  void setGroups(const std::vector<AppGroup>& groups);
  // The app row with that group id, if it is listed.
  const Row* row(const QString& groupID) const;
  // The process with that pid in any listed app, with its app's row.
  std::pair<const Row*, const Process*> process(int32_t pid) const;
  // Every listed process that `pid` started, its children's children too.
  std::vector<int32_t> startedBy(int32_t pid) const;

  QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
  QModelIndex parent(const QModelIndex& child) const override;
  int rowCount(const QModelIndex& parent = {}) const override;
  int columnCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
  QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
  QHash<int, QByteArray> roleNames() const override;

 private:
  static Row rowOf(const AppGroup& group);
  static Process processOf(const ProcessSample& sample);
  // Brings one app's process rows to `fresh` in place.
  void updateProcesses(size_t at, std::vector<Process> fresh);
  size_t positionOf(const Row* row) const;

  // Heap rows: a process index points at its app's row, which must not move as rows come and go.
  std::vector<std::unique_ptr<Row>> rows_;
};

// Sorting by the figure under the text (an app's processes by the same column), a filter on
// the app's name (any case), and quitting the selected app or process.
class AppsTable : public QSortFilterProxyModel {
  Q_OBJECT
  Q_PROPERTY(QString filterText READ filterText WRITE setFilterText NOTIFY filterTextChanged)
  Q_PROPERTY(int sortColumn READ sortColumn NOTIFY sortChanged)
  Q_PROPERTY(bool ascending READ ascending NOTIFY sortChanged)

 public:
  explicit AppsTable(AppsModel* source, QObject* parent = nullptr);

  QString filterText() const { return filterText_; }
  void setFilterText(const QString& text);
  bool ascending() const { return sortOrder() == Qt::AscendingOrder; }
  // Without actions every quit is refused with a sentence.
  void setActions(ProcessActions* actions) { actions_ = actions; }

  // A click on a column's header: the same column turns the order round; another column
  // starts with its largest figures (names from A).
  Q_INVOKABLE void sortBy(int column);
  // The group id of a top-level row of this table.
  Q_INVOKABLE QString idAt(int row) const;
  // What a view's row stands for: its app's group id, and its pid (0 on an app's row).
  Q_INVOKABLE QString groupOf(const QModelIndex& index) const { return index.data(AppsModel::idRole).toString(); }
  Q_INVOKABLE int pidOf(const QModelIndex& index) const { return index.data(AppsModel::pidRole).toInt(); }
  // What a confirmation asks before quitting the app `groupID`, or its process `pid` when
  // that is not 0: it names what will be stopped.
  Q_INVOKABLE QString quitQuestion(const QString& groupID, int pid, bool force) const;
  // Quits the app (as it would quit for the person, so it can ask to save; force ends its
  // processes at once) or the process with what it started (SIGTERM, SIGKILL with force).
  // The outcome as one sentence: what was asked, or why nothing was.
  Q_INVOKABLE QString quit(const QString& groupID, int pid, bool force);

 signals:
  void filterTextChanged();
  void sortChanged();

 protected:
  bool filterAcceptsRow(int sourceRow, const QModelIndex& sourceParent) const override;
  bool lessThan(const QModelIndex& left, const QModelIndex& right) const override;

 private:
  QString quitProcess(int32_t pid, bool force);
  QString quitApp(const AppsModel::Row& app, bool force);

  AppsModel* source_;
  ProcessActions* actions_ = nullptr;
  QString filterText_;
};

}  // namespace omnira::presentation
