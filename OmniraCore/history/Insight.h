#pragma once
// One notice for "Worth a Look": which rule raised it, about what, and its sentences.
// A plain value; persisted (insights.json) as JSON with fixed keys, dates in ISO 8601.

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/history/AppLimit.h"
#include "OmniraCore/history/UUID.h"
#include "OmniraCore/sampling/GroupKind.h"

namespace omnira {

struct Insight {
  enum class Kind {
    sustainedCPU,
    memoryGrowth,
    memoryPressure,
    diskBurst,
    networkBurst,
    idleServers,
    runningHot,
    neuralEngineBusy,
    appLimit,
  };
  static constexpr std::array<Kind, 9> allKinds = {Kind::sustainedCPU, Kind::memoryGrowth,  Kind::memoryPressure,
                                                   Kind::diskBurst,    Kind::networkBurst,  Kind::idleServers,
                                                   Kind::runningHot,   Kind::neuralEngineBusy, Kind::appLimit};

  UUID id;
  Date date{};
  Kind kind = Kind::sustainedCPU;
  // The app group's id, or a rule's own key ("warning", "idleServers:12,40", "neuralEngine").
  std::optional<std::string> appID;
  std::optional<std::string> appName;
  std::optional<GroupKind> appKind;
  std::optional<std::string> bundlePath;
  std::string title;
  std::string detail;
  std::optional<UUID> ruleID;  // the AppLimit behind a limit insight
  std::optional<AppLimit::Figure> limitFigure;

  // A missing required key, or any value of the wrong type or an unknown raw value, is a
  // DecodeFailure naming the key; the caller skips that insight.
  struct DecodeFailure {
    std::string message;
  };
  nlohmann::ordered_json toJSON() const;
  static Result<Insight, DecodeFailure> fromJSON(const nlohmann::ordered_json& json);

  friend bool operator==(const Insight&, const Insight&) = default;
};

std::string_view rawValue(Insight::Kind kind);
std::optional<Insight::Kind> insightKindFromRaw(std::string_view raw);

}  // namespace omnira

// Identity is the id, as for any identifiable record.
template <>
struct std::hash<omnira::Insight> {
  size_t operator()(const omnira::Insight& insight) const noexcept { return std::hash<omnira::UUID>()(insight.id); }
};
