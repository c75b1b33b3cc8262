#include "Omnira/AppDelegate.h"

#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include "Omnira/AppFoldersWatcher.h"
#include "Omnira/BridgeHost.h"
#include "Omnira/QuitRequests.h"
#include "Omnira/InsightNotifier.h"
#include "Omnira/MetricsPublisher.h"
#include "Omnira/MonitorStore.h"
#include "Omnira/SettingsWatcher.h"
#include "Omnira/TickLine.h"
#include "Omnira/UsageLimitsStore.h"
#include "Omnira/presentation/Desktop.h"
#include "Omnira/presentation/ShowService.h"
#include "OmniraCore/foundation/Log.h"
#include "OmniraCore/foundation/Settings.h"
#include "OmniraCore/foundation/SettingsFile.h"
#include "OmniraCore/foundation/SettingsKeys.h"
#include "OmniraCore/platform/linux/ThisMachine.h"

namespace omnira {

namespace {

sigset_t stopSignals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  // The terminal that ran `omnira run` closed: stop and save as on SIGTERM.
  sigaddset(&set, SIGHUP);
  return set;
}

}  // namespace

AppDelegate::AppDelegate(Options options, QObject* parent) : QObject(parent), options_(options) {}

AppDelegate::~AppDelegate() {
  stop();
  signalNotifier_.reset();
  if (signalFD_ >= 0) ::close(signalFD_);
}

