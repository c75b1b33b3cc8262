#pragma once
// Omnira on the desktop: the status icon, the drop-down panel and the main window, and the
// models they show. Created by AppDelegate only when a display answers; a headless run
// never builds any of it. While the panel or the window is open the store samples as for
// a viewer (every "refreshSeconds", processes every tick) and the models follow it; with
// both closed their QML engines are gone and the models stand still.
//
// The windows use Qt Quick's Fusion style on the application's palette, so they are light
// or dark as the desktop is; OMNIRA_PALETTE=dark forces dark where Qt cannot read the
// desktop's choice (a bare X server, as the screenshot script runs).
//
// The History page reads the history file through its own model's worker thread
// (HistoryModel.h); the AI Usage page and the panel's plan rows follow the usage-limits
// store, once AppDelegate hands it over (setUsageLimits).
//
// Main thread only. The QML reads this object as `omnira`. Writing the notification pause
// may fail (an unreadable settings file): that is logged and the menu shows the setting as
// it stands.

#include <QObject>
#include <QString>

#include <filesystem>
#include <memory>
#include <vector>

#include "OmniraCore/foundation/AppPaths.h"
#include "OmniraCore/foundation/Settings.h"

namespace omnira {
class MonitorStore;
class ProcessActions;
class UsageLimitsStore;
}

namespace omnira::presentation {

class AppsModel;
class AppsTable;
class HistoryModel;
class UsageModel;
class LiveFigures;
class ProjectsModel;
class QmlWindow;
class SettingsModel;
class StatusIcon;
class WorthALookModel;

class Desktop : public QObject {
  Q_OBJECT
  Q_PROPERTY(QString page READ page WRITE setPage NOTIFY pageChanged)
  Q_PROPERTY(QObject* figures READ figures CONSTANT)
  Q_PROPERTY(QObject* apps READ apps CONSTANT)
  Q_PROPERTY(QObject* worthALook READ worthALook CONSTANT)
  Q_PROPERTY(QObject* projects READ projects CONSTANT)
  Q_PROPERTY(QObject* history READ history CONSTANT)
  Q_PROPERTY(QObject* usage READ usage CONSTANT)
  Q_PROPERTY(QString selectedApp READ selectedApp WRITE setSelectedApp NOTIFY selectedAppChanged)
  Q_PROPERTY(QObject* settings READ settings CONSTANT)
  // A part of the page to show, from open("page/section") ("settings/insights").
  Q_PROPERTY(QString section READ section WRITE setSection NOTIFY sectionChanged)

 public:
  Desktop(MonitorStore* store, AppPaths paths, const Settings& settings, QObject* parent = nullptr);
  ~Desktop() override;

  // The pages the main window has, in its side bar's order.
  static bool isPage(const QString& page);

  QString page() const { return page_; }
  void setPage(const QString& page);
  QString selectedApp() const { return selectedApp_; }
  void setSelectedApp(const QString& groupID);
  QObject* figures() const;
  QObject* apps() const;
  QObject* worthALook() const;
  QObject* projects() const;
  QObject* settings() const;
  SettingsModel& settingsModel() { return *settings_; }
  QString section() const { return section_; }
  void setSection(const QString& section);
  QObject* history() const;
  QObject* usage() const;
  // The plans' store, once the application has made it; the usage page is empty until then.
  void setUsageLimits(UsageLimitsStore* usageLimits);

  StatusIcon& statusIcon() { return *icon_; }
  QmlWindow& panel() { return *panel_; }
  QmlWindow& mainWindow() { return *main_; }
  AppsTable& appsTable() { return *appsTable_; }
  WorthALookModel& worthALookModel() { return *worthALook_; }
  ProjectsModel& projectsModel() { return *projectsModel_; }

  void applySettings(const Settings& settings);

 public slots:
  // Opens (or raises) the main window on a page, or on "page/section"; "panel" opens the
  // drop-down panel instead.
  bool open(const QString& page);
  // The panel, next to the status icon.
  bool openPanel();
  Q_INVOKABLE void closePanel();
  // From a row of the panel: the window on the Apps page with that app selected.
  Q_INVOKABLE void showApp(const QString& groupID);
  // Puts the diagnostic report (DiagnosticReport.h) on the clipboard. Reads the journal
  // first, so it may take a moment on a large one.
  Q_INVOKABLE void copyDiagnosticReport();

 signals:
  void pageChanged();
  void selectedAppChanged();
  void quitRequested();
  void diagnosticReportCopied();
  void sectionChanged();

 private:
  void viewersChanged();
  void placePanel();
  void pauseNotifications(bool paused);
  // The Projects page's model follows the store while the window is open; the costly
  // project scan every tick and the containers' figures only while that page shows.
  void followProjects();

  MonitorStore* store_;
  AppPaths paths_;
  QString page_ = QStringLiteral("overview");
  QString selectedApp_;
  std::unique_ptr<LiveFigures> figures_;
  std::unique_ptr<AppsModel> appsModel_;
  std::unique_ptr<AppsTable> appsTable_;
  std::unique_ptr<WorthALookModel> worthALook_;
  std::unique_ptr<SettingsModel> settings_;
  QString section_;
  std::unique_ptr<HistoryModel> history_;
  std::unique_ptr<UsageModel> usage_;
  std::unique_ptr<StatusIcon> icon_;
  std::unique_ptr<QmlWindow> panel_;
  std::unique_ptr<QmlWindow> main_;
  bool viewing_ = false;
  QMetaObject::Connection groups_;
  // The Apps page's Quit and Force Quit, as the agents' quit requests send them.
  std::unique_ptr<ProcessActions> actions_;
  std::unique_ptr<ProjectsModel> projectsModel_;
  std::vector<QMetaObject::Connection> projectsFeed_;
  bool wantsProjects_ = false;
};

}  // namespace omnira::presentation
