#pragma once
// The heart of the running program: owns the samplers (through their worker thread), the
// history file, the readings recorder, the insight engine, the strain tracker and the live
// rings; runs the sampling loop; publishes the live figures that every view and the agent
// bridge read. Nothing else samples.
//
// Threads: a QObject of the main thread; every member is touched there only. The samplers
// live on the worker's thread ("Omnira sampler") and only their results cross back.
// Published properties notify only when their value really changes.
//
// Failures: a history file that cannot be opened leaves `history` absent (logged; the
// live figures go on) until a later try opens it (see HistoryKeeper); saved files that
// cannot be read are logged and that part starts empty; a save that fails is logged and
// tried again at the next save.

#include <QObject>
#include <QThread>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Omnira/BootClockTimer.h"
#include "Omnira/ContainerWorker.h"
#include "Omnira/GroupPoint.h"
#include "Omnira/HistoryKeeper.h"
#include "Omnira/LiveHistory.h"
#include "Omnira/SamplingSchedule.h"
#include "Omnira/SamplingWorker.h"
#include "Omnira/SavedFileWatcher.h"
#include "OmniraCore/containers/Ports.h"
#include "OmniraCore/containers/Projects.h"
#include "OmniraCore/containers/ServerWatcher.h"
#include "OmniraCore/history/WorthALook.h"
#include "OmniraCore/foundation/AppPaths.h"
#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/foundation/Settings.h"
#include "OmniraCore/history/HistoryDatabase.h"
#include "OmniraCore/history/HistoryExport.h"
#include "OmniraCore/history/HistoryRetention.h"
#include "OmniraCore/history/Insight.h"
#include "OmniraCore/history/InsightEngine.h"
#include "OmniraCore/history/ReadingsRecorder.h"
#include "OmniraCore/history/StrainKind.h"
#include "OmniraCore/history/StrainTracker.h"
#include "OmniraCore/history/UsageLedger.h"
#include "OmniraCore/sampling/AppGroup.h"
#include "OmniraCore/sampling/ProcessDetails.h"
#include "OmniraCore/sampling/SystemSample.h"
#include "OmniraCore/sensors/PeripheralBattery.h"
#include "OmniraCore/sensors/SensorSample.h"
#include "OmniraCore/sensors/ThermalSample.h"

