#pragma once
// One battery reading. Figures the hardware does not report stay absent.

#include <optional>

#include <nlohmann/json.hpp>

namespace omnira {

struct BatterySample {
  double level = 0;          // charge, fraction 0...1
  bool charging = false;
  bool pluggedIn = false;    // on an online mains supply
  std::optional<double> watts;              // power flowing in or out right now
  std::optional<double> healthFraction;     // full capacity against design capacity
  std::optional<int> cycleCount;
  std::optional<double> minutesRemaining;   // to empty when discharging, to full when charging
  std::optional<double> temperatureCelsius;

  friend bool operator==(const BatterySample&, const BatterySample&) = default;
};

void to_json(nlohmann::ordered_json& json, const BatterySample& battery);
void from_json(const nlohmann::ordered_json& json, BatterySample& battery);

}  // namespace omnira
