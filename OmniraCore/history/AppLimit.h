#pragma once
// One per-app limit that the person set. Owned by the app's alert settings, which hand a
// copy to the insight engine before every tick; persisted as JSON with fixed keys.

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/history/UUID.h"

namespace omnira {

struct AppLimit {
  enum class Figure { memory, cpu };
  static constexpr std::array<Figure, 2> allFigures = {Figure::memory, Figure::cpu};

  UUID id;
  std::string appID;
  std::string appName;
  std::optional<std::string> bundlePath;
  Figure figure = Figure::cpu;
  double limit = 0;    // percent for CPU, bytes for memory
  double minutes = 0;  // how long the app must stay over the limit
  bool isOn = true;

  // A missing key or a value of the wrong type or range is a DecodeFailure naming the key.
  struct DecodeFailure {
    std::string message;
  };
  nlohmann::ordered_json toJSON() const;
  static Result<AppLimit, DecodeFailure> fromJSON(const nlohmann::ordered_json& json);

  friend bool operator==(const AppLimit&, const AppLimit&) = default;
};

std::string_view rawValue(AppLimit::Figure figure);
std::optional<AppLimit::Figure> appLimitFigureFromRaw(std::string_view raw);

}  // namespace omnira
