#include "OmniraCore/usage/UsageWindow.h"

#include <cmath>
#include <functional>

#include "OmniraCore/usage/UsageJSON.h"

namespace omnira {

namespace {

double clampedShare(double used) {
  if (std::isnan(used)) return 1;
  if (used < 0) return 0;
  if (used > 1) return 1;
  return used;
}

}  // namespace

UsageWindow::UsageWindow(Kind kind, std::optional<std::string> model, double used, std::optional<Date> resetsAt,
                         std::optional<double> length)
    : kind_(kind), model_(std::move(model)), used_(clampedShare(used)), resetsAt_(resetsAt), length_(length) {}

double UsageWindow::left() const { return std::max(0.0, 1 - used_); }

std::string UsageWindow::id() const {
  std::string id(rawValue(kind_));
  if (model_) id += ":" + *model_;
  return id;
}

std::optional<UsageWindow::Pace> UsageWindow::pace(Date now) const {
  if (!resetsAt_ || !length_ || !(*length_ > 0) || *resetsAt_ <= now || used_ < 0.02) return std::nullopt;
  const double untilReset = std::chrono::duration<double>(*resetsAt_ - now).count();
  double elapsed = 1 - untilReset / *length_;
  if (elapsed < 0) return std::nullopt;
  if (elapsed > 1) elapsed = 1;
  if (elapsed < 0.05) return std::nullopt;
  if (used_ > elapsed + 0.03 && used_ / elapsed >= 1) {
    const double rate = used_ / (*length_ * elapsed);
    const double secondsLeft = (1 - used_) / rate;
    return Pace::runsOut(now + std::chrono::duration_cast<Date::duration>(std::chrono::duration<double>(secondsLeft)));
  }
  return Pace::onPace(std::max(0.0, 1 - used_ / elapsed));
}

nlohmann::json UsageWindow::toJSON() const {
  nlohmann::json json = {{"kind", rawValue(kind_)}, {"used", used_}};
  if (model_) json["model"] = *model_;
  if (resetsAt_) json["resetsAt"] = formatISO8601(*resetsAt_);
  if (length_) json["length"] = *length_;
  return json;
}

Result<UsageWindow, UsageDecodeFailure> UsageWindow::fromJSON(const nlohmann::json& json) {
  using namespace usage_json;
  if (!json.is_object()) return fail(UsageDecodeFailure{"a usage window is not an object"});
  std::string kindText;
  std::optional<std::string> model;
  double used = 0;
  std::optional<Date> resetsAt;
  std::optional<double> length;
  for (auto failure : {readString(json, "kind", kindText), readOptionalString(json, "model", model),
                       readNumber(json, "used", used), readOptionalDate(json, "resetsAt", resetsAt),
                       readOptionalNumber(json, "length", length)})
    if (failure) return fail(*failure);
  auto kind = usageWindowKindFromRaw(kindText);
  if (!kind) return fail(UsageDecodeFailure{"\"kind\" is not a known window kind: " + kindText});
  return UsageWindow(*kind, std::move(model), used, resetsAt, length);
}

std::string_view rawValue(UsageWindow::Kind kind) {
  using Kind = UsageWindow::Kind;
  switch (kind) {
    case Kind::session: return "session";
    case Kind::week: return "week";
    case Kind::model: return "model";
    case Kind::month: return "month";
    case Kind::premium: return "premium";
    case Kind::chat: return "chat";
    case Kind::completions: return "completions";
    case Kind::cycle: return "cycle";
    case Kind::cursorModels: return "cursorModels";
    case Kind::otherModels: return "otherModels";
    case Kind::modelSession: return "modelSession";
  }
  return "session";
}

std::optional<UsageWindow::Kind> usageWindowKindFromRaw(std::string_view raw) {
  for (UsageWindow::Kind kind : UsageWindow::allKinds)
    if (rawValue(kind) == raw) return kind;
  return std::nullopt;
}

int leadRank(UsageWindow::Kind kind) {
  using Kind = UsageWindow::Kind;
  switch (kind) {
    case Kind::week:
    case Kind::month:
    case Kind::premium:
    case Kind::cycle: return 3;
    case Kind::chat:
    case Kind::completions:
    case Kind::cursorModels:
    case Kind::otherModels: return 2;
    case Kind::session: return 1;
    case Kind::model:
    case Kind::modelSession: return 0;
  }
  return 0;
}

}  // namespace omnira

size_t std::hash<omnira::UsageWindow>::operator()(const omnira::UsageWindow& window) const noexcept {
  using omnira::usage_json::mix;
  size_t seed = std::hash<int>()(static_cast<int>(window.kind()));
  mix(seed, window.model() ? std::hash<std::string>()(*window.model()) : 0);
  mix(seed, std::hash<double>()(window.used()));
  mix(seed, window.resetsAt() ? std::hash<int64_t>()(window.resetsAt()->time_since_epoch().count()) : 0);
  mix(seed, window.length() ? std::hash<double>()(*window.length()) : 0);
  return seed;
}
