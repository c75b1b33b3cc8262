#include "cli/Sensors.h"

#include <fmt/format.h>

#include <thread>

#include "OmniraCore/foundation/JSONText.h"
#include "OmniraCore/foundation/SafeText.h"
#include "OmniraCore/platform/linux/ThisMachine.h"
#include "cli/Format.h"

namespace omnira::cli {

namespace {

std::string degrees(double celsius, bool fahrenheit) {
  return fahrenheit ? fmt::format("{:.0f} °F", celsius * 9 / 5 + 32) : fmt::format("{:.1f} °C", celsius);
}

std::string rpm(const std::optional<double>& value) {
  return value ? fmt::format("{:.0f} rpm", *value) : std::string("–");
}

std::string fanLine(const FanStatus& f) {
  std::string line = fmt::format("  {:>2}  {:<24} {:>9}", f.index, fit(terminalText(f.label + " (" + f.chip + ")"), 24), rpm(f.rpm));
  std::string extra;
  if (f.minimumRPM || f.maximumRPM)
    extra += fmt::format("range {}–{}", f.minimumRPM ? fmt::format("{:.0f}", *f.minimumRPM) : "?",
                         f.maximumRPM ? fmt::format("{:.0f}", *f.maximumRPM) : "?");
  if (f.targetRPM) extra += fmt::format("{}target {:.0f}", extra.empty() ? "" : " · ", *f.targetRPM);
  if (f.mode != FanStatus::Mode::unknown) extra += fmt::format("{}{}", extra.empty() ? "" : " · ", rawValue(f.mode));
  if (!extra.empty()) line += "   " + extra;
  return line + "\n";
}

}  // namespace

std::string sensorsText(const SensorSample& s, const std::vector<PeripheralBattery>& peripherals, bool fahrenheit) {
  if (s.empty() && peripherals.empty()) {
    std::string out =
        "This computer has no sensors Omnira can read: no temperature, fan, power, GPU or NPU readings "
        "under /sys.\n";
    if (!s.powerNote.empty()) out += s.powerNote + "\n";
    return out;
  }
  std::string out;
  if (!s.temperatures.empty()) {
    out += "Temperatures";
    if (s.cpuCelsius) out += fmt::format(" · CPU {}", degrees(*s.cpuCelsius, fahrenheit));
    if (s.hottestCelsius)
      out += fmt::format(" · hottest {} ({})", degrees(*s.hottestCelsius, fahrenheit), terminalText(s.hottestName));
    out += "\n";
    for (const auto& t : s.temperatures) {
      std::string limits;
      if (t.hotCelsius) limits += "hot " + degrees(*t.hotCelsius, fahrenheit);
      if (t.criticalCelsius) limits += (limits.empty() ? "" : " · ") + ("critical " + degrees(*t.criticalCelsius, fahrenheit));
      out += fmt::format("  {:<8} {:>9}  {:<28} {}\n", rawValue(t.kind), degrees(t.celsius, fahrenheit),
                         fit(terminalText(t.name + " (" + t.chip + ")"), 28), limits);
    }
  } else {
    out += "Temperatures: none readable\n";
  }
  if (!s.fans.empty()) {
    out += "Fans\n";
    for (const auto& f : s.fans) out += fanLine(f);
  }
  if (!s.powers.empty() || s.systemWatts) {
    out += "Power";
    if (s.systemWatts) out += fmt::format(" · whole computer {:.1f} W", *s.systemWatts);
    out += "\n";
    for (const auto& p : s.powers)
      out += fmt::format("  {:<28} {:>8.1f} W   {}\n", fit(terminalText(p.name), 28), p.watts, terminalText(p.source));
  }
  if (!s.powerNote.empty()) out += s.powerNote + "\n";
  if (!s.gpus.empty()) {
    out += "GPU\n";
    for (const auto& g : s.gpus) {
      std::string line = fmt::format("  {:<28}", fit(terminalText(g.name + " (" + g.driver + ")"), 28));
      line += g.busy ? fmt::format(" busy {:>5}", percent(*g.busy)) : std::string(" busy     –");
      if (g.memoryUsedBytes)
        line += fmt::format(" · memory {}{}", bytes(*g.memoryUsedBytes),
                            g.memoryTotalBytes ? " of " + bytes(*g.memoryTotalBytes) : std::string());
      if (g.frequencyMHz) line += fmt::format(" · {:.0f} MHz", *g.frequencyMHz);
      out += line + "\n";
    }
  }
  if (!s.npus.empty()) {
    out += "NPU\n";
    for (const auto& n : s.npus)
      out += fmt::format("  {:<28} busy {}\n", fit(terminalText(n.name + " (" + n.driver + ")"), 28),
                         n.busy ? percent(*n.busy) : std::string("–"));
  }
  if (s.throttledCPUs) {
    out += *s.throttledCPUs == 0
               ? std::string("Throttling: no CPU was slowed down to cool in the last second.\n")
               : fmt::format("Throttling: {} CPU{} slowed down to cool{}.\n", *s.throttledCPUs,
                             *s.throttledCPUs == 1 ? " was" : "s were",
                             s.throttledShare ? fmt::format(", up to {} of the time", percent(*s.throttledShare)) : "");
  }
  if (!peripherals.empty()) {
    out += "Peripherals\n";
    for (const auto& p : peripherals)
      out += fmt::format("  {:<28} {:>5}{}  {}\n", fit(terminalText(p.name), 28), p.level ? percent(*p.level) : "–",
                         p.charging.value_or(false) ? ", charging" : "", terminalText(p.source));
  }
  return out;
}

std::string fansText(const SensorSample& s) {
  if (s.fans.empty()) return "This computer has no fans Omnira can read.\n";
  std::string out = "Fans\n";
  for (const auto& f : s.fans) out += fanLine(f);
  return out;
}

std::string sensorsJSON(const SensorSample& s, const std::vector<PeripheralBattery>& peripherals) {
  auto j = s.toJSON();
  auto& list = j["peripherals"] = nlohmann::ordered_json::array();
  for (const auto& p : peripherals)
    list.push_back({{"name", p.name},
                    {"kind", p.kind},
                    {"percent", p.level ? nlohmann::ordered_json(std::round(*p.level * 1000) / 10) : nlohmann::ordered_json()},
                    {"charging", p.charging ? nlohmann::ordered_json(*p.charging) : nlohmann::ordered_json()},
                    {"source", p.source}});
  return jsonText(j, 2) + "\n";
}

std::string fansJSON(const SensorSample& s) {
  auto all = s.toJSON();
  return jsonText(nlohmann::ordered_json{{"fans", all["fans"]}}, 2) + "\n";
}

SensorsReading readSensors(bool withPeripherals) {
  auto system = platform::makeSystemSampler();
  auto sensors = platform::makeSensors();
  (void)system->sample();
  (void)sensors->sample(std::nullopt);
  std::vector<PeripheralBattery> peripherals;
  const auto started = std::chrono::steady_clock::now();
  if (withPeripherals) peripherals = sensors->peripherals();
  std::this_thread::sleep_until(started + std::chrono::seconds(1));
  const auto battery = system->sample().battery;
  return {sensors->sample(battery), std::move(peripherals)};
}

}  // namespace omnira::cli
