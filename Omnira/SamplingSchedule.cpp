#include "Omnira/SamplingSchedule.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

namespace omnira {

namespace {

double secondsBetween(Date earlier, Date later) {
  return std::chrono::duration<double>(later - earlier).count();
}

}  // namespace

int HistorySpans::minutes(HistorySpan span) {
  switch (span) {
    case HistorySpan::first: return 5;
    case HistorySpan::second: return 15;
    case HistorySpan::third: return 30;
  }
  return 5;
}

std::string HistorySpans::title(HistorySpan span) { return fmt::format("{} Minutes", minutes(span)); }

HistorySpan HistorySpans::fromMinutes(int64_t minutes) {
  if (minutes == 15) return HistorySpan::second;
  if (minutes == 30) return HistorySpan::third;
  return HistorySpan::first;
}

int HistorySpans::samples(HistorySpan span, std::optional<double> refreshSeconds) {
  return static_cast<int>(std::lround(seconds(span) / SamplingSchedule::refreshSeconds(refreshSeconds)));
}

double SamplingSchedule::refreshSeconds(std::optional<double> setting) {
  const double value = setting.value_or(0);
  if (!std::isfinite(value)) return 1;
  return std::clamp(value, 1.0, 10.0);
}

SamplingSchedule::Interval SamplingSchedule::interval(int viewers, std::optional<double> refreshSetting,
                                                      bool onBattery) {
  if (viewers >= 1) {
    const double seconds = refreshSeconds(refreshSetting);
    return {seconds, seconds / 10};
  }
  const double seconds = onBattery ? batteryInterval : mainsInterval;
  return {seconds, seconds / 5};
}

bool SamplingSchedule::includesProcesses(int viewers, int64_t tick) {
  return viewers > 0 || tick % processEvery == 0;
}

ProcessDetails SamplingSchedule::details(ProcessDetails wanted, Date now, std::optional<Date> lastNetworkDetails,
                                         std::optional<Date> lastProjectScan, bool onBattery) {
  ProcessDetails details = wanted;
  const std::optional<double> networkAge =
      lastNetworkDetails ? std::optional(secondsBetween(*lastNetworkDetails, now)) : std::nullopt;
  if (details.network && networkAge && *networkAge < networkDetailsSpacing) details.network = false;
  const double forced = onBattery ? networkDetailsForcedBattery : networkDetailsForcedMains;
  if (!networkAge || *networkAge >= forced) details.network = true;
  if (!lastProjectScan || secondsBetween(*lastProjectScan, now) >= projectScanSpacing) details.projects = true;
  return details;
}

bool SamplingSchedule::publishesLedger(std::optional<Date> publishedAt, Date now) {
  return !publishedAt || secondsBetween(*publishedAt, now) >= ledgerPublishSpacing;
}

bool SamplingSchedule::savesLedger(std::optional<Date> savedAt, Date now, bool onBattery) {
  return !savedAt || secondsBetween(*savedAt, now) >= (onBattery ? ledgerSaveBattery : ledgerSaveMains);
}

SamplingSchedule::ContainerWork SamplingSchedule::containerWork(bool wanted, bool scannedProjectsSinceLast,
                                                               bool inFlight, std::optional<Date> lastAsked,
                                                               Date now) {
  if (inFlight) return ContainerWork::none;
  // A clock set back does not hold the containers up until it catches up.
  if (lastAsked && secondsBetween(*lastAsked, now) >= 0 && secondsBetween(*lastAsked, now) < containerSpacing)
    return ContainerWork::none;
  if (wanted) return ContainerWork::stats;
  return scannedProjectsSinceLast ? ContainerWork::list : ContainerWork::none;
}

double SamplingSchedule::coalescedDeadline(double target, double tolerance) {
  if (!(tolerance > 0)) return target;
  for (double grid : {1.0, 0.5, 0.25, 0.1}) {
    // Rounding may land a hair before the target; a wake-up may only come late.
    const double candidate = std::max(target, std::ceil(target / grid) * grid);
    if (candidate <= target + tolerance) return candidate;
  }
  return target;
}

SamplingLoop::Step SamplingLoop::next(const Conditions& conditions) {
  using Kind = Step::Kind;
  switch (state_) {
    case State::unprimed:
      state_ = State::primeWait;
      return {Kind::prime};
    case State::primeWait:
      state_ = State::firstTick;
      return {Kind::sleep, 1, 0};
    case State::firstTick:
      state_ = State::afterTick;
      return {Kind::tick, 0, 0, true};
    case State::afterTick: {
      ++ticks_;
      state_ = State::afterSleep;
      const auto interval = SamplingSchedule::interval(conditions.viewers, conditions.refreshSetting,
                                                       conditions.onBattery);
      return {Kind::sleep, interval.seconds, interval.tolerance};
    }
    case State::afterSleep:
      state_ = State::afterTick;
      return {Kind::tick, 0, 0, SamplingSchedule::includesProcesses(conditions.viewers, ticks_)};
    case State::ended:
      return {Kind::end};
  }
  return {Kind::end};
}

}  // namespace omnira
