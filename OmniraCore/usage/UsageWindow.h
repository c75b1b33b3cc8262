#pragma once
// One limit of one account: how much of it is used and when it fills up again.
// A plain value (equatable, hashable); the initializer keeps `used` within 0...1.
// JSON keys "kind", "model", "used", "resetsAt", "length"; the optional ones are written
// only when present, dates as ISO 8601 with a time zone.

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/usage/UsageDecodeFailure.h"

namespace omnira {

class UsageWindow {
 public:
  enum class Kind {
    session,       // a plan's rolling five-hour limit
    week,          // a plan's weekly limit
    model,         // a plan's weekly limit for one model
    month,         // a plan's monthly limit
    premium,       // Copilot's monthly premium requests
    chat,          // Copilot's monthly chat allowance on the free plan
    completions,   // Copilot's monthly code completions on the free plan
    cycle,         // a plan's limit over its whole billing cycle
    cursorModels,  // Cursor's pool for its own models within the billing cycle
    otherModels,   // Cursor's pool for the other models within the billing cycle
    modelSession,  // a rolling five-hour limit for one model or pool
  };
  static constexpr std::array<Kind, 11> allKinds = {
      Kind::session, Kind::week,  Kind::model,        Kind::month,       Kind::premium,     Kind::chat,
      Kind::completions, Kind::cycle, Kind::cursorModels, Kind::otherModels, Kind::modelSession};

  // Where use is heading by the reset. `onPace` carries the share expected to be left at
  // the reset; `runsOut` the moment the limit is reached at the present rate.
  struct Pace {
    enum class Case { onPace, runsOut };
    Case which = Case::onPace;
    double spareAtReset = 0;  // onPace only, 0...1
    Date runsOutAt{};         // runsOut only; may lie after the reset

    static Pace onPace(double spareAtReset) { return {Case::onPace, spareAtReset, Date{}}; }
    static Pace runsOut(Date at) { return {Case::runsOut, 0, at}; }
    bool isOnPace() const { return which == Case::onPace; }
    friend bool operator==(const Pace&, const Pace&) = default;
  };

  static constexpr double sessionLength = 18000;   // 5 h
  static constexpr double weekLength = 604800;     // 7 days
  static constexpr double monthLength = 2592000;   // 30 days

  // `used` is clamped to 0...1; a NaN becomes 1 (an unreadable share is treated as spent).
  UsageWindow(Kind kind, std::optional<std::string> model, double used, std::optional<Date> resetsAt = std::nullopt,
              std::optional<double> length = std::nullopt);

  Kind kind() const { return kind_; }
  const std::optional<std::string>& model() const { return model_; }
  double used() const { return used_; }
  const std::optional<Date>& resetsAt() const { return resetsAt_; }
  const std::optional<double>& length() const { return length_; }

  // 1 − used, never below 0.
  double left() const;
  // "session", or "week:<model>" when the window belongs to one model.
  std::string id() const;
  // Nothing when there is no reset or length, the reset has passed, less than 2% is used,
  // or it is too early (under 5%) or too far (over one length) from the reset to judge.
  std::optional<Pace> pace(Date now) const;

  nlohmann::json toJSON() const;
  static Result<UsageWindow, UsageDecodeFailure> fromJSON(const nlohmann::json& json);

  friend bool operator==(const UsageWindow&, const UsageWindow&) = default;

 private:
  Kind kind_;
  std::optional<std::string> model_;
  double used_;
  std::optional<Date> resetsAt_;
  std::optional<double> length_;
};

std::string_view rawValue(UsageWindow::Kind kind);
std::optional<UsageWindow::Kind> usageWindowKindFromRaw(std::string_view raw);
// Which window stands for the account: weekly, monthly and whole-cycle limits (3) before
// Copilot's and Cursor's pools (2), before the five-hour session (1); per-model limits (0)
// never lead while a plan-wide one exists.
int leadRank(UsageWindow::Kind kind);

}  // namespace omnira

template <>
struct std::hash<omnira::UsageWindow> {
  size_t operator()(const omnira::UsageWindow& window) const noexcept;
};
