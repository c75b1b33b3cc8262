#pragma once
// Start-up and shut-down order of the running application.
//
// Start: data and settings folders → the single-instance lock (with a display, a second
// start asks the running Omnira to show its window and ends with exit status 0) → logging → settings and
// their watch → the monitor store (saved state, history, samplers, loop) → the agent bridge
// (while "bridgeEnabled" is on) → usage limits → the metrics endpoint (while "metricsEnabled"
// is on) → notifications → the status icon and its windows, and the bus name a second start
// calls (with a display) → SIGINT/SIGTERM/SIGHUP.
// Stop (on either signal, or when the event loop ends): the bridge stops listening, the loop
// and the samplers end, then live history, ledger and insights are saved and the history
// is checkpointed, and the lock is released last.
//
// Lives on the main thread, created by OmniraApp before the event loop runs.

#include <QObject>
#include <QSocketNotifier>

#include <memory>
#include <optional>
#include <string>

#include "Omnira/InstanceLock.h"
#include "Omnira/QuitRequests.h"
#include "OmniraCore/foundation/AppPaths.h"
#include "OmniraCore/foundation/Result.h"

namespace omnira {

class MonitorStore;
class SettingsWatcher;
class AppFoldersWatcher;
class InsightNotifier;
class UsageLimitsStore;
class BridgeHost;
class MetricsPublisher;
namespace presentation {
class Desktop;
class ShowService;
}

class AppDelegate : public QObject {
  Q_OBJECT

 public:
  struct Options {
    bool watching = false;    // behave as if a view showed live figures
    bool printTicks = false;  // one line per tick on standard output
    bool desktop = false;     // a display answers: the status icon, its panel and the window
    // With `desktop`: "panel" or a page of the window to open at once; empty for only the
    // status icon (a start at login).
    std::string openOnStart = "overview";
  };

  struct Failure {
    int exitCode = 1;  // 0: another Omnira runs and has shown its window, nothing went wrong
    std::string message;  // a sentence for the person
  };

  AppDelegate(Options options, QObject* parent = nullptr);
  ~AppDelegate() override;

  // Blocks SIGINT, SIGTERM and SIGHUP for every thread; call before any thread starts.
  static void blockStopSignals();

  Result<void, Failure> start();
  void stop();

  MonitorStore* store() const { return store_.get(); }
  presentation::Desktop* desktop() const { return desktop_.get(); }

 signals:
  // SIGINT, SIGTERM or SIGHUP arrived, or the person chose Quit.
  void stopRequested();

 private:
  void listenForStopSignals();
  QuitRequests::Parts quitParts();
  void printTick();

  Options options_;
  std::optional<AppPaths> paths_;
  std::optional<InstanceLock> lock_;
  std::unique_ptr<MonitorStore> store_;
  std::unique_ptr<SettingsWatcher> settingsWatcher_;
  std::unique_ptr<AppFoldersWatcher> appFolders_;
  std::unique_ptr<InsightNotifier> notifier_;
  std::unique_ptr<UsageLimitsStore> usageLimits_;
  std::unique_ptr<BridgeHost> bridge_;
  std::unique_ptr<QuitRequests> quitRequests_;
  std::unique_ptr<MetricsPublisher> metrics_;
  std::unique_ptr<presentation::Desktop> desktop_;
  std::unique_ptr<presentation::ShowService> showService_;
  int signalFD_ = -1;
  std::unique_ptr<QSocketNotifier> signalNotifier_;
};

}  // namespace omnira
