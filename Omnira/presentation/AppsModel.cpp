#include "Omnira/presentation/AppsModel.h"

#include <unordered_map>

#include "Omnira/presentation/Figures.h"

namespace omnira::presentation {

AppsModel::Row AppsModel::rowOf(const AppGroup& group) {
  return Row{nameText(group.id),
             nameText(group.name),
             group.cpuPercent(),
             group.memoryBytes(),
             group.diskReadBytesPerSec() + group.diskWriteBytesPerSec(),
             group.networkInBytesPerSec() + group.networkOutBytesPerSec(),
             static_cast<int>(group.processCount())};
}

void AppsModel::setGroups(const std::vector<AppGroup>& groups) {
  std::unordered_map<QString, const AppGroup*> fresh;
  for (const auto& group : groups) fresh.emplace(nameText(group.id), &group);

  for (size_t i = rows_.size(); i-- > 0;) {
    if (fresh.contains(rows_[i].id)) continue;
    beginRemoveRows({}, static_cast<int>(i), static_cast<int>(i));
    rows_.erase(rows_.begin() + static_cast<std::ptrdiff_t>(i));
    endRemoveRows();
  }
  for (auto& row : rows_) {
    auto found = fresh.find(row.id);
    row = rowOf(*found->second);
    fresh.erase(found);
  }
  if (!rows_.empty()) emit dataChanged(index(0, 0), index(static_cast<int>(rows_.size()) - 1, columnCount_ - 1));

  if (fresh.empty()) return;
  // Appended in the store's order, not the map's.
  std::vector<Row> added;
  for (const auto& group : groups)
    if (fresh.contains(nameText(group.id))) added.push_back(rowOf(group));
  const int first = static_cast<int>(rows_.size());
  beginInsertRows({}, first, first + static_cast<int>(added.size()) - 1);
  rows_.insert(rows_.end(), added.begin(), added.end());
  endInsertRows();
}

int AppsModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(rows_.size());
}

int AppsModel::columnCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : columnCount_; }

QVariant AppsModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid() || index.row() >= static_cast<int>(rows_.size())) return {};
  const Row& row = rows_[static_cast<size_t>(index.row())];
  const auto column = static_cast<Column>(index.column());
  switch (role) {
    case Qt::DisplayRole:
    case Qt::AccessibleTextRole:
      switch (column) {
        case name: return row.name;
        case cpu: return QStringLiteral("%1 %").arg(row.cpuPercent, 0, 'f', 1);
        case memory: return bytesText(row.memoryBytes);
        case disk: return rateText(row.diskBytesPerSec);
        case network: return rateText(row.networkBytesPerSec);
        case processes: return row.processes;
        case columnCount_: break;
      }
      break;
    case sortRole:
      switch (column) {
        case name: return row.name;
        case cpu: return row.cpuPercent;
        case memory: return static_cast<qulonglong>(row.memoryBytes);
        case disk: return row.diskBytesPerSec;
        case network: return row.networkBytesPerSec;
        case processes: return row.processes;
        case columnCount_: break;
      }
      break;
    case idRole: return row.id;
    case numericRole: return column != name;
    default: break;
  }
  return {};
}

QVariant AppsModel::headerData(int section, Qt::Orientation orientation, int role) const {
  if (orientation != Qt::Horizontal || role != Qt::DisplayRole) return {};
  switch (static_cast<Column>(section)) {
    case name: return tr("App");
    case cpu: return tr("CPU");
    case memory: return tr("Memory");
    case disk: return tr("Disk");
    case network: return tr("Network");
    case processes: return tr("Processes");
    case columnCount_: break;
  }
  return {};
}

QHash<int, QByteArray> AppsModel::roleNames() const {
  auto names = QAbstractTableModel::roleNames();
  names.insert(sortRole, "sortValue");
  names.insert(idRole, "groupID");
  names.insert(numericRole, "numeric");
  return names;
}

AppsTable::AppsTable(AppsModel* source, QObject* parent) : QSortFilterProxyModel(parent) {
  setSourceModel(source);
  setSortRole(AppsModel::sortRole);
  setDynamicSortFilter(true);
  sort(AppsModel::cpu, Qt::DescendingOrder);
}

void AppsTable::setFilterText(const QString& text) {
  if (text == filterText_) return;
  filterText_ = text;
  invalidateRowsFilter();
  emit filterTextChanged();
}

void AppsTable::sortBy(int column) {
  if (column < 0 || column >= AppsModel::columnCount_) return;
  Qt::SortOrder order = column == AppsModel::name ? Qt::AscendingOrder : Qt::DescendingOrder;
  if (column == sortColumn()) order = sortOrder() == Qt::AscendingOrder ? Qt::DescendingOrder : Qt::AscendingOrder;
  sort(column, order);
  emit sortChanged();
}

QString AppsTable::idAt(int row) const { return index(row, 0).data(AppsModel::idRole).toString(); }

bool AppsTable::filterAcceptsRow(int sourceRow, const QModelIndex& sourceParent) const {
  if (filterText_.trimmed().isEmpty()) return true;
  const QString name = sourceModel()->index(sourceRow, AppsModel::name, sourceParent).data().toString();
  return name.contains(filterText_.trimmed(), Qt::CaseInsensitive);
}

bool AppsTable::lessThan(const QModelIndex& left, const QModelIndex& right) const {
  const QVariant a = left.data(AppsModel::sortRole), b = right.data(AppsModel::sortRole);
  if (left.column() == AppsModel::name) return QString::localeAwareCompare(a.toString(), b.toString()) < 0;
  if (a.toDouble() != b.toDouble()) return a.toDouble() < b.toDouble();
  // Equal figures keep a stable, readable order: by name, A first whichever way the column runs.
  const QString nameA = left.sibling(left.row(), AppsModel::name).data().toString();
  const QString nameB = right.sibling(right.row(), AppsModel::name).data().toString();
  // A descending sort asks with the two swapped, so the names are swapped back.
  return sortOrder() == Qt::AscendingOrder ? QString::localeAwareCompare(nameA, nameB) < 0
                                           : QString::localeAwareCompare(nameB, nameA) < 0;
}

}  // namespace omnira::presentation
