#include "Omnira/presentation/AppsModel.h"

#include <unistd.h>

#include <algorithm>
#include <set>
#include <unordered_map>
#include <unordered_set>

#include "Omnira/ProcessActions.h"
#include "Omnira/presentation/Figures.h"

namespace omnira::presentation {

namespace {

QString roleText(const std::optional<HelperRole>& role) {
  if (!role) return {};
  switch (*role) {
    case HelperRole::main: return QObject::tr("main");
    case HelperRole::renderer: return QObject::tr("renderer");
    case HelperRole::extensionHost: return QObject::tr("extension host");
    case HelperRole::gpu: return QObject::tr("GPU");
    case HelperRole::network: return QObject::tr("network");
    case HelperRole::other: return QObject::tr("helper");
  }
  return {};
}

QString cpuText(double percent) { return QStringLiteral("%1 %").arg(percent, 0, 'f', 1); }

QString processLabel(const QString& name, int32_t pid) {
  return name.isEmpty() ? QObject::tr("PID %1").arg(pid) : QObject::tr("“%1” (PID %2)").arg(name, QString::number(pid));
}

bool isContainer(const QString& groupID) { return groupID.startsWith(QLatin1String("container:")); }

QString containerRefusal(const QString& name) {
  return QObject::tr("“%1” runs in a container, and Omnira doesn't stop containers: stop it with its engine.").arg(name);
}

}  // namespace

AppsModel::Process AppsModel::processOf(const ProcessSample& sample) {
  return Process{sample.pid,
                 sample.parentPID,
                 nameText(sample.name),
                 sample.helperRole,
                 sample.cpuPercent,
                 sample.memoryBytes,
                 sample.diskReadBytesPerSec + sample.diskWriteBytesPerSec,
                 sample.networkInBytesPerSec + sample.networkOutBytesPerSec};
}

AppsModel::Row AppsModel::rowOf(const AppGroup& group) {
  Row row{nameText(group.id),
          nameText(group.name),
          group.kind,
          group.bundlePath,
          group.cpuPercent(),
          group.memoryBytes(),
          group.diskReadBytesPerSec() + group.diskWriteBytesPerSec(),
          group.networkInBytesPerSec() + group.networkOutBytesPerSec(),
          {}};
  row.processes.reserve(group.processes.size());
  for (const auto& sample : group.processes) row.processes.push_back(processOf(sample));
  return row;
}

size_t AppsModel::positionOf(const Row* row) const {
  for (size_t i = 0; i < rows_.size(); ++i)
    if (rows_[i].get() == row) return i;
  return rows_.size();
}

void AppsModel::setGroups(const std::vector<AppGroup>& groups) {
  std::unordered_map<QString, const AppGroup*> fresh;
  for (const auto& group : groups) fresh.emplace(nameText(group.id), &group);

  for (size_t i = rows_.size(); i-- > 0;) {
    if (fresh.contains(rows_[i]->id)) continue;
    beginRemoveRows({}, static_cast<int>(i), static_cast<int>(i));
    rows_.erase(rows_.begin() + static_cast<std::ptrdiff_t>(i));
    endRemoveRows();
  }
  for (size_t i = 0; i < rows_.size(); ++i) {
    auto found = fresh.find(rows_[i]->id);
    Row next = rowOf(*found->second);
    fresh.erase(found);
    updateProcesses(i, std::move(next.processes));
    next.processes = std::move(rows_[i]->processes);
    *rows_[i] = std::move(next);
  }
  if (!rows_.empty()) emit dataChanged(index(0, 0), index(static_cast<int>(rows_.size()) - 1, columnCount_ - 1));

  if (fresh.empty()) return;
  // Appended in the store's order, not the map's, each with its processes.
  const int first = static_cast<int>(rows_.size());
  int count = 0;
  for (const auto& group : groups) count += fresh.contains(nameText(group.id)) ? 1 : 0;
  beginInsertRows({}, first, first + count - 1);
  for (const auto& group : groups)
    if (fresh.contains(nameText(group.id))) rows_.push_back(std::make_unique<Row>(rowOf(group)));
  endInsertRows();
}

void AppsModel::updateProcesses(size_t at, std::vector<Process> fresh) {
  Row& row = *rows_[at];
  const QModelIndex parent = index(static_cast<int>(at), 0);
  std::unordered_map<int32_t, size_t> byPID;
  for (size_t i = 0; i < fresh.size(); ++i) byPID.emplace(fresh[i].pid, i);

  auto& current = row.processes;
  for (size_t i = current.size(); i-- > 0;) {
    if (byPID.contains(current[i].pid)) continue;
    beginRemoveRows(parent, static_cast<int>(i), static_cast<int>(i));
    current.erase(current.begin() + static_cast<std::ptrdiff_t>(i));
    endRemoveRows();
  }
  std::unordered_set<int32_t> kept;
  for (auto& process : current) {
    process = fresh[byPID.at(process.pid)];
    kept.insert(process.pid);
  }
  if (!current.empty())
    emit dataChanged(index(0, 0, parent), index(static_cast<int>(current.size()) - 1, columnCount_ - 1, parent));
  std::vector<Process> added;
  for (auto& process : fresh)
    if (!kept.contains(process.pid)) added.push_back(std::move(process));
  if (added.empty()) return;
  const int first = static_cast<int>(current.size());
  beginInsertRows(parent, first, first + static_cast<int>(added.size()) - 1);
  current.insert(current.end(), std::make_move_iterator(added.begin()), std::make_move_iterator(added.end()));
  endInsertRows();
}

const AppsModel::Row* AppsModel::row(const QString& groupID) const {
  for (const auto& row : rows_)
    if (row->id == groupID) return row.get();
  return nullptr;
}

std::pair<const AppsModel::Row*, const AppsModel::Process*> AppsModel::process(int32_t pid) const {
  for (const auto& row : rows_)
    for (const auto& process : row->processes)
      if (process.pid == pid) return {row.get(), &process};
  return {nullptr, nullptr};
}

std::vector<int32_t> AppsModel::startedBy(int32_t pid) const {
  std::unordered_multimap<int32_t, int32_t> children;
  for (const auto& row : rows_)
    for (const auto& process : row->processes) children.emplace(process.parentPID, process.pid);
  std::vector<int32_t> found;
  std::set<int32_t> seen{pid};
  std::vector<int32_t> todo{pid};
  while (!todo.empty()) {
    const int32_t parent = todo.back();
    todo.pop_back();
    const auto [from, to] = children.equal_range(parent);
    for (auto it = from; it != to; ++it)
      if (seen.insert(it->second).second) {
        found.push_back(it->second);
        todo.push_back(it->second);
      }
  }
  return found;
}

QModelIndex AppsModel::index(int row, int column, const QModelIndex& parent) const {
  if (row < 0 || column < 0 || column >= columnCount_) return {};
  if (!parent.isValid()) {
    if (row >= static_cast<int>(rows_.size())) return {};
    return createIndex(row, column, nullptr);
  }
  if (parent.internalPointer() || parent.row() >= static_cast<int>(rows_.size())) return {};  // processes have no children
  Row* app = rows_[static_cast<size_t>(parent.row())].get();
  if (row >= static_cast<int>(app->processes.size())) return {};
  return createIndex(row, column, app);
}

QModelIndex AppsModel::parent(const QModelIndex& child) const {
  if (!child.isValid() || !child.internalPointer()) return {};
  const size_t at = positionOf(static_cast<const Row*>(child.internalPointer()));
  return at < rows_.size() ? createIndex(static_cast<int>(at), 0, nullptr) : QModelIndex();
}

int AppsModel::rowCount(const QModelIndex& parent) const {
  if (!parent.isValid()) return static_cast<int>(rows_.size());
  if (parent.internalPointer() || parent.column() != 0 || parent.row() >= static_cast<int>(rows_.size())) return 0;
  return static_cast<int>(rows_[static_cast<size_t>(parent.row())]->processes.size());
}

int AppsModel::columnCount(const QModelIndex&) const { return columnCount_; }

namespace {

// What an app's row and a process's row show alike; they differ in the last column only (a
// count of processes, or the pid).
struct Cells {
  QString name;
  double cpuPercent;
  uint64_t memoryBytes;
  double diskBytesPerSec, networkBytesPerSec;
  QVariant lastShown, lastSorted;
};

QVariant cell(const Cells& c, AppsModel::Column column, bool sorting) {
  switch (column) {
    case AppsModel::name: return c.name;
    case AppsModel::cpu: return sorting ? QVariant(c.cpuPercent) : QVariant(cpuText(c.cpuPercent));
    case AppsModel::memory: return sorting ? QVariant(static_cast<qulonglong>(c.memoryBytes)) : QVariant(bytesText(c.memoryBytes));
    case AppsModel::disk: return sorting ? QVariant(c.diskBytesPerSec) : QVariant(rateText(c.diskBytesPerSec));
    case AppsModel::network: return sorting ? QVariant(c.networkBytesPerSec) : QVariant(rateText(c.networkBytesPerSec));
    case AppsModel::processes: return sorting ? c.lastSorted : c.lastShown;
    case AppsModel::columnCount_: break;
  }
  return {};
}

}  // namespace

QVariant AppsModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid()) return {};
  const auto column = static_cast<Column>(index.column());
  const bool shown = role == Qt::DisplayRole || role == Qt::AccessibleTextRole;
  if (const auto* app = static_cast<const Row*>(index.internalPointer())) {
    if (index.row() >= static_cast<int>(app->processes.size())) return {};
    const Process& p = app->processes[static_cast<size_t>(index.row())];
    if (shown || role == sortRole)
      return cell({p.name, p.cpuPercent, p.memoryBytes, p.diskBytesPerSec, p.networkBytesPerSec, tr("PID %1").arg(p.pid), p.pid},
                  column, role == sortRole);
    switch (role) {
      case idRole: return app->id;
      case numericRole: return column != name;
      case pidRole: return p.pid;
      case helperRoleRole: return roleText(p.role);
      default: return {};
    }
  }
  if (index.row() >= static_cast<int>(rows_.size())) return {};
  const Row& row = *rows_[static_cast<size_t>(index.row())];
  if (shown || role == sortRole) {
    const int count = static_cast<int>(row.processes.size());
    return cell({row.name, row.cpuPercent, row.memoryBytes, row.diskBytesPerSec, row.networkBytesPerSec, count, count},
                column, role == sortRole);
  }
  switch (role) {
    case idRole: return row.id;
    case numericRole: return column != name;
    case pidRole: return 0;
    case helperRoleRole: return QString();
    default: return {};
  }
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
  auto names = QAbstractItemModel::roleNames();
  names.insert(sortRole, "sortValue");
  names.insert(idRole, "groupID");
  names.insert(numericRole, "numeric");
  names.insert(pidRole, "pid");
  names.insert(helperRoleRole, "helperRole");
  return names;
}

