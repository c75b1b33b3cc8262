#pragma once
// Every key of the settings table (SettingsKeys.h) as the Settings page shows it: one row
// per key with its section, kind of control, range or choices and current value. set()
// writes through SettingsFile, the writer `omnira settings set` uses, from the text a person
// would type there, so a value is refused with the very sentence the command prints and the
// file keeps every other key. The running Omnira's SettingsWatcher then brings the change
// to the stores; applySettings() takes the same signal, so an edit of the file by hand or
// by the command shows here too.
//
// Also shows how the agents' bridge stands, from the "bridge.json" the bridge host keeps.
//
// Main thread only. A refusal is kept on its row until the key is written or changes in the
// file; the file is never left half-written (SettingsFile.h).

#include <QAbstractListModel>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <memory>
#include <vector>

#include "OmniraCore/foundation/AppPaths.h"
#include "OmniraCore/foundation/Settings.h"

namespace omnira {
class MonitorStore;
class SavedFileWatcher;
}  // namespace omnira

namespace omnira::presentation {

class SettingsModel : public QAbstractListModel {
  Q_OBJECT
  Q_PROPERTY(QStringList sections READ sections CONSTANT)
  Q_PROPERTY(QString bridgeStatus READ bridgeStatus NOTIFY bridgeChanged)
  Q_PROPERTY(bool bridgeListening READ bridgeListening NOTIFY bridgeChanged)
  Q_PROPERTY(QString bridgeSocket READ bridgeSocket NOTIFY bridgeChanged)
  Q_PROPERTY(QString settingsFile READ settingsFile CONSTANT)

 public:
  enum Role {
    keyRole = Qt::UserRole + 1,
    sectionRole,      // "general", "insights", "integrations", "usage"
    kindRole,         // the control: switch, slider, number, choice, text, secret, mutedApps, appLimits, folders, json
    titleRole,
    descriptionRole,
    valueRole,        // as the key reads: bool, number, text, or for JSON keys a list or map
    textRole,         // the value as a person types it for `omnira settings set`
    minimumRole,
    maximumRole,
    choicesRole,      // [{value, label}]
    acceptsRole,      // "a number from 1 to 10"
    refusalRole,      // the sentence of the last refused change, or empty
    noteRole,         // why the file's own value is not the one used, or empty
    isDefaultRole,
  };

  SettingsModel(MonitorStore* store, AppPaths paths, const Settings& settings, QObject* parent = nullptr);
  ~SettingsModel() override;

  int rowCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
  QHash<int, QByteArray> roleNames() const override;

  QStringList sections() const;
  // The row of a key, or -1.
  Q_INVOKABLE int rowOf(const QString& key) const;
  Q_INVOKABLE QVariant value(const QString& key) const;

  // Writes a key; the empty text on success, else the sentence that refused it (also kept on
  // the row). A QVariant is taken as `omnira settings set` would be given it: true/false, a
  // number, text, or for JSON keys a list or map.
  Q_INVOKABLE QString set(const QString& key, const QVariant& value);
  // The same from a person's typing, exactly as the command takes it.
  Q_INVOKABLE QString setText(const QString& key, const QString& text);
  // Back to the default: the key leaves the file.
  Q_INVOKABLE QString reset(const QString& key);

  // Editors of the JSON keys, each a set() of the whole new value.
  Q_INVOKABLE QString muteApp(const QString& app, int days);  // 0 days: for good
  Q_INVOKABLE QString unmuteApp(const QString& app);
  Q_INVOKABLE QString addAppLimit(const QString& app, const QString& figure, double limit, double minutes);
  Q_INVOKABLE QString setAppLimitOn(int index, bool on);
  Q_INVOKABLE QString removeAppLimit(int index);
  Q_INVOKABLE QString addFolder(const QString& key, const QString& folder);
  Q_INVOKABLE QString removeFolder(const QString& key, int index);
  // The apps the store sees now, for the pickers: [{id, name}], by name.
  Q_INVOKABLE QVariantList runningApps() const;

  QString bridgeStatus() const { return bridgeStatus_; }
  bool bridgeListening() const { return bridgeListening_; }
  QString bridgeSocket() const { return bridgeSocket_; }
  QString settingsFile() const;

  // From the settings watcher: rows whose value changed are updated, their refusals cleared.
  void applySettings(const Settings& settings);

 signals:
  void bridgeChanged();

 private:
  struct Row;
  void refreshRow(size_t row, bool clearRefusal);
  void readBridgeState();
  QString refuse(size_t row, QString sentence);

  MonitorStore* store_;
  AppPaths paths_;
  Settings settings_;
  std::vector<Row> rows_;
  std::unique_ptr<SavedFileWatcher> bridgeWatcher_;
  QString bridgeStatus_, bridgeSocket_;
  bool bridgeListening_ = false;
};

}  // namespace omnira::presentation
