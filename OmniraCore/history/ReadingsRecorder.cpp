#include "OmniraCore/history/ReadingsRecorder.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace omnira {

namespace {

int64_t clampedBytes(double bytes) {
  if (!(bytes > 0)) return 0;
  return bytes >= 9.2e18 ? INT64_MAX : std::llround(bytes);
}

}  // namespace

ReadingsRecorder::ThermalState ReadingsRecorder::thermalState(const SensorSample& sensors) {
  for (const auto& t : sensors.temperatures)
    if (t.kind == SensorKind::cpu && t.criticalCelsius && t.celsius >= *t.criticalCelsius) return ThermalState::critical;
  if (!sensors.throttledCPUs || *sensors.throttledCPUs <= 0) return ThermalState::nominal;
  if (!sensors.throttledShare) return ThermalState::serious;
  if (*sensors.throttledShare >= 0.5) return ThermalState::critical;
  if (*sensors.throttledShare >= 0.1) return ThermalState::serious;
  return ThermalState::fair;
}

std::string_view ReadingsRecorder::rawValue(ThermalState state) {
  switch (state) {
    case ThermalState::nominal: return "nominal";
    case ThermalState::fair: return "fair";
    case ThermalState::serious: return "serious";
    case ThermalState::critical: return "critical";
  }
  return "nominal";
}

void ReadingsRecorder::Figure::add(double value, double interval) {
  if (!std::isfinite(value)) return;
  peak = seconds > 0 ? std::max(peak, value) : value;
  weighted += value * interval;
  seconds += interval;
}

std::optional<double> ReadingsRecorder::Figure::average() const {
  if (!(seconds > 0)) return std::nullopt;
  return weighted / seconds;
}

std::optional<double> ReadingsRecorder::Figure::maximum() const {
  if (!(seconds > 0)) return std::nullopt;
  return peak;
}

std::optional<HistoryDatabase::ReadingRow> ReadingsRecorder::record(const SystemSample& system, const Tick& tick,
                                                                    Date at) {
  const double dt = system.interval;
  if (!(dt > 0)) return std::nullopt;
  const int64_t start = HistoryDatabase::periodStart(HistoryDatabase::SystemTable::fiveMinutes, at);
  std::optional<HistoryDatabase::ReadingRow> closed;
  if (open_ && open_->start != start) closed = close();
  if (!open_) open_ = Period{.start = start};

  Period& period = *open_;
  period.seconds += dt;
  period.cpuPercent.add(system.cpu() * 100, dt);
  period.memoryUsed.add(static_cast<double>(system.memoryUsed()), dt);
  period.pressurePercent.add(system.memoryPressureFraction * 100, dt);
  if (static_cast<int>(system.pressure) > static_cast<int>(period.pressurePeak)) period.pressurePeak = system.pressure;
  period.swapPeak = std::max(period.swapPeak, system.swapUsed);
  if (system.gpuUtilization) period.gpuPercent.add(*system.gpuUtilization * 100, dt);
  if (tick.neuralEngineLoad) period.neuralEnginePercent.add(*tick.neuralEngineLoad * 100, dt);
  if (tick.thermal) {
    period.cpuCelsius.add(tick.thermal->cpuCelsius, dt);
    period.hottestCelsius.add(tick.thermal->hottestCelsius, dt);
    // The mean of the fans for the average; the fastest fan for the peak.
    const auto& fans = tick.thermal->fanRPM;
    if (!fans.empty()) {
      const double mean = std::accumulate(fans.begin(), fans.end(), 0.0) / static_cast<double>(fans.size());
      const double fastest = *std::max_element(fans.begin(), fans.end());
      period.fanRPM.add(mean, dt);
      period.fanRPM.peak = std::max(period.fanRPM.peak, fastest);
    }
  }
  period.powerWatts.add(tick.powerWatts, dt);
  period.thermalPeak = std::max(period.thermalPeak, tick.thermalState);
  // A machine without a battery is always on mains power.
  if (!system.battery || system.battery->pluggedIn) period.pluggedInSeconds += dt;
  if (system.battery) period.batteryPercent = system.battery->level * 100;
  return closed;
}

std::optional<HistoryDatabase::ReadingRow> ReadingsRecorder::close() {
  if (!open_) return std::nullopt;
  auto closed = row(*open_);
  open_.reset();
  return closed;
}

std::optional<int64_t> ReadingsRecorder::openStart() const {
  if (!open_) return std::nullopt;
  return open_->start;
}

HistoryDatabase::ReadingRow ReadingsRecorder::row(const Period& period) {
  HistoryDatabase::ReadingRow row;
  row.start = period.start;
  row.seconds = period.seconds;
  row.cpuPercentAverage = period.cpuPercent.average().value_or(0);
  row.cpuPercentPeak = period.cpuPercent.maximum().value_or(0);
  row.memoryUsedBytesAverage = clampedBytes(period.memoryUsed.average().value_or(0));
  row.memoryUsedBytesPeak = clampedBytes(period.memoryUsed.maximum().value_or(0));
  row.memoryPressurePercentAverage = period.pressurePercent.average();
  row.memoryPressurePercentPeak = period.pressurePercent.maximum();
  row.memoryPressureLevelPeak = std::string(memoryPressureName(period.pressurePeak));
  row.swapUsedBytesPeak = clampedBytes(static_cast<double>(period.swapPeak));
  row.gpuPercentAverage = period.gpuPercent.average();
  row.gpuPercentPeak = period.gpuPercent.maximum();
  row.neuralEnginePercentAverage = period.neuralEnginePercent.average();
  row.neuralEnginePercentPeak = period.neuralEnginePercent.maximum();
  row.cpuCelsiusAverage = period.cpuCelsius.average();
  row.cpuCelsiusPeak = period.cpuCelsius.maximum();
  row.hottestCelsiusAverage = period.hottestCelsius.average();
  row.hottestCelsiusPeak = period.hottestCelsius.maximum();
  row.fanRpmAverage = period.fanRPM.average();
  row.fanRpmPeak = period.fanRPM.maximum();
  row.powerWattsAverage = period.powerWatts.average();
  row.powerWattsPeak = period.powerWatts.maximum();
  row.thermalStatePeak = std::string(rawValue(period.thermalPeak));
  row.batteryPercent = period.batteryPercent;
  row.pluggedInSeconds = period.pluggedInSeconds;
  return row;
}

}  // namespace omnira
