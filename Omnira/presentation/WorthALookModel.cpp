#include "Omnira/presentation/WorthALookModel.h"

#include "Omnira/MonitorStore.h"
#include "Omnira/presentation/Figures.h"
#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/history/WorthALook.h"

namespace omnira::presentation {

WorthALookModel::WorthALookModel(MonitorStore* store, std::filesystem::path insightsFile, QObject* parent)
    : QAbstractListModel(parent), store_(store), file_(std::move(insightsFile)) {
  connect(store_, &MonitorStore::insightsChanged, this, &WorthALookModel::reload);
  reload();
}

void WorthALookModel::reload() {
  std::vector<Insight> next;
  std::set<UUID> stillHidden;
  for (const auto& insight : store_->insights()) {
    if (hidden_.contains(insight.id)) {
      stillHidden.insert(insight.id);
      continue;
    }
    next.push_back(insight);
  }
  // Once the store no longer lists an insight, hiding it here has done its work.
  hidden_ = std::move(stillHidden);
  if (next == rows_) return;
  const int before = count();
  beginResetModel();
  rows_ = std::move(next);
  endResetModel();
  if (count() != before) emit countChanged();
}

bool WorthALookModel::dismiss(const QString& id) {
  const auto uuid = UUID::parse(id.toStdString());
  if (!uuid) return false;
  const auto updated = WorthALook::update(file_, [&](WorthALook& list) { list.dismiss(*uuid); });
  if (!updated) {
    problem_ = QString::fromStdString(updated.error().message);
    emit problemChanged();
    return false;
  }
  if (!problem_.isEmpty()) {
    problem_.clear();
    emit problemChanged();
  }
  hidden_.insert(*uuid);
  reload();
  return true;
}

int WorthALookModel::rowCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : count(); }

QVariant WorthALookModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid() || index.row() >= count()) return {};
  const Insight& insight = rows_[static_cast<size_t>(index.row())];
  switch (role) {
    case Qt::DisplayRole:
    case titleRole: return nameText(insight.title);
    case idRole: return QString::fromStdString(insight.id.string());
    case detailRole: return nameText(insight.detail);
    case whenRole: return QString::fromStdString(formatLocal(insight.date, "%H:%M"));
    case appRole: return insight.appName ? nameText(*insight.appName) : QString();
    default: return {};
  }
}

QHash<int, QByteArray> WorthALookModel::roleNames() const {
  return {{idRole, "insightID"}, {titleRole, "title"}, {detailRole, "detail"}, {whenRole, "when"}, {appRole, "app"}};
}

}  // namespace omnira::presentation
