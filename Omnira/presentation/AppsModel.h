#pragma once
// The Apps page's table: one row per app group of the last process sample, with its summed
// figures. AppsModel holds the rows in the store's order and changes them in place (rows
// that went away are removed, new ones appended), so a view keeps its scroll position and
// selection across ticks; AppsTable sorts and filters them for the view.
//
// Main thread only, like the store that feeds it through setGroups(). Nothing here fails.

#include <QAbstractTableModel>
#include <QSortFilterProxyModel>
#include <QString>

#include <vector>

#include "OmniraCore/sampling/AppGroup.h"

namespace omnira::presentation {

class AppsModel : public QAbstractTableModel {
  Q_OBJECT

 public:
  enum Column { name, cpu, memory, disk, network, processes, columnCount_ };
  enum Role {
    sortRole = Qt::UserRole + 1,  // the figure itself, for sorting
    idRole,                       // the group's id
    numericRole,                  // whether the column holds a figure (aligned right)
  };

  using QAbstractTableModel::QAbstractTableModel;

  void setGroups(const std::vector<AppGroup>& groups);

  int rowCount(const QModelIndex& parent = {}) const override;
  int columnCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
  QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
  QHash<int, QByteArray> roleNames() const override;

 private:
  struct Row {
    QString id;
    QString name;
    double cpuPercent = 0;
    uint64_t memoryBytes = 0;
    double diskBytesPerSec = 0;
    double networkBytesPerSec = 0;
    int processes = 0;
  };
  static Row rowOf(const AppGroup& group);

  std::vector<Row> rows_;
};

// Sorting by the figure under the text, and a filter on the app's name (any case).
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

  // A click on a column's header: the same column turns the order round; another column
  // starts with its largest figures (names from A).
  Q_INVOKABLE void sortBy(int column);
  // The group id of a row of this table.
  Q_INVOKABLE QString idAt(int row) const;

 signals:
  void filterTextChanged();
  void sortChanged();

 protected:
  bool filterAcceptsRow(int sourceRow, const QModelIndex& sourceParent) const override;
  bool lessThan(const QModelIndex& left, const QModelIndex& right) const override;

 private:
  QString filterText_;
};

}  // namespace omnira::presentation
