#include "Omnira/presentation/ProjectsModel.h"

#include <algorithm>
#include <unordered_set>

#include "Omnira/presentation/Figures.h"

namespace omnira::presentation {

namespace {

QString portsText(const std::vector<uint16_t>& ports) {
  QStringList list;
  for (const uint16_t port : ports) list << QStringLiteral(":%1").arg(port);
  return list.join(QStringLiteral(", "));
}

QString cpuText(double percent) { return QStringLiteral("%1 %").arg(percent, 0, 'f', 1); }

QVariantMap containerMap(const ContainerSample& c) {
  return {{QStringLiteral("name"), nameText(c.name)},
          {QStringLiteral("image"), nameText(c.image)},
          {QStringLiteral("state"), nameText(c.status)},
          {QStringLiteral("cpu"), c.cpuPercent ? cpuText(*c.cpuPercent) : QStringLiteral("—")},
          {QStringLiteral("memory"), c.memoryInUseBytes ? bytesText(*c.memoryInUseBytes) : QStringLiteral("—")},
          {QStringLiteral("ports"), portsText(c.publishedPorts)}};
}

QString count(size_t n, const QString& one, const QString& many) { return n == 1 ? one : many.arg(n); }

}  // namespace

ProjectsModel::ProjectsModel(std::string home, QObject* parent) : QAbstractListModel(parent), home_(std::move(home)) {
  while (home_.size() > 1 && home_.ends_with('/')) home_.pop_back();
}

ProjectsModel::Row ProjectsModel::rowOf(const Project& project, const std::vector<IdleServer>& idle,
                                        const ContainerSnapshot& containers) const {
  std::unordered_set<int32_t> idlePIDs;
  for (const auto& server : idle) idlePIDs.insert(server.pid);
  Row row;
  row.path = nameText(project.path);
  row.name = nameText(project.name);
  const bool inHome = !home_.empty() && home_ != "/" &&
                      (project.path == home_ || (project.path.starts_with(home_) && project.path[home_.size()] == '/'));
  row.shownPath = inHome ? QStringLiteral("~") + nameText(std::string_view(project.path).substr(home_.size())) : row.path;
  row.cpu = cpuText(project.cpuPercent());
  row.memory = bytesText(project.memoryBytes());
  row.ports = portsText(project.ports());

  // Dev servers first, then the heaviest: what a person came to look at.
  std::vector<const ProjectProcess*> order;
  for (const auto& p : project.processes) order.push_back(&p);
  std::stable_sort(order.begin(), order.end(), [](const ProjectProcess* a, const ProjectProcess* b) {
    return std::pair(a->devServer, a->memoryBytes) > std::pair(b->devServer, b->memoryBytes);
  });
  size_t idleCount = 0;
  for (const auto* p : order) {
    const bool isIdle = p->devServer && idlePIDs.contains(p->pid);
    idleCount += isIdle ? 1 : 0;
    row.processes.push_back(QVariantMap{{QStringLiteral("pid"), p->pid},
                                        {QStringLiteral("name"), nameText(p->name)},
                                        {QStringLiteral("app"), nameText(p->appName)},
                                        {QStringLiteral("cpu"), cpuText(p->cpuPercent)},
                                        {QStringLiteral("memory"), bytesText(p->memoryBytes)},
                                        {QStringLiteral("ports"), portsText(p->ports)},
                                        {QStringLiteral("devServer"), p->devServer},
                                        {QStringLiteral("idle"), isIdle}});
  }
  for (const auto& name : project.containers) {
    const auto found = std::find_if(containers.containers.begin(), containers.containers.end(),
                                    [&](const ContainerSample& c) { return c.name == name; });
    if (found != containers.containers.end()) row.containers.push_back(containerMap(*found));
  }

  QStringList summary;
  // A Compose folder may have only its containers running.
  if (!project.processes.empty() || project.containers.empty())
    summary << count(project.processes.size(), tr("1 process"), tr("%1 processes"));
  if (const size_t servers = project.devServerCount())
    summary << count(servers, tr("1 dev server"), tr("%1 dev servers")) +
                   (idleCount == 0 ? QString() : idleCount == servers ? tr(", idle") : tr(", %1 idle").arg(idleCount));
  if (!project.containers.empty()) summary << count(project.containers.size(), tr("1 container"), tr("%1 containers"));
  row.summary = summary.join(QStringLiteral(" · "));
  return row;
}

void ProjectsModel::update(const std::vector<Project>& projects, const std::vector<IdleServer>& idle,
                           const ContainerSnapshot& containers) {
  const QString emptyBefore = emptyText();
  std::vector<Row> fresh;
  fresh.reserve(projects.size());
  for (const auto& project : projects) fresh.push_back(rowOf(project, idle, containers));
  std::unordered_set<QString> paths;
  for (const auto& row : fresh) paths.insert(row.path);

  for (size_t i = rows_.size(); i-- > 0;) {
    if (paths.contains(rows_[i].path)) continue;
    beginRemoveRows({}, static_cast<int>(i), static_cast<int>(i));
    rows_.erase(rows_.begin() + static_cast<std::ptrdiff_t>(i));
    endRemoveRows();
  }
  // What stayed is still in the store's order (by name): new folders go in where they belong.
  for (size_t i = 0; i < fresh.size(); ++i) {
    const int at = static_cast<int>(i);
    if (i < rows_.size() && rows_[i].path == fresh[i].path) {
      if (rows_[i] == fresh[i]) continue;
      rows_[i] = std::move(fresh[i]);
      emit dataChanged(index(at), index(at));
      continue;
    }
    beginInsertRows({}, at, at);
    rows_.insert(rows_.begin() + at, std::move(fresh[i]));
    endInsertRows();
  }

  QVariantList others;
  for (const auto& c : containers.containers)
    if (!c.composeFolder) others.push_back(containerMap(c));
  if (others != otherContainers_) {
    otherContainers_ = std::move(others);
    emit otherContainersChanged();
  }
  if (emptyText() != emptyBefore) emit emptyTextChanged();
}

QString ProjectsModel::emptyText() const {
  if (!rows_.empty() || !otherContainers_.empty()) return {};
  return tr("Nothing is running in a project folder, and no container is running.");
}

int ProjectsModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(rows_.size());
}

QVariant ProjectsModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid() || index.row() >= static_cast<int>(rows_.size())) return {};
  const Row& row = rows_[static_cast<size_t>(index.row())];
  switch (role) {
    case Qt::DisplayRole:
    case Qt::AccessibleTextRole:
    case nameRole: return row.name;
    case pathRole: return row.shownPath;
    case cpuRole: return row.cpu;
    case memoryRole: return row.memory;
    case portsRole: return row.ports;
    case summaryRole: return row.summary;
    case processesRole: return row.processes;
    case containersRole: return row.containers;
    default: return {};
  }
}

QHash<int, QByteArray> ProjectsModel::roleNames() const {
  return {{nameRole, "name"},           {pathRole, "path"},   {cpuRole, "cpu"},
          {memoryRole, "memory"},       {portsRole, "ports"}, {summaryRole, "summary"},
          {processesRole, "processes"}, {containersRole, "containers"}};
}

}  // namespace omnira::presentation
