#include "Omnira/presentation/LiveFigures.h"

#include <algorithm>

#include "Omnira/MonitorStore.h"
#include "Omnira/presentation/Figures.h"
#include "OmniraCore/history/WorthALook.h"

namespace omnira::presentation {

LiveFigures::LiveFigures(MonitorStore* store, QObject* parent) : QObject(parent), store_(store) {}

void LiveFigures::setActive(bool active) {
  if (active == active_) return;
  active_ = active;
  if (!active_) {
    disconnect(ticked_);
    return;
  }
  ticked_ = connect(store_, &MonitorStore::ticked, this, &LiveFigures::refresh);
  refresh();
}

void LiveFigures::setTopAppsBy(const QString& metric) {
  const bool byMemory = metric == QLatin1String("memory");
  if (byMemory == byMemory_ || (!byMemory && metric != QLatin1String("cpu"))) return;
  byMemory_ = byMemory;
  if (active_)
    refresh();
  else
    emit changed();
}

void LiveFigures::refresh() {
  const auto& sample = store_->system();
  hasSample_ = sample.has_value();
  if (sample) {
    cpu_ = std::clamp(sample->cpu(), 0.0, 1.0);
    cpuText_ = percentText(cpu_);
    loadText_ = tr("Load %1 on %2 cores").arg(sample->loadAverage, 0, 'f', 2).arg(sample->cpuPerCore.size());
    memory_ = std::clamp(sample->memoryUsedFraction(), 0.0, 1.0);
    memoryText_ = tr("%1 of %2").arg(bytesText(sample->memoryUsed()), bytesText(sample->memoryTotal));
    pressure_ = std::clamp(sample->memoryPressureFraction, 0.0, 1.0);
    pressureLevel_ = static_cast<int>(sample->pressure);
    pressureText_ = sample->pressure == MemoryPressure::critical  ? tr("Critical")
                    : sample->pressure == MemoryPressure::warning ? tr("Warning")
                                                                  : tr("Normal");
    swapText_ = tr("Swap %1").arg(bytesText(sample->swapUsed));
    diskReadText_ = tr("Read %1").arg(rateText(sample->diskReadBytesPerSec));
    diskWriteText_ = tr("Write %1").arg(rateText(sample->diskWriteBytesPerSec));
    networkInText_ = tr("In %1").arg(rateText(sample->networkInBytesPerSec));
    networkOutText_ = tr("Out %1").arg(rateText(sample->networkOutBytesPerSec));
  }
  strainText_ = QString::fromStdString(WorthALook::strainLine(store_->strainSince(), std::chrono::system_clock::now()));

  const auto& history = store_->systemHistory();
  cpuHistory_.clear();
  memoryHistory_.clear();
  pressureHistory_.clear();
  diskReadHistory_.clear();
  diskWriteHistory_.clear();
  networkInHistory_.clear();
  networkOutHistory_.clear();
  size_t cores = 0;
  for (const auto& point : history) cores = std::max(cores, point.cpuPerCore.size());
  std::vector<QList<qreal>> perCore(cores);
  for (const auto& point : history) {
    cpuHistory_.append(point.cpu());
    memoryHistory_.append(point.memoryUsedFraction());
    pressureHistory_.append(point.memoryPressureFraction);
    diskReadHistory_.append(point.diskReadBytesPerSec);
    diskWriteHistory_.append(point.diskWriteBytesPerSec);
    networkInHistory_.append(point.networkInBytesPerSec);
    networkOutHistory_.append(point.networkOutBytesPerSec);
    // A point from before a core came online reads as idle on it.
    for (size_t core = 0; core < cores; ++core)
      perCore[core].append(core < point.cpuPerCore.size() ? point.cpuPerCore[core] : 0.0);
  }
  coreHistories_.clear();
  for (auto& series : perCore) coreHistories_.append(QVariant::fromValue(series));

  std::vector<const AppGroup*> ranked;
  for (const auto& group : store_->groups()) ranked.push_back(&group);
  const auto shown = std::min<size_t>(ranked.size(), topAppCount);
  std::partial_sort(ranked.begin(), ranked.begin() + static_cast<std::ptrdiff_t>(shown), ranked.end(),
                    [this](const AppGroup* a, const AppGroup* b) {
                      return byMemory_ ? a->memoryBytes() > b->memoryBytes() : a->cpuPercent() > b->cpuPercent();
                    });
  topApps_.clear();
  for (size_t i = 0; i < shown; ++i) {
    const AppGroup& group = *ranked[i];
    topApps_.append(QVariantMap{{"groupID", nameText(group.id)},
                                {"name", nameText(group.name)},
                                {"cpu", QStringLiteral("%1 %").arg(group.cpuPercent(), 0, 'f', 1)},
                                {"memory", bytesText(group.memoryBytes())}});
  }
  emit changed();
}

}  // namespace omnira::presentation