namespace omnira {

using OptionalSystemSample = std::optional<SystemSample>;
using SystemSamples = std::vector<SystemSample>;
using AppGroups = std::vector<AppGroup>;
using GroupHistory = std::map<std::string, std::vector<GroupPoint>>;
using Insights = std::vector<Insight>;
using OptionalSensorSample = std::optional<SensorSample>;
using OptionalThermalSample = std::optional<ThermalSample>;
using ThermalSamples = std::vector<ThermalSample>;
using PowerHistory = std::vector<double>;
using PeripheralBatteries = std::vector<PeripheralBattery>;
using InsightIDs = std::set<UUID>;
using OptionalFlag = std::optional<bool>;
using Projects = std::vector<Project>;
using Ports = std::vector<Port>;
using IdleServers = std::vector<IdleServer>;

class MonitorStore : public QObject {
  Q_OBJECT
  Q_PROPERTY(omnira::OptionalSystemSample system READ system NOTIFY systemChanged)
  Q_PROPERTY(omnira::SystemSamples systemHistory READ systemHistory NOTIFY systemHistoryChanged)
  Q_PROPERTY(omnira::AppGroups groups READ groups NOTIFY groupsChanged)
  Q_PROPERTY(bool showsSystemInLists READ showsSystemInLists NOTIFY showsSystemInListsChanged)
  Q_PROPERTY(omnira::GroupHistory groupHistory READ groupHistory NOTIFY groupHistoryChanged)
  Q_PROPERTY(qint64 unmeasuredProcessCount READ unmeasuredProcessCount NOTIFY unmeasuredProcessCountChanged)
  Q_PROPERTY(quint64 sessionBytesReceived READ sessionBytesReceived NOTIFY sessionBytesReceivedChanged)
  Q_PROPERTY(quint64 sessionBytesSent READ sessionBytesSent NOTIFY sessionBytesSentChanged)
  Q_PROPERTY(omnira::UsageLedger ledger READ ledger NOTIFY ledgerChanged)
  Q_PROPERTY(omnira::Insights insights READ insights NOTIFY insightsChanged)
  Q_PROPERTY(omnira::InsightIDs pinnedInsightIDs READ pinnedInsightIDs NOTIFY pinnedInsightIDsChanged)
  Q_PROPERTY(bool powerIsEstimated READ powerIsEstimated NOTIFY powerIsEstimatedChanged)
  Q_PROPERTY(omnira::OptionalFlag hasGPUReading READ hasGPUReading NOTIFY hasGPUReadingChanged)
  Q_PROPERTY(omnira::OptionalFlag hasNeuralEngine READ hasNeuralEngine NOTIFY hasNeuralEngineChanged)
  Q_PROPERTY(omnira::OptionalFlag hasBattery READ hasBattery NOTIFY hasBatteryChanged)
  Q_PROPERTY(omnira::OptionalFlag hasTemperature READ hasTemperature NOTIFY hasTemperatureChanged)
  Q_PROPERTY(omnira::OptionalFlag hasSystemPower READ hasSystemPower NOTIFY hasSystemPowerChanged)
  // Every sensor of the last tick; the thermal part of it, and live rings of both.
  Q_PROPERTY(omnira::OptionalSensorSample sensors READ sensors NOTIFY sensorsChanged)
  Q_PROPERTY(omnira::OptionalThermalSample thermal READ thermal NOTIFY thermalChanged)
  Q_PROPERTY(omnira::ThermalSamples thermalHistory READ thermalHistory NOTIFY thermalHistoryChanged)
  Q_PROPERTY(omnira::PowerHistory powerHistory READ powerHistory NOTIFY powerHistoryChanged)
  // Batteries of mice, keyboards and headsets: read at most every 10 s, and only while
  // something asked for them (requestPeripherals).
  Q_PROPERTY(omnira::PeripheralBatteries peripherals READ peripherals NOTIFY peripheralsChanged)
  Q_PROPERTY(omnira::StrainSince strainSince READ strainSince NOTIFY strainSinceChanged)
  Q_PROPERTY(omnira::ProcessDetails processDetails READ processDetails NOTIFY processDetailsChanged)
  Q_PROPERTY(omnira::ProcessDetails measuredDetails READ measuredDetails NOTIFY measuredDetailsChanged)
  Q_PROPERTY(int viewers READ viewers WRITE setViewers NOTIFY viewersChanged)
  Q_PROPERTY(bool isPrimed READ isPrimed NOTIFY isPrimedChanged)
  // From the last project scan (every two minutes, or every tick while a view wants projects).
  Q_PROPERTY(omnira::Projects projects READ projects NOTIFY projectsChanged)
  Q_PROPERTY(omnira::Ports ports READ ports NOTIFY portsChanged)
  Q_PROPERTY(omnira::IdleServers idleServers READ idleServers NOTIFY idleServersChanged)
  // The engines' containers: names and ports after each project scan; with their figures,
  // every 10 s, while something wants containers (requestContainers).
  Q_PROPERTY(omnira::ContainerSnapshot containers READ containers NOTIFY containersChanged)

 public:
  using LiveHistory = omnira::LiveHistory;

  struct Options {
    AppPaths paths;
    Settings settings;
    SamplingParts parts = SamplingParts::thisMachine();
    std::string systemName = "Linux";  // stands for the operating system in insight sentences
  };

  explicit MonitorStore(Options options, QObject* parent = nullptr);
  ~MonitorStore() override;

  // Loads the saved state, opens the history, starts the worker and the loop.
  void start();
  // Ends the loop and the worker, closes the open reading period, saves the live history,
  // the ledger and the insights, and checkpoints the history. Safe to call twice.
  void stop();

  void restartLoop();
  // Settings changed on disk: applies within the current sleep.
  void applySettings(const Settings& settings);
  const Settings& settings() const { return settings_; }

