#include "OmniraCore/sensors/Sensors.h"

#include <cmath>

namespace omnira {

Sensors::Sensors(std::unique_ptr<SensorSource> source) : source_(std::move(source)) {}

SensorSample Sensors::sample(const std::optional<BatterySample>& battery) {
  SensorSample sample = source_->read();
  // The system sample has read the battery this tick already; its rate is listed with the rest.
  if (battery && battery->watts && std::isfinite(*battery->watts))
    sample.powers.push_back({PowerReading::Kind::battery, "Battery", std::fabs(*battery->watts), "class/power_supply"});
  sample.systemWatts = systemDraw(sample.powers, battery);
  sample.cpuWatts = cpuDraw(sample.powers);
  return sample;
}

std::optional<double> Sensors::systemDraw(const std::vector<PowerReading>& powers,
                                          const std::optional<BatterySample>& battery) {
  for (const auto& power : powers)
    if (power.kind == PowerReading::Kind::system && std::isfinite(power.watts) && power.watts >= 0) return power.watts;
  if (battery && !battery->pluggedIn && !battery->charging && battery->watts && std::isfinite(*battery->watts))
    return std::fabs(*battery->watts);
  return std::nullopt;
}

std::optional<double> Sensors::cpuDraw(const std::vector<PowerReading>& powers) {
  std::optional<double> total;
  for (const auto& power : powers)
    if (power.kind == PowerReading::Kind::cpuPackage && std::isfinite(power.watts))
      total = total.value_or(0.0) + power.watts;
  return total;
}

}  // namespace omnira
