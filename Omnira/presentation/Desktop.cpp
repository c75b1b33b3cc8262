#include "Omnira/presentation/Desktop.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QPalette>
#include <QQuickStyle>
#include <QQuickWindow>
#include <QScreen>
#include <QStringList>
#include <QtQml/qqml.h>

#include <spdlog/spdlog.h>

#include "Omnira/MonitorStore.h"
#include "Omnira/ProcessActions.h"
#include "Omnira/presentation/AppsModel.h"
#include "Omnira/presentation/ChartItem.h"
#include "Omnira/presentation/DiagnosticReport.h"
#include "Omnira/presentation/HistoryModel.h"
#include "Omnira/presentation/LiveFigures.h"
#include "Omnira/presentation/ProjectsModel.h"
#include "Omnira/presentation/QmlWindow.h"
#include "Omnira/presentation/SettingsModel.h"
#include "Omnira/presentation/StatusIcon.h"
#include "Omnira/presentation/UsageModel.h"
#include "Omnira/presentation/WorthALookModel.h"
#include "OmniraCore/foundation/SettingsFile.h"
#include "OmniraCore/history/HistoryRetention.h"
#include "OmniraCore/platform/linux/ThisMachine.h"

namespace omnira::presentation {

namespace {

// Dark colours for a desktop whose theme Qt cannot read (OMNIRA_PALETTE=dark).
QPalette darkPalette() {
  QPalette palette;
  const QColor window(0x1c, 0x1f, 0x26), base(0x24, 0x28, 0x31), text(0xe6, 0xe8, 0xec), mid(0x3a, 0x3f, 0x4b);
  palette.setColor(QPalette::Window, window);
  palette.setColor(QPalette::WindowText, text);
  palette.setColor(QPalette::Base, base);
  palette.setColor(QPalette::AlternateBase, window);
  palette.setColor(QPalette::Text, text);
  palette.setColor(QPalette::Button, QColor(0x2c, 0x31, 0x3c));
  palette.setColor(QPalette::ButtonText, text);
  palette.setColor(QPalette::Mid, mid);
  palette.setColor(QPalette::Dark, QColor(0x12, 0x14, 0x19));
  palette.setColor(QPalette::Light, QColor(0x4a, 0x50, 0x5e));
  palette.setColor(QPalette::Highlight, QColor(0x3b, 0x82, 0xf6));
  palette.setColor(QPalette::HighlightedText, Qt::white);
  palette.setColor(QPalette::ToolTipBase, base);
  palette.setColor(QPalette::ToolTipText, text);
  palette.setColor(QPalette::PlaceholderText, QColor(0x8b, 0x91, 0x9e));
  palette.setColor(QPalette::Disabled, QPalette::Text, QColor(0x6b, 0x71, 0x7e));
  palette.setColor(QPalette::Disabled, QPalette::WindowText, QColor(0x6b, 0x71, 0x7e));
  palette.setColor(QPalette::Disabled, QPalette::ButtonText, QColor(0x6b, 0x71, 0x7e));
  return palette;
}

void prepareQml() {
  static const bool once = [] {
    qmlRegisterType<ChartItem>("Omnira", 1, 0, "Chart");
    // Fusion follows the desktop's palette, light or dark; a person's own choice wins.
    if (qEnvironmentVariableIsEmpty("QT_QUICK_CONTROLS_STYLE")) QQuickStyle::setStyle(QStringLiteral("Fusion"));
    if (qEnvironmentVariable("OMNIRA_PALETTE") == QLatin1String("dark")) QGuiApplication::setPalette(darkPalette());
    // Figures, lines and text: the software renderer draws them at under half the CPU and
    // memory of OpenGL (measured with bench/desktop_cost.sh), and needs no GPU driver
    // loaded. QT_QUICK_BACKEND still chooses.
    if (qEnvironmentVariableIsEmpty("QT_QUICK_BACKEND") && qEnvironmentVariableIsEmpty("QSG_RHI_BACKEND"))
      QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
    return true;
  }();
  (void)once;
}

}  // namespace

Desktop::Desktop(MonitorStore* store, AppPaths paths, const Settings& settings, QObject* parent)
    : QObject(parent), store_(store), paths_(std::move(paths)) {
  prepareQml();
  figures_ = std::make_unique<LiveFigures>(store_);
  appsModel_ = std::make_unique<AppsModel>();
  appsTable_ = std::make_unique<AppsTable>(appsModel_.get());
  actions_ = std::make_unique<ProcessActions>();
  appsTable_->setActions(actions_.get());
  projectsModel_ = std::make_unique<ProjectsModel>(qgetenv("HOME").toStdString());  // bytes, as paths are
  connect(this, &Desktop::pageChanged, this, &Desktop::followProjects);
  worthALook_ = std::make_unique<WorthALookModel>(store_, paths_.dataFile("insights.json"));
  history_ = std::make_unique<HistoryModel>(paths_, HistoryRetention::days(settings));
  usage_ = std::make_unique<UsageModel>();
  icon_ = std::make_unique<StatusIcon>(store_, settings);
  settings_ = std::make_unique<SettingsModel>(store_, paths_, settings);
  panel_ = std::make_unique<QmlWindow>(QUrl(QStringLiteral("qrc:/omnira/qml/Panel.qml")),
                                       std::map<QString, QObject*>{{QStringLiteral("omnira"), this}});
  main_ = std::make_unique<QmlWindow>(QUrl(QStringLiteral("qrc:/omnira/qml/MainWindow.qml")),
                                      std::map<QString, QObject*>{{QStringLiteral("omnira"), this}});
  for (QmlWindow* window : {panel_.get(), main_.get()}) {
    connect(window, &QmlWindow::opened, this, &Desktop::viewersChanged);
    connect(window, &QmlWindow::closed, this, &Desktop::viewersChanged);
  }
  connect(icon_.get(), &StatusIcon::panelRequested, this, [this] {
    if (panel_->isOpen())
      closePanel();
    else
      openPanel();
  });
  connect(icon_.get(), &StatusIcon::pageRequested, this, &Desktop::open);
  connect(icon_.get(), &StatusIcon::pauseNotificationsToggled, this, &Desktop::pauseNotifications);
  connect(icon_.get(), &StatusIcon::quitRequested, this, &Desktop::quitRequested);
  connect(icon_.get(), &StatusIcon::diagnosticReportRequested, this, &Desktop::copyDiagnosticReport);
}

Desktop::~Desktop() {
  // Windows first: their QML still binds to the models.
  panel_.reset();
  main_.reset();
  if (viewing_) store_->viewerDisappeared();
  if (wantsProjects_) {
    store_->requestDetails("projects page", {});
    store_->requestContainers("projects page", false);
  }
}

bool Desktop::isPage(const QString& page) {
  // As MainWindow.qml's side bar has them.
  static const QStringList pages{
      QStringLiteral("overview"), QStringLiteral("apps"),  QStringLiteral("projects"),
      QStringLiteral("history"),  QStringLiteral("usage"), QStringLiteral("settings"),
  };
  return pages.contains(page);
}

void Desktop::setPage(const QString& page) {
  if (!isPage(page) || page == page_) return;
  page_ = page;
  emit pageChanged();
}

QObject* Desktop::figures() const { return figures_.get(); }
QObject* Desktop::apps() const { return appsTable_.get(); }
QObject* Desktop::worthALook() const { return worthALook_.get(); }
QObject* Desktop::projects() const { return projectsModel_.get(); }
QObject* Desktop::settings() const { return settings_.get(); }

void Desktop::setSection(const QString& section) {
  if (section == section_) return;
  section_ = section;
  emit sectionChanged();
}

QObject* Desktop::history() const { return history_.get(); }
QObject* Desktop::usage() const { return usage_.get(); }

void Desktop::setUsageLimits(UsageLimitsStore* usageLimits) { usage_->setStore(usageLimits); }

void Desktop::applySettings(const Settings& settings) {
  icon_->applySettings(settings);
  settings_->applySettings(settings);
  history_->setKeptDays(HistoryRetention::days(settings));
}

bool Desktop::open(const QString& page) {
  if (page == QLatin1String("panel")) return openPanel();
  const QString name = page.section(QLatin1Char('/'), 0, 0);
  if (!isPage(name)) return false;
  if (page.contains(QLatin1Char('/'))) setSection(page.section(QLatin1Char('/'), 1));
  setPage(name);
  closePanel();
  return main_->open();
}

bool Desktop::openPanel() {
  if (!panel_->open()) return false;
  placePanel();
  return true;
}

void Desktop::closePanel() { panel_->close(); }

void Desktop::setSelectedApp(const QString& groupID) {
  if (groupID == selectedApp_) return;
  selectedApp_ = groupID;
  emit selectedAppChanged();
}

void Desktop::showApp(const QString& groupID) {
  setSelectedApp(groupID);
  appsTable_->setFilterText({});  // a filter could hide the app the person asked for
  open(QStringLiteral("apps"));
}

void Desktop::copyDiagnosticReport() {
  const Date now = std::chrono::system_clock::now();
  // "omnira" is the journal identifier AppDelegate logs under.
  const LogExcerpt log = readJournal("omnira", now - diagnosticLogSpan);
  const std::string report = diagnosticReport({OMNIRA_VERSION, platform::systemName(), paths_, now}, log);
  QGuiApplication::clipboard()->setText(QString::fromStdString(report));
  emit diagnosticReportCopied();
}

void Desktop::placePanel() {
  QQuickWindow* window = panel_->window();
  if (!window) return;
  QRect icon = icon_->geometry();
  // Some tray hosts report the icon's place inside the tray, not on the screen.
  if (icon.topLeft() == QPoint(0, 0)) icon = {};
  QScreen* screen = icon.isValid() ? QGuiApplication::screenAt(icon.center()) : nullptr;
  if (!screen) screen = QGuiApplication::primaryScreen();
  if (!screen) return;
  const QRect area = screen->availableGeometry();
  constexpr int gap = 6;
  // Under the icon when the panel is at the top of the screen, above it otherwise; without
  // an icon's place, the top right corner, where panels usually keep it.
  QPoint at(area.right() - window->width() - gap, area.top() + gap);
  if (icon.isValid()) {
    at.setX(icon.center().x() - window->width() / 2);
    at.setY(icon.center().y() < area.center().y() ? icon.bottom() + gap : icon.top() - window->height() - gap);
  }
  at.setX(std::clamp(at.x(), area.left() + gap, std::max(area.left() + gap, area.right() - window->width() - gap)));
  at.setY(std::clamp(at.y(), area.top() + gap, std::max(area.top() + gap, area.bottom() - window->height() - gap)));
  window->setPosition(at);
}

void Desktop::viewersChanged() {
  const bool viewing = panel_->isOpen() || main_->isOpen();
  if (viewing != viewing_) {
    viewing_ = viewing;
    if (viewing)
      store_->viewerAppeared();
    else
      store_->viewerDisappeared();
    figures_->setActive(viewing);
    usage_->setActive(viewing);
  }
  // The table follows the groups only while the window that shows it is open.
  if (main_->isOpen() && !groups_) {
    appsModel_->setGroups(store_->groups());
    groups_ = connect(store_, &MonitorStore::groupsChanged, this, [this] { appsModel_->setGroups(store_->groups()); });
  } else if (!main_->isOpen() && groups_) {
    disconnect(groups_);
    groups_ = {};
    appsModel_->setGroups({});
  }
  followProjects();
}

void Desktop::followProjects() {
  const bool open = main_->isOpen();
  if (open && projectsFeed_.empty()) {
    const auto refresh = [this] {
      projectsModel_->update(store_->projects(), store_->idleServers(), store_->containers());
    };
    refresh();
    for (auto changed : {&MonitorStore::projectsChanged, &MonitorStore::idleServersChanged, &MonitorStore::containersChanged})
      projectsFeed_.push_back(connect(store_, changed, this, refresh));
  } else if (!open && !projectsFeed_.empty()) {
    for (const auto& c : projectsFeed_) disconnect(c);
    projectsFeed_.clear();
    projectsModel_->update({}, {}, {});
  }
  const bool wants = open && page_ == QLatin1String("projects");
  if (wants == wantsProjects_) return;
  wantsProjects_ = wants;
  store_->requestDetails("projects page", wants ? ProcessDetails{.projects = true} : ProcessDetails{});
  store_->requestContainers("projects page", wants);
}

void Desktop::pauseNotifications(bool paused) {
  const auto written = SettingsFile(paths_.settingsFile()).setValue("insightNotifications", !paused);
  if (written) return;  // the settings watcher brings the change back to the menu
  spdlog::warn("Could not pause notifications: {}", written.error().message);
  icon_->applySettings(Settings::load(paths_.settingsFile()));
}

}  // namespace omnira::presentation