  // Published figures.
  const OptionalSystemSample& system() const { return system_; }
  const SystemSamples& systemHistory() const { return systemHistory_; }
  const AppGroups& groups() const { return groups_; }
  // Every group including the system group, whatever the lists show.
  const AppGroups& allGroups() const { return allGroups_; }
  bool showsSystemInLists() const { return showsSystemInLists_; }
  const GroupHistory& groupHistory() const { return groupHistory_; }
  qint64 unmeasuredProcessCount() const { return unmeasuredProcessCount_; }
  quint64 sessionBytesReceived() const { return sessionBytesReceived_; }
  quint64 sessionBytesSent() const { return sessionBytesSent_; }
  const UsageLedger& ledger() const { return ledger_; }
  const UsageLedger& liveLedger() const { return liveLedger_; }
  std::optional<Date> ledgerPublishedAt() const { return ledgerPublishedAt_; }
  const Insights& insights() const { return worthALook_.insights(); }
  const InsightIDs& pinnedInsightIDs() const { return worthALook_.pinned(); }
  bool powerIsEstimated() const { return powerIsEstimated_; }
  OptionalFlag hasGPUReading() const { return hasGPUReading_; }
  OptionalFlag hasNeuralEngine() const { return hasNeuralEngine_; }
  OptionalFlag hasBattery() const { return hasBattery_; }
  OptionalFlag hasTemperature() const { return hasTemperature_; }
  OptionalFlag hasSystemPower() const { return hasSystemPower_; }
  const OptionalSensorSample& sensors() const { return sensors_; }
  const OptionalThermalSample& thermal() const { return thermal_; }
  const ThermalSamples& thermalHistory() const { return thermalHistory_; }
  const PowerHistory& powerHistory() const { return powerHistory_; }
  const PeripheralBatteries& peripherals() const { return peripherals_; }
  // Peripheral batteries are read while at least one requester wants them.
  void requestPeripherals(const std::string& requester, bool wanted);
  const StrainSince& strainSince() const { return strainSince_; }
  ProcessDetails processDetails() const { return processDetails_; }
  ProcessDetails measuredDetails() const { return measuredDetails_; }
  ProcessDetails previousSampleDetails() const { return previousSampleDetails_; }
  int viewers() const { return viewers_; }
  const Projects& projects() const { return projects_; }
  const Ports& ports() const { return ports_; }
  const IdleServers& idleServers() const { return idleServers_; }
  const ContainerSnapshot& containers() const { return containers_; }
  // When the groups were sampled; absent before the first process sample.
  std::optional<Date> groupsAt() const { return groupsAt_; }
  // Every TCP port a process of any user listens on, from the last project scan.
  const std::vector<uint16_t>& listening() const { return listening_; }
  bool isPrimed() const { return isPrimed_; }
  bool onBattery() const;
  HistorySpan historySpan() const;
  // Absent while the file cannot be opened; it may be another object after a tick (the
  // file was opened late, or made again after its folder was removed).
  HistoryDatabase* history() const { return history_.database(); }
  int64_t tickCount() const { return loop_ ? loop_->tickCount() : 0; }

  // Operations the views call.
  void setViewers(int viewers);
  void viewerAppeared() { setViewers(viewers_ + 1); }
  void viewerDisappeared() { setViewers(std::max(0, viewers_ - 1)); }
  // A view wants costly details while it is open; an empty request withdraws it.
  void requestDetails(const std::string& requester, ProcessDetails details);
  void noteInsights(const std::vector<Insight>& fresh);
  void clearInsights();
  void togglePin(const UUID& id);
  bool isPinned(const UUID& id) const { return worthALook_.isPinned(id); }
  void saveLedger();
  // Writes new insights and the strain into the file, on top of what it says now.
  void saveInsights();
  void saveLiveHistory();
  Result<HistoryExport::Files, HistoryExport::Failure> exportHistory(const std::filesystem::path& folder, Date since);
  Result<HistoryExport::Files, HistoryExport::Failure> exportHistoryToDownloads(Date since);
  Result<void, HistoryDatabase::Failure> deleteHistory();
  // A view or the bridge wants the containers' figures while it is open; false withdraws it.
  void requestContainers(const std::string& requester, bool wanted);
  // The installed applications changed: the grouper reads them again at the next sample.
  void reloadApps() { reloadApps_ = true; }

 signals:
  void projectsChanged();
  void portsChanged();
  void idleServersChanged();
  void containersChanged();
  void systemChanged();
  void systemHistoryChanged();
  void groupsChanged();
  void showsSystemInListsChanged();
  void groupHistoryChanged();
  void unmeasuredProcessCountChanged();
  void sessionBytesReceivedChanged();
  void sessionBytesSentChanged();
  void ledgerChanged();
  void insightsChanged();
  void pinnedInsightIDsChanged();
  void powerIsEstimatedChanged();
  void hasGPUReadingChanged();
  void hasNeuralEngineChanged();
  void hasBatteryChanged();
  void hasTemperatureChanged();
  void hasSystemPowerChanged();
  void sensorsChanged();
  void thermalChanged();
  void thermalHistoryChanged();
  void powerHistoryChanged();
  void peripheralsChanged();
  void strainSinceChanged();
  void processDetailsChanged();
  void measuredDetailsChanged();
  void viewersChanged();
  void isPrimedChanged();
  // After every tick, once everything above is published.
  void ticked();
  // The insights a tick raised, newest last, for notifications.
  void insightsRaised(const omnira::Insights& fresh);

