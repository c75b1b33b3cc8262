#include "Omnira/MonitorStore.h"

#include <unistd.h>

#include <algorithm>

#include <spdlog/spdlog.h>

#include "OmniraCore/foundation/SettingsKeys.h"
#include "OmniraCore/history/Strain.h"

namespace omnira {

namespace {

// Sets `field` and reports whether it changed, so a signal fires only on a real change.
template <class T>
bool assign(T& field, T value) {
  if (field == value) return false;
  field = std::move(value);
  return true;
}

constexpr const char* liveFile = "live.json";
constexpr const char* insightsFile = "insights.json";
constexpr const char* ledgerFile = "usage.json";
constexpr const char* historyFile = "history.sqlite";

GroupPoint pointOf(const AppGroup& group, Date at) {
  return {at,
          group.cpuPercent(),
          group.memoryBytes(),
          group.powerWatts(),
          group.diskReadBytesPerSec() + group.diskWriteBytesPerSec(),
          group.networkInBytesPerSec() + group.networkOutBytesPerSec()};
}

}  // namespace

MonitorStore::MonitorStore(Options options, QObject* parent)
    : QObject(parent), options_(std::move(options)), settings_(options_.settings),
      insightEngine_(options_.systemName),
      history_(options_.paths.dataFile(historyFile), options_.paths.dataFile(InstanceLock::fileName)), sleep_(this) {
  showsSystemInLists_ = settings_.boolean(SettingsKeys::showsSystemInLists);
  connect(&sleep_, &BootClockTimer::timeout, this, &MonitorStore::step);
  if (!sleep_.failure().empty()) spdlog::debug("{}", sleep_.failure());
}

MonitorStore::~MonitorStore() { stop(); }

void MonitorStore::start() {
  if (started_) return;
  started_ = true;
  loadSavedState();

  history_.open(BootClockTimer::now());
  historyGeneration_ = history_.generation();

  worker_ = new SamplingWorker(options_.parts);
  worker_->moveToThread(&workerThread_);
  connect(&workerThread_, &QThread::finished, worker_, &QObject::deleteLater);
  connect(worker_, &SamplingWorker::sampled, this, &MonitorStore::received, Qt::QueuedConnection);
  workerThread_.setObjectName("Omnira sampler");
  workerThread_.start(QThread::LowPriority);
  if (options_.parts.containers) {
    containerWorker_ = new ContainerWorker(options_.parts.containers);
    containerWorker_->moveToThread(&containerThread_);
    connect(&containerThread_, &QThread::finished, containerWorker_, &QObject::deleteLater);
    connect(containerWorker_, &ContainerWorker::sampled, this, &MonitorStore::receivedContainers, Qt::QueuedConnection);
    containerThread_.setObjectName("Omnira containers");
    containerThread_.start(QThread::LowPriority);
  }
  insightsWatcher_ = std::make_unique<SavedFileWatcher>(
      options_.paths.dataFile(insightsFile), "what `omnira insights` changes shows here when Omnira next saves the insights.");
  connect(insightsWatcher_.get(), &SavedFileWatcher::changed, this, &MonitorStore::reloadInsights);
  saveInsights();  // strain that a run which crashed left in the file is not ours
  restartLoop();
}

void MonitorStore::loadSavedState() {
  const Date now = std::chrono::system_clock::now();
  if (auto live = LiveHistory::load(options_.paths.dataFile(liveFile))) {
    live->trim(now, HistorySpans::seconds(historySpan()));
    systemHistory_ = std::move(live->systemHistory);
    groupHistory_ = std::move(live->groupHistory);
  } else {
    spdlog::warn("Starting with empty charts: {}", live.error().message);
  }
  if (auto list = WorthALook::load(options_.paths.dataFile(insightsFile))) {
    worthALook_ = std::move(*list);
    insightEngine_.seedCooldowns(worthALook_.insights());
  } else {
    spdlog::warn("Starting with no insights: {}", list.error().message);
  }
  if (auto ledger = UsageLedger::load(options_.paths.dataFile(ledgerFile))) {
    liveLedger_ = std::move(*ledger);
    ledger_ = liveLedger_;
  } else {
    spdlog::warn("Starting a new usage ledger: {}", ledger.error().message);
  }
}

void MonitorStore::stop() {
  if (!started_ || stopped_) return;
  stopped_ = true;
  if (loop_) loop_->cancel();
  sleep_.stop();
  if (worker_) disconnect(worker_, nullptr, this, nullptr);
  workerThread_.quit();
  workerThread_.wait();
  worker_ = nullptr;
  // An engine being asked holds this up by its time-out at most.
  if (containerWorker_) disconnect(containerWorker_, nullptr, this, nullptr);
  containerThread_.quit();
  containerThread_.wait();
  containerWorker_ = nullptr;
  insightsWatcher_.reset();

  followHistory();
  if (auto* history = history_.database()) {
    // A failure was logged by the history itself.
    if (auto row = readings_.close()) (void)history->writeReading(*row);
  }
  saveLiveHistory();
  saveLedger();
  saveInsights();
  if (auto* history = history_.database()) {
    if (auto done = history->checkpoint(); !done) spdlog::warn("Could not checkpoint the history: {}", done.error().message);
  }
}

// The loop -----------------------------------------------------------------------------

void MonitorStore::restartLoop() {
  if (stopped_) return;
  if (loop_) loop_->cancel();
  sleep_.stop();
  sleepingAfterTick_ = false;
  loop_.emplace(isPrimed_);
  // A sample in flight finishes first; the new loop takes over when it lands.
  if (!inFlight_) step();
}

SamplingLoop::Conditions MonitorStore::conditions() const {
  return {viewers_, refreshSetting(), onBattery()};
}

std::optional<double> MonitorStore::refreshSetting() const {
  return settings_.number(SettingsKeys::refreshSeconds);
}

void MonitorStore::step() {
  if (!loop_ || stopped_) return;
  const auto next = loop_->next(conditions());
  sleepingAfterTick_ = false;
  switch (next.kind) {
    case SamplingLoop::Step::Kind::prime:
      send({0, true, false, {}, false});
      break;
    case SamplingLoop::Step::Kind::sleep:
      sleepingAfterTick_ = isPrimed_ && loop_->tickCount() > 0;
      sleep_.start(next.seconds, next.tolerance);
      break;
    case SamplingLoop::Step::Kind::tick: {
      const Date now = std::chrono::system_clock::now();
      ProcessDetails details;
      if (next.includeProcesses)
        details = SamplingSchedule::details(processDetails_, now, lastNetworkDetailsAt_, lastProjectScanAt_, onBattery());
      SamplingRequest request{0, false, next.includeProcesses, details, false};
      request.peripherals = wantsPeripherals(now);
      send(request);
      break;
    }
    case SamplingLoop::Step::Kind::end:
      break;
  }
}

void MonitorStore::send(SamplingRequest request) {
  request.serial = ++serial_;
  request.reloadApps = std::exchange(reloadApps_, false);
  request.containers = containers_;
  inFlight_ = true;
  QMetaObject::invokeMethod(worker_, [worker = worker_, request] { worker->sample(request); }, Qt::QueuedConnection);
}

void MonitorStore::received(const SamplingResult& result) {
  if (stopped_) return;
  inFlight_ = false;
  if (result.primed) {
    if (assign(isPrimed_, true)) emit isPrimedChanged();
  } else if (result.system.sleptSeconds > 0) {
    resumed(result.system.sleptSeconds);
    return;
  } else {
    refresh(result);
    lastTickEnd_ = BootClockTimer::now();
  }
  step();
}

void MonitorStore::resumed(double sleptSeconds) {
  // Nothing of this tick is booked: its figures would spread the last awake seconds over
  // the whole sleep. Both samplers take a new baseline, as at start, and the app rows are
  // measured afresh on the tick after it.
  spdlog::info("The computer slept for {:.0f} s; measuring afresh.", sleptSeconds);
  if (assign(isPrimed_, false)) emit isPrimedChanged();
  restartLoop();
}

void MonitorStore::rearmSleep() {
  // Only the sleep between ticks follows the cadence; the second after priming stays.
  if (!sleep_.isActive() || !sleepingAfterTick_) return;
  const auto interval = SamplingSchedule::interval(viewers_, refreshSetting(), onBattery());
  const double remaining = std::max(0.0, lastTickEnd_ + interval.seconds - BootClockTimer::now());
  sleep_.start(remaining, interval.tolerance);
  sleepingAfterTick_ = true;
}

// One tick ------------------------------------------------------------------------------

void MonitorStore::refresh(const SamplingResult& result) {
  const Date at = result.at;
  const SystemSample& sample = result.system;
  keepHistory();
  followHistory();
  publishSystem(sample, at);

  publishSensors(result, at);

  // Strain judges the CPU's temperature, else the hottest sensor's, as the hot insight does.
  const double hotCelsius = settings_.number(SettingsKeys::insightHotCelsius);
  std::optional<double> celsius;
  if (thermal_) celsius = thermal_->cpuCelsius ? thermal_->cpuCelsius : thermal_->hottestCelsius;
  if (strainTracker_.note(Strain::kinds(sample, celsius, hotCelsius), at) &&
      assign(strainSince_, strainTracker_.since())) {
    emit strainSinceChanged();
    saveInsights();  // `omnira insights` and `omnira snapshot` show it from there
  }
  if (auto* history = history_.database()) {
    ReadingsRecorder::Tick tick;
    if (result.sensors) {
      tick.thermal = result.sensors->thermal();
      tick.thermalState = ReadingsRecorder::thermalState(*result.sensors);
      tick.powerWatts = result.sensors->systemWatts;
      tick.neuralEngineLoad = result.sensors->npuBusy();
    }
    // A write that fails is logged by the history, once until writing works again.
    if (auto row = readings_.record(sample, tick, at)) (void)history->writeReading(*row);
  }

  if (result.groups) {
    previousSampleDetails_ = measuredDetails_;
    if (assign(measuredDetails_, result.measured)) emit measuredDetailsChanged();
    if (result.measured.network) lastNetworkDetailsAt_ = at;
    if (result.measured.projects) lastProjectScanAt_ = at;
    // No per-process energy counter on Linux: power is always the estimate.
    if (assign(powerIsEstimated_, !ProcessSampler::kernelCountsEnergy)) emit powerIsEstimatedChanged();
    if (assign(unmeasuredProcessCount_, static_cast<qint64>(result.unmeasured))) emit unmeasuredProcessCountChanged();
    groupsAt_ = at;
    publishGroups(*result.groups, at);
    if (result.sockets) {
      lastSockets_ = std::move(result.sockets);
      scannedSinceContainers_ = true;
      publishProjects(/*scanned=*/true, at);
    }
  }
  askContainers(at);

  const auto freshness = result.groups ? TickGroups::fresh : TickGroups::repeated;
  recordHistory(sample, freshness, at);
  if (sample.interval > 0) liveLedger_.record(allGroups_, freshness, sample.interval, at);
  runInsights(sample, at);

  if (SamplingSchedule::publishesLedger(ledgerPublishedAt_, at)) {
    ledgerPublishedAt_ = at;
    if (assign(ledger_, liveLedger_)) emit ledgerChanged();
  }
  if (SamplingSchedule::savesLedger(lastLedgerSaveAt_, at, onBattery())) saveLedger();
  emit ticked();
}

void MonitorStore::publishProjects(bool scanned, Date at) {
  const auto person = static_cast<uint32_t>(::geteuid());
  if (assign(projects_, Project::of(allGroups_, person, &containers_))) emit projectsChanged();
  if (!lastSockets_) return;
  auto ports = Port::of(lastSockets_->sockets, lastSockets_->holders, allGroups_, person, &containers_);
  listening_.clear();
  for (const auto& socket : lastSockets_->sockets)
    if (socket.is(TCPSocket::State::listening)) listening_.push_back(socket.localPort);
  std::sort(listening_.begin(), listening_.end());
  listening_.erase(std::unique(listening_.begin(), listening_.end()), listening_.end());
  if (scanned) {
    // Idleness is judged on fresh figures only.
    if (assign(idleServers_, serverWatcher_.ingest(ports, allGroups_, at))) emit idleServersChanged();
  }
  if (assign(ports_, std::move(ports))) emit portsChanged();
}

void MonitorStore::requestContainers(const std::string& requester, bool wanted) {
  const bool before = !containerRequests_.empty();
  if (wanted) containerRequests_.insert(requester);
  else containerRequests_.erase(requester);
  // Someone who just asked should not wait for the next tick's end.
  if (!before && wanted && isPrimed_) askContainers(std::chrono::system_clock::now());
}

void MonitorStore::askContainers(Date at) {
  if (!containerWorker_ || stopped_) return;
  using Work = SamplingSchedule::ContainerWork;
  const auto work = SamplingSchedule::containerWork(!containerRequests_.empty(), scannedSinceContainers_,
                                                    containersInFlight_, lastContainersAskedAt_, at);
  if (work == Work::none) return;
  containersInFlight_ = true;
  scannedSinceContainers_ = false;
  lastContainersAskedAt_ = at;
  QMetaObject::invokeMethod(
      containerWorker_, [worker = containerWorker_, stats = work == Work::stats] { worker->sample(stats); },
      Qt::QueuedConnection);
}

void MonitorStore::receivedContainers(const ContainerSnapshot& snapshot) {
  if (stopped_) return;
  containersInFlight_ = false;
  if (!assign(containers_, snapshot)) return;
  emit containersChanged();
  containers_.nameGroups(allGroups_);
  listGroups();
  publishProjects(/*scanned=*/false, std::chrono::system_clock::now());
}

void MonitorStore::publishSensors(const SamplingResult& result, Date at) {
  if (result.peripherals) {
    peripheralsAt_ = at;
    if (assign(peripherals_, *result.peripherals)) emit peripheralsChanged();
  }
  if (!result.sensors) return;
  const SensorSample& sensors = *result.sensors;
  if (assign(hasTemperature_, OptionalFlag(sensors.hasTemperature()))) emit hasTemperatureChanged();
  if (assign(hasSystemPower_, OptionalFlag(sensors.systemWatts.has_value()))) emit hasSystemPowerChanged();
  if (assign(thermal_, sensors.thermal())) emit thermalChanged();
  if (assign(sensors_, OptionalSensorSample(sensors))) emit sensorsChanged();

  // The rings keep as many points as the system chart.
  const size_t limit = static_cast<size_t>(std::max(1, HistorySpans::samples(historySpan(), refreshSetting())));
  auto keep = [limit](auto& ring) {
    if (ring.size() > limit) ring.erase(ring.begin(), ring.end() - static_cast<ptrdiff_t>(limit));
  };
  if (thermal_) {
    thermalHistory_.push_back(*thermal_);
    keep(thermalHistory_);
    emit thermalHistoryChanged();
  }
  if (sensors.systemWatts) {
    powerHistory_.push_back(*sensors.systemWatts);
    keep(powerHistory_);
    emit powerHistoryChanged();
  }
}

bool MonitorStore::wantsPeripherals(Date at) const {
  if (peripheralRequests_.empty()) return false;
  return !peripheralsAt_ || std::chrono::duration<double>(at - *peripheralsAt_).count() >= SamplingSchedule::peripheralSeconds;
}

void MonitorStore::requestPeripherals(const std::string& requester, bool wanted) {
  if (wanted) peripheralRequests_.insert(requester);
  else peripheralRequests_.erase(requester);
}

void MonitorStore::publishSystem(const SystemSample& sample, Date at) {
  if (assign(hasGPUReading_, OptionalFlag(sample.gpuUtilization.has_value()))) emit hasGPUReadingChanged();
  if (assign(hasNeuralEngine_, OptionalFlag(sample.neuralEngineActive.has_value()))) emit hasNeuralEngineChanged();
  if (assign(hasBattery_, OptionalFlag(sample.battery.has_value()))) emit hasBatteryChanged();
  if (assign(system_, OptionalSystemSample(sample))) emit systemChanged();

  systemHistory_.push_back(sample);
  const size_t limit = static_cast<size_t>(std::max(1, HistorySpans::samples(historySpan(), refreshSetting())));
  if (systemHistory_.size() > limit)
    systemHistory_.erase(systemHistory_.begin(), systemHistory_.end() - static_cast<ptrdiff_t>(limit));
  emit systemHistoryChanged();

  if (sample.networkBytesReceived) {
    sessionBytesReceived_ += sample.networkBytesReceived;
    emit sessionBytesReceivedChanged();
  }
  if (sample.networkBytesSent) {
    sessionBytesSent_ += sample.networkBytesSent;
    emit sessionBytesSentChanged();
  }
  if (sample.interval > 0) liveLedger_.record(sample.interval, at);
}

void MonitorStore::publishGroups(std::vector<AppGroup> groups, Date at) {
  const double span = HistorySpans::seconds(historySpan());
  for (const auto& group : groups) groupHistory_[group.id].push_back(pointOf(group, at));
  for (auto it = groupHistory_.begin(); it != groupHistory_.end();) {
    auto& points = it->second;
    std::erase_if(points, [&](const GroupPoint& p) { return std::chrono::duration<double>(at - p.date).count() > span; });
    it = points.empty() ? groupHistory_.erase(it) : std::next(it);
  }
  emit groupHistoryChanged();
  allGroups_ = std::move(groups);
  listGroups();
}

void MonitorStore::listGroups() {
  AppGroups listed;
  listed.reserve(allGroups_.size());
  for (const auto& group : allGroups_)
    if (showsSystemInLists_ || group.kind != GroupKind::system) listed.push_back(group);
  if (assign(groups_, std::move(listed))) emit groupsChanged();
}

void MonitorStore::recordHistory(const SystemSample& sample, TickGroups freshness, Date at) {
  auto* history = history_.database();
  if (!history) return;
  // Failures to write are logged by the history, once when they start and once when they end.
  (void)pruner_.pruneIfDue(*history, HistoryRetention::days(settings_), at);
  (void)history->record(sample, allGroups_, freshness, at);
}

void MonitorStore::keepHistory() {
  history_.check(BootClockTimer::now());
  if (history_.generation() == historyGeneration_) return;
  historyGeneration_ = history_.generation();
  // Another file: its restarts count from nothing, and it is pruned at its first tick.
  historyRestarts_ = 0;
  pruner_ = HistoryPruner();
}

void MonitorStore::followHistory() {
  auto* history = history_.database();
  if (!history) return;
  auto restarts = history->restarts();
  if (!restarts) {
    spdlog::warn("Could not look at the history: {}", restarts.error().message);
    return;
  }
  if (*restarts == historyRestarts_) return;
  historyRestarts_ = *restarts;
  // Deleting all history deletes the usage ledger and the insights too (the command says so).
  readings_.startAfresh();
  liveLedger_ = UsageLedger();
  if (assign(ledger_, liveLedger_)) emit ledgerChanged();
  saveLedger();
  unsavedInsights_.clear();
  changeInsights([strain = strainSince_](WorthALook& list) {
    list = WorthALook();
    list.setStrain(strain);
  });
}

void MonitorStore::runInsights(const SystemSample& sample, Date at) {
  // The table's getters give finite, positive figures whatever the file holds.
  auto& t = insightEngine_.thresholds;
  t.cpuPercent = settings_.number(SettingsKeys::insightCPUPercent);
  t.cpuWindow = settings_.number(SettingsKeys::insightCPUMinutes) * 60;
  t.memoryGrowthBytes = InsightEngine::Thresholds::bytesFromGigabytes(settings_.number(SettingsKeys::insightMemoryGrowthGB));
  t.diskBurstBytes = InsightEngine::Thresholds::bytesFromGigabytes(settings_.number(SettingsKeys::insightDiskBurstGB));
  t.networkBurstBytes = InsightEngine::Thresholds::bytesFromGigabytes(settings_.number(SettingsKeys::insightNetworkBurstGB));
  t.hotCelsius = settings_.number(SettingsKeys::insightHotCelsius);
  t.hotWindow = settings_.number(SettingsKeys::insightHotMinutes) * 60;
  t.fahrenheit = settings_.string(SettingsKeys::temperatureUnit) == "fahrenheit";
  insightEngine_.limits = SettingsKeys::appLimits(settings_);
  insightEngine_.muted = SettingsKeys::mutedApps(settings_);

  // No Linux interface tells which process uses the NPU, so the busy insight names none.
  std::optional<NeuralEngineHolder> npu;
  if (sensors_)
    if (auto busy = sensors_->npuBusy()) npu = NeuralEngineHolder{*busy, std::nullopt};
  auto fresh = insightEngine_.ingest(allGroups_, sample, std::nullopt, idleServers_, thermal_, npu, at);
  noteInsights(fresh);
}

// Operations ----------------------------------------------------------------------------

void MonitorStore::applySettings(const Settings& settings) {
  const auto oldRefresh = refreshSetting();
  const auto oldSpan = historySpan();
  settings_ = settings;
  if (assign(showsSystemInLists_, settings_.boolean(SettingsKeys::showsSystemInLists))) {
    emit showsSystemInListsChanged();
    // Only the list changes: the chart points were taken at the last tick.
    listGroups();
  }
  if (oldRefresh != refreshSetting() || oldSpan != historySpan()) {
    const size_t limit = static_cast<size_t>(std::max(1, HistorySpans::samples(historySpan(), refreshSetting())));
    if (systemHistory_.size() > limit) {
      systemHistory_.erase(systemHistory_.begin(), systemHistory_.end() - static_cast<ptrdiff_t>(limit));
      emit systemHistoryChanged();
    }
    rearmSleep();
  }
}

HistorySpan MonitorStore::historySpan() const {
  return HistorySpans::fromMinutes(settings_.integer(SettingsKeys::historySpan));
}

bool MonitorStore::onBattery() const {
  return system_ && system_->battery && !system_->battery->pluggedIn;
}

void MonitorStore::setViewers(int viewers) {
  if (!assign(viewers_, std::max(0, viewers))) return;
  emit viewersChanged();
  rearmSleep();
}

void MonitorStore::requestDetails(const std::string& requester, ProcessDetails details) {
  if (details.empty()) detailRequests_.erase(requester);
  else detailRequests_[requester] = details;
  ProcessDetails wanted;
  for (const auto& [who, asked] : detailRequests_) wanted = wanted | asked;
  if (!assign(processDetails_, wanted)) return;
  emit processDetailsChanged();
  if (isPrimed_) restartLoop();
}

void MonitorStore::noteInsights(const std::vector<Insight>& fresh) {
  if (fresh.empty()) return;
  unsavedInsights_.insert(unsavedInsights_.end(), fresh.begin(), fresh.end());
  WorthALook next = worthALook_;
  next.note(fresh);
  adoptInsights(std::move(next));
  saveInsights();
  emit insightsRaised(fresh);
}

void MonitorStore::clearInsights() {
  changeInsights([](WorthALook& list) { list.clear(); });
}

void MonitorStore::togglePin(const UUID& id) {
  changeInsights([&](WorthALook& list) { list.togglePin(id); });
}

void MonitorStore::changeInsights(const std::function<void(WorthALook&)>& change) {
  // The file, not our copy, is where a change starts: `omnira insights` may have pinned or
  // dismissed something since we last read it.
  const StrainSince strain = stopped_ ? StrainSince{} : strainSince_;
  auto apply = [&](WorthALook& list) {
    list.note(unsavedInsights_);
    list.setStrain(strain);
    if (change) change(list);
  };
  auto updated = WorthALook::update(options_.paths.dataFile(insightsFile), apply, &worthALook_);
  if (!updated) {
    spdlog::warn("Could not save the insights: {}", updated.error().message);
    WorthALook next = worthALook_;
    apply(next);
    adoptInsights(std::move(next));
    return;
  }
  unsavedInsights_.clear();
  adoptInsights(std::move(*updated));
}

void MonitorStore::reloadInsights() {
  if (stopped_) return;
  auto loaded = WorthALook::load(options_.paths.dataFile(insightsFile));
  if (!loaded) {
    spdlog::warn("Keeping the insights read before: {}", loaded.error().message);
    return;
  }
  loaded->note(unsavedInsights_);
  adoptInsights(std::move(*loaded));
}

void MonitorStore::adoptInsights(WorthALook next) {
  next.setStrain(strainSince_);  // ours is the live one; the file's is only ever shown
  const bool listChanged = next.insights() != worthALook_.insights();
  const bool pinsChanged = next.pinned() != worthALook_.pinned();
  worthALook_ = std::move(next);
  if (listChanged) emit insightsChanged();
  if (pinsChanged) emit pinnedInsightIDsChanged();
}

void MonitorStore::saveLedger() {
  lastLedgerSaveAt_ = std::chrono::system_clock::now();
  if (auto saved = liveLedger_.save(options_.paths.dataFile(ledgerFile)); !saved)
    spdlog::warn("Could not save the usage ledger: {}", saved.error().message);
}

void MonitorStore::saveInsights() { changeInsights({}); }

void MonitorStore::saveLiveHistory() {
  LiveHistory live;
  live.savedAt = std::chrono::system_clock::now();
  live.systemHistory = systemHistory_;
  live.groupHistory = groupHistory_;
  if (auto saved = live.save(options_.paths.dataFile(liveFile)); !saved)
    spdlog::warn("Could not save the live charts: {}", saved.error().message);
}

Result<HistoryExport::Files, HistoryExport::Failure> MonitorStore::exportHistory(const std::filesystem::path& folder,
                                                                              Date since) {
  auto* history = history_.database();
  if (!history) return fail(HistoryExport::Failure{"There is no history to export: the history file could not be opened."});
  return HistoryExport::write(*history, folder, since, std::chrono::system_clock::now());
}

Result<HistoryExport::Files, HistoryExport::Failure> MonitorStore::exportHistoryToDownloads(Date since) {
  return exportHistory(options_.paths.downloadsFolder(), since);
}

Result<void, HistoryDatabase::Failure> MonitorStore::deleteHistory() {
  auto* history = history_.database();
  if (!history) return {};
  return history->deleteAll(std::chrono::system_clock::now());
}

}  // namespace omnira
