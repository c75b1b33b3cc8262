#include "OmniraCore/platform/linux/PowerSupply.h"

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "OmniraCore/foundation/Parse.h"
#include "OmniraCore/platform/linux/FileText.h"

namespace omnira::platform {

namespace {

std::optional<std::string_view> property(const PowerSupply& s, std::string_view key) {
  auto it = s.properties.find(key);
  if (it == s.properties.end()) return std::nullopt;
  return std::string_view(it->second);
}

std::optional<double> number(const PowerSupply& s, std::string_view key) {
  auto text = property(s, key);
  if (!text) return std::nullopt;
  auto value = parseNumber<double>(trim(*text));
  if (!value || !std::isfinite(*value)) return std::nullopt;
  return value;
}

namespace fs = std::filesystem;

bool isBattery(const PowerSupply& s) { return property(s, "TYPE") == "Battery" && powersSystem(s); }

// Energy figures come in µWh (ENERGY_*) or, on some machines, only as charge in µAh
// (CHARGE_*) with a voltage beside them.
std::optional<double> wattHours(const PowerSupply& s, std::string_view which) {
  if (auto energy = number(s, std::string("ENERGY_") + std::string(which))) return *energy / 1e6;
  auto charge = number(s, std::string("CHARGE_") + std::string(which));
  auto volts = number(s, "VOLTAGE_MIN_DESIGN");
  if (!volts) volts = number(s, "VOLTAGE_NOW");
  if (charge && volts) return (*charge / 1e6) * (*volts / 1e6);
  return std::nullopt;
}

std::optional<double> watts(const PowerSupply& s) {
  if (auto power = number(s, "POWER_NOW")) return std::fabs(*power) / 1e6;
  auto current = number(s, "CURRENT_NOW");
  auto volts = number(s, "VOLTAGE_NOW");
  if (current && volts) return std::fabs(*current) / 1e6 * (*volts / 1e6);
  return std::nullopt;
}

}  // namespace

std::map<std::string, std::string, std::less<>> parsePowerSupplyEvent(std::string_view text) {
  std::map<std::string, std::string, std::less<>> properties;
  forEachLine(text, [&](std::string_view line) {
    constexpr std::string_view prefix = "POWER_SUPPLY_";
    if (!line.starts_with(prefix)) return;
    const auto eq = line.find('=');
    if (eq == std::string_view::npos || eq <= prefix.size()) return;
    properties[std::string(line.substr(prefix.size(), eq - prefix.size()))] = std::string(trim(line.substr(eq + 1)));
  });
  return properties;
}

bool powersSystem(const PowerSupply& supply) { return property(supply, "SCOPE") != "Device"; }

bool onExternalPower(const std::vector<PowerSupply>& supplies) {
  for (const auto& s : supplies) {
    if (property(s, "TYPE") == "Battery" || !powersSystem(s)) continue;
    if (auto online = number(s, "ONLINE"); online && *online >= 1) return true;
  }
  return false;
}

std::optional<BatterySample> batteryFrom(const std::vector<PowerSupply>& supplies) {
  std::vector<const PowerSupply*> batteries;
  for (const auto& s : supplies)
    if (isBattery(s) && property(s, "PRESENT") != "0") batteries.push_back(&s);
  if (batteries.empty()) return std::nullopt;

  BatterySample b;
  double now = 0, full = 0, design = 0, power = 0;
  bool energyKnown = true, designKnown = true, powerKnown = true;
  bool charging = false, discharging = false;
  for (const auto* s : batteries) {
    auto n = wattHours(*s, "NOW"), f = wattHours(*s, "FULL"), d = wattHours(*s, "FULL_DESIGN");
    if (n && f && *f > 0) { now += *n; full += *f; } else energyKnown = false;
    if (f && d && *d > 0) design += *d; else designKnown = false;
    if (auto w = watts(*s)) power += *w; else powerKnown = false;
    auto status = property(*s, "STATUS");
    charging = charging || status == "Charging";
    discharging = discharging || status == "Discharging";
  }
  if (energyKnown && full > 0) {
    b.level = now / full;
  } else if (auto capacity = number(*batteries.front(), "CAPACITY")) {
    b.level = *capacity / 100.0;
  } else {
    return std::nullopt;  // a battery that tells nothing of its charge is no reading
  }
  b.level = std::clamp(b.level, 0.0, 1.0);
  b.charging = charging;
  b.pluggedIn = onExternalPower(supplies) || charging || (!discharging && property(*batteries.front(), "STATUS") == "Full");
  if (powerKnown) b.watts = power;
  if (designKnown && design > 0) b.healthFraction = std::min(full / design, 1.5);
  if (auto cycles = number(*batteries.front(), "CYCLE_COUNT"); cycles && *cycles > 0)
    b.cycleCount = static_cast<int>(*cycles);
  if (auto temp = number(*batteries.front(), "TEMP")) b.temperatureCelsius = *temp / 10.0;
  if (energyKnown && powerKnown && power > 0.1) {
    const double hours = charging ? (full - now) / power : discharging ? now / power : -1;
    if (hours >= 0) b.minutesRemaining = hours * 60.0;
  }
  return b;
}

namespace {

std::optional<double> levelOf(const PowerSupply& s) {
  if (auto capacity = number(s, "CAPACITY")) return std::clamp(*capacity / 100.0, 0.0, 1.0);
  auto level = property(s, "CAPACITY_LEVEL");
  if (level == "Full") return 1.0;
  if (level == "High") return 0.75;
  if (level == "Normal") return 0.5;
  if (level == "Low") return 0.2;
  if (level == "Critical") return 0.05;
  return std::nullopt;
}

std::optional<bool> chargingOf(const PowerSupply& s) {
  auto status = property(s, "STATUS");
  if (status == "Charging") return true;
  if (status == "Discharging" || status == "Full" || status == "Not charging") return false;
  return std::nullopt;
}

bool contains(std::string_view text, std::string_view part) { return text.find(part) != std::string_view::npos; }

std::string peripheralKind(const PowerSupply& s) {
  const std::string name = lowered(s.name);
  const std::string_view driver = s.driver;
  if (contains(name, "controller") || driver == "sony" || driver == "playstation" || driver == "nintendo" ||
      driver == "xpad" || driver == "steam")
    return "gaming-input";
  if (name.starts_with("wacom_battery")) return "tablet";
  if (driver == "magicmouse") return "mouse";
  if (driver == "apple") return "keyboard";
  if (contains(name, "headset") || driver == "corsair-void") return "headset";
  return "other";  // hidpp_battery_N among them: the same driver serves mice and keyboards
}

}  // namespace

std::vector<PowerSupply> readPowerSupplies(const Roots& roots) {
  std::vector<PowerSupply> supplies;
  std::error_code ec;
  for (fs::directory_iterator it(roots.sys / "class" / "power_supply", ec), end; !ec && it != end; it.increment(ec)) {
    auto text = readTextFile(it->path() / "uevent", 16384);
    if (!text) continue;
    PowerSupply supply{it->path().filename().string(), parsePowerSupplyEvent(*text), {}};
    // Older kernels leave TYPE out of uevent.
    if (!supply.properties.contains("TYPE")) {
      if (auto type = readTextFile(it->path() / "type", 64)) supply.properties["TYPE"] = std::string(trim(*type));
    }
    std::error_code linkError;
    const auto driver = fs::read_symlink(it->path() / "device" / "driver", linkError);
    if (!linkError) supply.driver = driver.filename().string();
    supplies.push_back(std::move(supply));
  }
  return supplies;
}

std::vector<PeripheralBattery> peripheralBatteries(const std::vector<PowerSupply>& supplies) {
  std::vector<PeripheralBattery> batteries;
  for (const auto& s : supplies) {
    if (powersSystem(s) || property(s, "PRESENT") == "0") continue;
    PeripheralBattery b;
    auto model = property(s, "MODEL_NAME");
    b.name = model && !trim(*model).empty() ? std::string(trim(*model)) : s.name;
    b.kind = peripheralKind(s);
    b.level = levelOf(s);
    b.charging = chargingOf(s);
    b.source = "power_supply/" + s.name;
    batteries.push_back(std::move(b));
  }
  std::sort(batteries.begin(), batteries.end(),
            [](const PeripheralBattery& a, const PeripheralBattery& b) { return a.source < b.source; });
  return batteries;
}

}  // namespace omnira::platform