 private:
  void step();
  void send(SamplingRequest request);
  void received(const SamplingResult& result);
  void refresh(const SamplingResult& result);
  void resumed(double sleptSeconds);
  void publishSystem(const SystemSample& sample, Date at);
  void publishSensors(const SamplingResult& result, Date at);
  bool wantsPeripherals(Date at) const;
  void publishGroups(std::vector<AppGroup> groups, Date at);
  // After a project scan (`scanned`), or when the containers changed.
  void publishProjects(bool scanned, Date at);
  void askContainers(Date at);
  void receivedContainers(const ContainerSnapshot& snapshot);
  void listGroups();
  void recordHistory(const SystemSample& sample, TickGroups freshness, Date at);
  // Opens the history late, or again after its folder or file was removed.
  void keepHistory();
  // The history was deleted (here or by `omnira history delete --all`): drops what is held
  // from before it, so it is not written back.
  void followHistory();
  void runInsights(const SystemSample& sample, Date at);
  void rearmSleep();
  SamplingLoop::Conditions conditions() const;
  std::optional<double> refreshSetting() const;
  void loadSavedState();
  void changeInsights(const std::function<void(WorthALook&)>& change);
  void reloadInsights();
  void adoptInsights(WorthALook next);

  Options options_;
  Settings settings_;

  OptionalSystemSample system_;
  SystemSamples systemHistory_;
  AppGroups groups_;
  AppGroups allGroups_;
  bool showsSystemInLists_ = false;
  GroupHistory groupHistory_;
  qint64 unmeasuredProcessCount_ = 0;
  quint64 sessionBytesReceived_ = 0;
  quint64 sessionBytesSent_ = 0;
  UsageLedger ledger_;
  UsageLedger liveLedger_;
  std::optional<Date> ledgerPublishedAt_;
  WorthALook worthALook_;
  std::vector<Insight> unsavedInsights_;  // raised but not yet in the file
  std::unique_ptr<SavedFileWatcher> insightsWatcher_;
  bool powerIsEstimated_ = false;
  OptionalFlag hasGPUReading_, hasNeuralEngine_, hasBattery_, hasTemperature_, hasSystemPower_;
  OptionalSensorSample sensors_;
  OptionalThermalSample thermal_;
  ThermalSamples thermalHistory_;
  PowerHistory powerHistory_;
  PeripheralBatteries peripherals_;
  std::set<std::string> peripheralRequests_;
  std::optional<Date> peripheralsAt_;
  StrainSince strainSince_;
  StrainTracker strainTracker_;
  InsightEngine insightEngine_;
  ProcessDetails processDetails_;
  std::map<std::string, ProcessDetails> detailRequests_;
  ProcessDetails measuredDetails_;
  ProcessDetails previousSampleDetails_;
  Projects projects_;
  Ports ports_;
  IdleServers idleServers_;
  ServerWatcher serverWatcher_;
  std::optional<SamplingResult::Sockets> lastSockets_;  // of the last project scan
  std::vector<uint16_t> listening_;
  std::optional<Date> groupsAt_;
  ContainerSnapshot containers_;
  std::set<std::string> containerRequests_;
  bool containersInFlight_ = false;
  bool scannedSinceContainers_ = false;
  std::optional<Date> lastContainersAskedAt_;
  int viewers_ = 0;
  bool isPrimed_ = false;
  std::optional<Date> lastNetworkDetailsAt_, lastProjectScanAt_, lastLedgerSaveAt_;

  HistoryKeeper history_;
  uint64_t historyGeneration_ = 0;
  HistoryPruner pruner_;
  ReadingsRecorder readings_;
  uint64_t historyRestarts_ = 0;

  QThread workerThread_;
  SamplingWorker* worker_ = nullptr;  // lives on workerThread_, deleted when it finishes
  QThread containerThread_;
  ContainerWorker* containerWorker_ = nullptr;  // lives on containerThread_, likewise
  std::optional<SamplingLoop> loop_;
  BootClockTimer sleep_;
  bool inFlight_ = false;
  bool sleepingAfterTick_ = false;
  double lastTickEnd_ = 0;  // boot clock
  uint64_t serial_ = 0;
  bool reloadApps_ = false;
  bool started_ = false;
  bool stopped_ = false;
};

}  // namespace omnira