AppsTable::AppsTable(AppsModel* source, QObject* parent) : QSortFilterProxyModel(parent), source_(source) {
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

QString AppsTable::quitQuestion(const QString& groupID, int pid, bool force) const {
  if (pid != 0) {
    const auto [app, process] = source_->process(pid);
    if (!process) return tr("PID %1 is no longer running.").arg(pid);
    const auto started = source_->startedBy(pid).size();
    const QString with = started == 0   ? QString()
                         : started == 1 ? tr(", with the process it started")
                                        : tr(", with the %1 processes it started").arg(started);
    return force ? tr("Force quit %1? It ends at once%2, and anything it has not saved is lost.")
                       .arg(processLabel(process->name, pid), with)
                 : tr("Quit %1? It is asked to exit%2.").arg(processLabel(process->name, pid), with);
  }
  const AppsModel::Row* app = source_->row(groupID);
  if (!app) return tr("That app is no longer running.");
  const size_t count = app->processes.size();
  if (force)
    return count == 1 ? tr("Force quit “%1”? Its process ends at once, and anything not saved is lost.").arg(app->name)
                      : tr("Force quit “%1”? Its %2 processes end at once, and anything not saved is lost.").arg(app->name, QString::number(count));
  return count == 1 ? tr("Quit “%1”? Its process is asked to quit; an app can ask to save first.").arg(app->name)
                    : tr("Quit “%1”? Its %2 processes are asked to quit; an app can ask to save first.").arg(app->name, QString::number(count));
}

QString AppsTable::quit(const QString& groupID, int pid, bool force) {
  if (pid != 0) return quitProcess(pid, force);
  const AppsModel::Row* app = source_->row(groupID);
  if (!app) return tr("That app is no longer running.");
  return quitApp(*app, force);
}

QString AppsTable::quitProcess(int32_t pid, bool force) {
  const auto [app, process] = source_->process(pid);
  const QString label = processLabel(process ? process->name : QString(), pid);
  if (app && isContainer(app->id)) return containerRefusal(label);
  if (auto why = ProcessActions::refusal(pid)) return tr("%1 was not stopped: %2.").arg(label, QString::fromStdString(*why));
  if (!actions_) return tr("%1 was not stopped: Omnira cannot stop processes here.").arg(label);
  const auto started = source_->startedBy(pid);
  switch (actions_->signal(pid, started, force)) {
    case ProcessActions::Sent::sent:
      if (force) return started.empty() ? tr("%1 was ended.").arg(label) : tr("%1 was ended, with what it started.").arg(label);
      return tr("%1 was asked to exit.").arg(label);
    case ProcessActions::Sent::refused:
      if (auto why = ProcessActions::refusal(pid)) return tr("%1 was not stopped: %2.").arg(label, QString::fromStdString(*why));
      break;
    case ProcessActions::Sent::failed: break;
  }
  return tr("%1 could not be stopped.").arg(label);
}

QString AppsTable::quitApp(const AppsModel::Row& app, bool force) {
  if (isContainer(app.id)) return containerRefusal(app.name);
  // An app goes the way it would quit for the person: its main processes, the rest with them.
  std::unordered_set<int32_t> inApp;
  for (const auto& p : app.processes) inApp.insert(p.pid);
  std::vector<int32_t> mains, others;
  for (const auto& p : app.processes) (inApp.contains(p.parentPID) ? others : mains).push_back(p.pid);
  // Omnira among an app's helpers would stop with it.
  if (inApp.contains(static_cast<int32_t>(::getpid())))
    return tr("“%1” was not stopped: it is Omnira itself.").arg(app.name);
  for (const int32_t pid : mains)
    if (auto why = ProcessActions::refusal(pid))
      return tr("“%1” was not stopped: %2.").arg(app.name, QString::fromStdString(*why));
  if (mains.empty()) return tr("“%1” is no longer running.").arg(app.name);
  if (!actions_) return tr("“%1” was not stopped: Omnira cannot stop processes here.").arg(app.name);

  if (app.kind == GroupKind::app) {
    std::optional<std::string> appID;
    if (app.bundlePath) {
      auto file = app.bundlePath->substr(app.bundlePath->find_last_of('/') + 1);
      if (file.ends_with(".desktop")) file.resize(file.size() - 8);
      appID = file;
    }
    switch (actions_->quitApp(mains, others, appID, force)) {
      case ProcessActions::AppQuit::quitAction:
      case ProcessActions::AppQuit::closedWindows:
      case ProcessActions::AppQuit::terminated: return tr("“%1” was asked to quit.").arg(app.name);
      case ProcessActions::AppQuit::killed: return tr("“%1” was ended.").arg(app.name);
      case ProcessActions::AppQuit::refused:
      case ProcessActions::AppQuit::failed: break;
    }
    return tr("“%1” could not be stopped.").arg(app.name);
  }
  // A command's group, not a desktop app: each main process with what it started.
  bool sent = false;
  for (const int32_t pid : mains) sent = actions_->signal(pid, source_->startedBy(pid), force) == ProcessActions::Sent::sent || sent;
  if (!sent) return tr("“%1” could not be stopped.").arg(app.name);
  return force ? tr("“%1” was ended.").arg(app.name) : tr("“%1” was asked to quit.").arg(app.name);
}

bool AppsTable::filterAcceptsRow(int sourceRow, const QModelIndex& sourceParent) const {
  // A listed app shows all its processes.
  if (sourceParent.isValid() || filterText_.trimmed().isEmpty()) return true;
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
