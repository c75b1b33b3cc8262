#pragma once
// The sampling loop's decisions as plain functions of the clock and the store's state, so
// that tests drive them with a simulated clock; the timer that acts on them stays thin.
// No Qt, no state of its own except SamplingLoop, which the store owns on the main thread.

#include <cstdint>
#include <optional>
#include <string>

#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/sampling/ProcessDetails.h"

namespace omnira {

// The charts' reach.
enum class HistorySpan { first, second, third };

struct HistorySpans {
  static constexpr const char* hint = "How far back the charts reach: 5, 15 or 30 minutes.";
  static int minutes(HistorySpan span);
  static double seconds(HistorySpan span) { return minutes(span) * 60.0; }
  static std::string title(HistorySpan span);  // "5 Minutes"
  // "historySpan" holds minutes; anything else reads as the first span.
  static HistorySpan fromMinutes(int64_t minutes);
  // Ring points that cover the span at the refresh interval ("refreshSeconds" clamped).
  static int samples(HistorySpan span, std::optional<double> refreshSeconds);
};

struct SamplingSchedule {
  static constexpr double mainsInterval = 5;
  static constexpr double batteryInterval = 10;
  static constexpr int processEvery = 6;  // with nobody watching, processes on every sixth tick
  static constexpr double networkDetailsSpacing = 3.5;
  static constexpr double networkDetailsForcedMains = 60;
  static constexpr double networkDetailsForcedBattery = 120;
  static constexpr double projectScanSpacing = 120;
  static constexpr double ledgerPublishSpacing = 15;
  static constexpr double peripheralSeconds = 10;  // batteries of mice and headsets change slowly
  static constexpr double ledgerSaveMains = 120;
  static constexpr double ledgerSaveBattery = 600;
  static constexpr double containerSpacing = 10;

  // "refreshSeconds" clamped to 1...10; unset or 0 reads as 1.
  static double refreshSeconds(std::optional<double> setting);

  struct Interval {
    double seconds = 0;
    double tolerance = 0;
    friend bool operator==(const Interval&, const Interval&) = default;
  };
  static Interval interval(int viewers, std::optional<double> refreshSetting, bool onBattery);

  // Whether tick number `tick` (1 for the first after the priming tick) samples processes.
  static bool includesProcesses(int viewers, int64_t tick);

  // What the process sample measures this tick, from what the views want and the throttles.
  static ProcessDetails details(ProcessDetails wanted, Date now, std::optional<Date> lastNetworkDetails,
                                std::optional<Date> lastProjectScan, bool onBattery);

  // What the container thread is asked for after a tick: nothing, the engines' lists
  // (to name container groups and published ports after a project scan), or the lists
  // with every container's stats (while something wants containers). At most every
  // containerSpacing seconds, and never while the last request is still out.
  enum class ContainerWork { none, list, stats };
  static ContainerWork containerWork(bool wanted, bool scannedProjectsSinceLast, bool inFlight,
                                     std::optional<Date> lastAsked, Date now);

  static bool publishesLedger(std::optional<Date> publishedAt, Date now);
  static bool savesLedger(std::optional<Date> savedAt, Date now, bool onBattery);

  // A wake-up time within [target, target + tolerance] that lies on the coarsest round
  // boundary (1 s, 0.5 s, 0.25 s, 0.1 s) the window holds, so that wake-ups of this and
  // other programs fall together; never before the target, so no sleep is cut short.
  // Times are seconds of one clock.
  static double coalescedDeadline(double target, double tolerance);
};

// The loop's steps. The store asks for the next step after each one is done; cancel()
// ends the loop, and a cancelled loop answers `end` from then on, so a sleep that was
// under way finishes without a further tick.
class SamplingLoop {
 public:
  struct Step {
    enum class Kind { prime, sleep, tick, end };
    Kind kind = Kind::end;
    double seconds = 0;     // sleep
    double tolerance = 0;   // sleep
    bool includeProcesses = false;  // tick
    friend bool operator==(const Step&, const Step&) = default;
  };

  struct Conditions {
    int viewers = 0;
    std::optional<double> refreshSetting;
    bool onBattery = false;
  };

  // A store that is already primed starts with a tick at once, without the second's wait.
  explicit SamplingLoop(bool primed) : state_(primed ? State::firstTick : State::unprimed) {}

  Step next(const Conditions& conditions);
  void cancel() { state_ = State::ended; }
  bool isCancelled() const { return state_ == State::ended; }
  int64_t tickCount() const { return ticks_; }

 private:
  enum class State { unprimed, primeWait, firstTick, afterTick, afterSleep, ended };
  State state_;
  int64_t ticks_ = 0;
};

}  // namespace omnira
