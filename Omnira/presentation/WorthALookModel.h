#pragma once
// The "Worth a Look" list as the views show it: the store's insights, newest first, minus
// the ones the person dismissed here. A dismissal goes into the insights file under its
// lock, the way `omnira insights dismiss` does, and the store reads it back from there; until
// it has, the row is hidden here so the list answers the click at once.
//
// Main thread only. A dismissal that cannot be written leaves the row where it is and
// sets `problem` to a sentence for the person.

#include <QAbstractListModel>
#include <QString>

#include <filesystem>
#include <set>
#include <vector>

#include "OmniraCore/history/Insight.h"

namespace omnira {
class MonitorStore;
}

namespace omnira::presentation {

class WorthALookModel : public QAbstractListModel {
  Q_OBJECT
  Q_PROPERTY(int count READ count NOTIFY countChanged)
  Q_PROPERTY(QString problem READ problem NOTIFY problemChanged)

 public:
  enum Role { idRole = Qt::UserRole + 1, titleRole, detailRole, whenRole, appRole };

  // `insightsFile` is the file the store keeps its list in.
  WorthALookModel(MonitorStore* store, std::filesystem::path insightsFile, QObject* parent = nullptr);

  int count() const { return static_cast<int>(rows_.size()); }
  QString problem() const { return problem_; }

  // Returns whether the insight is gone from the file.
  Q_INVOKABLE bool dismiss(const QString& id);

  int rowCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
  QHash<int, QByteArray> roleNames() const override;

 signals:
  void countChanged();
  void problemChanged();

 private:
  void reload();

  MonitorStore* store_;
  std::filesystem::path file_;
  std::vector<Insight> rows_;
  std::set<UUID> hidden_;  // dismissed here, still in the store's copy
  QString problem_;
};

}  // namespace omnira::presentation