void AppDelegate::blockStopSignals() {
  const sigset_t set = stopSignals();
  ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

Result<void, AppDelegate::Failure> AppDelegate::start() {
  auto paths = AppPaths::fromProcessEnvironment();
  if (!paths) return fail(Failure{1, paths.error().message});
  paths_ = *paths;
  // Before the lock: as root, a folder another user controls is refused, not written in.
  if (auto safe = paths_->prepareFolders(); !safe) return fail(Failure{1, safe.error().message});

  auto lock = InstanceLock::acquire(paths_->dataFile(InstanceLock::fileName));
  if (!lock) {
    // A person who starts Omnira again from the desktop wants to see it, not an error.
    if (lock.error().kind == InstanceLock::Failure::Kind::alreadyRunning && options_.desktop &&
        presentation::ShowService::askToShow())
      return fail(Failure{0, "Omnira is already running; its window is shown."});
    return fail(Failure{1, lock.error().message});
  }
  lock_.emplace(std::move(*lock));

  setUpLogging("omnira", spdlog::level::info);
  listenForStopSignals();

  settingsWatcher_ = std::make_unique<SettingsWatcher>(paths_->settingsFile());
  MonitorStore::Options storeOptions{*paths_, settingsWatcher_->current()};
  store_ = std::make_unique<MonitorStore>(std::move(storeOptions));
  connect(settingsWatcher_.get(), &SettingsWatcher::changed, store_.get(), &MonitorStore::applySettings);
  usageLimits_ = std::make_unique<UsageLimitsStore>(UsageLimitsStore::Options{*paths_, settingsWatcher_->current()});
  connect(settingsWatcher_.get(), &SettingsWatcher::changed, usageLimits_.get(), &UsageLimitsStore::applySettings);

  notifier_ = std::make_unique<InsightNotifier>();
  connect(store_.get(), &MonitorStore::insightsRaised, this, [this](const Insights& fresh) {
    if (!store_->settings().boolean(SettingsKeys::insightNotifications)) return;
    for (const auto& insight : fresh) notifier_->post(insight);
  });
  appFolders_ = std::make_unique<AppFoldersWatcher>(platform::appFolders());
  connect(appFolders_.get(), &AppFoldersWatcher::changed, store_.get(), &MonitorStore::reloadApps);
  if (options_.printTicks) connect(store_.get(), &MonitorStore::ticked, this, &AppDelegate::printTick);
  if (options_.watching) {
    store_->viewerAppeared();
    store_->requestContainers("watching", true);
  }

  store_->start();
  // The bridge listens from here on; it answers from the store's readings.
  bridge_ = std::make_unique<BridgeHost>(BridgeHost::Options{*paths_, platform::systemName()}, settingsWatcher_->current());
  bridge_->attach(store_.get());
  connect(settingsWatcher_.get(), &SettingsWatcher::changed, bridge_.get(), &BridgeHost::applySettings);
  quitRequests_ = std::make_unique<QuitRequests>(quitParts());
  bridge_->setQuitHandler([this](const std::string& tool, const BridgeHost::json& arguments, int32_t peer, auto reply) {
    quitRequests_->handle(tool, arguments, peer, std::move(reply));
  });
  bridge_->applySettings(settingsWatcher_->current());
  usageLimits_->start();  // now, then every few minutes
  // The metrics endpoint listens from here on, while "metricsEnabled" is on.
  metrics_ = std::make_unique<MetricsPublisher>(store_.get(), usageLimits_.get());
  connect(settingsWatcher_.get(), &SettingsWatcher::changed, metrics_.get(), &MetricsPublisher::applySettings);
  metrics_->applySettings(settingsWatcher_->current());
  if (options_.desktop) {
    desktop_ = std::make_unique<presentation::Desktop>(store_.get(), *paths_, settingsWatcher_->current());
    desktop_->setUsageLimits(usageLimits_.get());
    connect(settingsWatcher_.get(), &SettingsWatcher::changed, desktop_.get(), &presentation::Desktop::applySettings);
    connect(desktop_.get(), &presentation::Desktop::quitRequested, this, &AppDelegate::stopRequested);
    showService_ = std::make_unique<presentation::ShowService>(desktop_.get());
    if (auto listening = showService_->listen(); !listening)
      spdlog::warn("Starting Omnira again will not show this window: {}", listening.error().message);
    if (!options_.openOnStart.empty()) desktop_->open(QString::fromStdString(options_.openOnStart));
  }
  spdlog::info("Omnira {} started; data in {}", OMNIRA_VERSION, paths_->dataFolder().string());
  return {};
}

QuitRequests::Parts AppDelegate::quitParts() {
  QuitRequests::Parts parts;
  parts.readings = [this](int32_t peer) { return bridge_->readings("quit", std::chrono::system_clock::now(), peer); };
  parts.asker = [this](const BridgeReadings& readings, int32_t peer) {
    return bridge_->askerName(readings, peer, std::chrono::system_clock::now());
  };
  parts.actions = std::make_shared<ProcessActions>();
  parts.panel = [] { return QuitRequestPanel::forThisSession(); };
  parts.log = ActionLog(paths_->dataFile("requests.json"));
  parts.settings = [this] { return settingsWatcher_->current(); };
  parts.allowFolder = [file = paths_->settingsFile()](const std::string& folder) -> std::optional<std::string> {
    auto list = Settings::load(file).json(SettingsKeys::bridgeAllowedProjects);
    if (!list.is_array()) list = nlohmann::json::array();
    if (std::count(list.begin(), list.end(), folder) == 0) list.push_back(folder);
    if (auto written = SettingsFile(file).set("bridgeAllowedProjects", list.dump()); !written)
      return written.error().message;
    return std::nullopt;
  };
  return parts;
}

void AppDelegate::stop() {
  if (!store_) return;
  showService_.reset();   // before the window it shows
  desktop_.reset();       // its windows read the store
  quitRequests_.reset();  // an open panel goes; its asker hears nothing more
  bridge_.reset();        // no question is answered from a store that is stopping
  metrics_.reset();       // nor scraped from it
  store_->stop();
  appFolders_.reset();
  store_.reset();
  usageLimits_.reset();  // waits for a running refresh, which may write the cache
  spdlog::info("Omnira stopped");
  lock_.reset();
}

void AppDelegate::listenForStopSignals() {
  const sigset_t set = stopSignals();
  signalFD_ = ::signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
  if (signalFD_ < 0) {
    spdlog::error("Cannot listen for stop signals: {}", std::strerror(errno));
    return;
  }
  signalNotifier_ = std::make_unique<QSocketNotifier>(signalFD_, QSocketNotifier::Read);
  connect(signalNotifier_.get(), &QSocketNotifier::activated, this, [this] {
    signalfd_siginfo info{};
    while (::read(signalFD_, &info, sizeof info) == sizeof info)
      spdlog::info("Stopping on {}", info.ssi_signo == SIGINT    ? "SIGINT"
                                     : info.ssi_signo == SIGHUP ? "SIGHUP"
                                                                : "SIGTERM");
    emit stopRequested();
  });
}

void AppDelegate::printTick() {
  if (!store_->system()) return;
  std::fputs((TickLine::format(*store_->system(), store_->groups(), store_->strainSince(),
                               store_->system()->timestamp) + "\n").c_str(), stdout);
  std::fflush(stdout);
}

}  // namespace omnira
