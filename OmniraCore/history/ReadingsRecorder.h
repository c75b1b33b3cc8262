#pragma once
// Gathers the machine's readings tick by tick into open five-minute periods and closes each
// into one row of the history's "readings" table: time-weighted averages and peaks of CPU,
// memory, pressure, swap, GPU, Neural Engine, temperatures, fans and power, the worst
// thermal state, the last battery level and the seconds on mains power. A figure that no
// tick of the period had stays empty (NULL in the row).
//
// A plain value owned by the monitor store and used on its thread only. It never touches
// the file: the store writes each closed row with HistoryDatabase::writeReading, which
// merges it with the part of the period an earlier run wrote.

#include <optional>
#include <string_view>

#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/history/HistoryDatabase.h"
#include "OmniraCore/sensors/SensorSample.h"
#include "OmniraCore/sensors/ThermalSample.h"
#include "OmniraCore/sampling/SystemSample.h"

namespace omnira {

class ReadingsRecorder {
 public:
  static constexpr int64_t periodSeconds = 300;

  // How hard the machine is throttling for heat; raw values are the stored form.
  enum class ThermalState { nominal, fair, serious, critical };
  static std::string_view rawValue(ThermalState state);
  // Linux tells throttling, not a thermal state: a CPU slowed down to cool for part of the
  // interval is fair (under a tenth), serious (under half) or critical (half or more, or the
  // CPU at its critical temperature); no throttling is nominal.
  static ThermalState thermalState(const SensorSample& sensors);

  // What one tick adds besides the system sample; absent figures are not measured here.
  struct Tick {
    std::optional<ThermalSample> thermal;
    ThermalState thermalState = ThermalState::nominal;
    std::optional<double> powerWatts;          // the whole machine's draw
    std::optional<double> neuralEngineLoad;    // busy share, 0...1
  };

  // Adds a tick that ended at `at` and lasted `system.interval` seconds to the period that
  // holds `at`. When `at` lies in a later period, the open one is closed and returned first.
  // A tick without an interval (the first sample) adds nothing.
  std::optional<HistoryDatabase::ReadingRow> record(const SystemSample& system, const Tick& tick, Date at);

  // Closes the open period early (on quit or before sleep); empty when nothing is open.
  std::optional<HistoryDatabase::ReadingRow> close();

  // Drops the open period without a row: the history was deleted meanwhile
  // (HistoryDatabase::restarts() moved), and readings from before must not come back.
  void startAfresh() { open_.reset(); }

  // The start of the open period, if one is open.
  std::optional<int64_t> openStart() const;

 private:
  // A time-weighted mean over the ticks that had the figure, and its largest value.
  struct Figure {
    double weighted = 0;
    double seconds = 0;
    double peak = 0;
    void add(double value, double interval);
    void add(const std::optional<double>& value, double interval) {
      if (value) add(*value, interval);
    }
    std::optional<double> average() const;
    std::optional<double> maximum() const;
  };

  struct Period {
    int64_t start = 0;
    double seconds = 0;
    Figure cpuPercent, memoryUsed, pressurePercent, gpuPercent, neuralEnginePercent, cpuCelsius, hottestCelsius,
        fanRPM, powerWatts;
    MemoryPressure pressurePeak = MemoryPressure::normal;
    uint64_t swapPeak = 0;
    ThermalState thermalPeak = ThermalState::nominal;
    std::optional<double> batteryPercent;
    double pluggedInSeconds = 0;
  };

  static HistoryDatabase::ReadingRow row(const Period& period);

  std::optional<Period> open_;
};

}  // namespace omnira
