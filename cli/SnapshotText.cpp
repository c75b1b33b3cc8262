#include <fmt/format.h>
#include <fmt/ranges.h>

#include <unistd.h>

#include <algorithm>

#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/foundation/SafeText.h"
#include "cli/Format.h"
#include "cli/Snapshot.h"

namespace omnira::cli {

namespace {

std::string batteryLine(const BatterySample& b) {
  std::string line = percent(b.level);
  line += b.charging ? ", charging" : b.pluggedIn ? ", plugged in" : ", on battery";
  if (b.minutesRemaining) {
    line += fmt::format(", {} {}", duration(*b.minutesRemaining * 60), b.charging ? "to full" : "left");
  }
  if (b.watts && *b.watts > 0) line += fmt::format(", {:.1f} W", *b.watts);
  if (b.healthFraction) line += fmt::format(", health {}", percent(*b.healthFraction));
  if (b.cycleCount) line += fmt::format(", {} cycles", *b.cycleCount);
  return line;
}

std::string heatLine(const SensorSample& sensors) {
  if (!sensors.hasTemperature() && sensors.fans.empty()) return "no sensors";
  std::vector<std::string> parts;
  if (sensors.cpuCelsius) parts.push_back(fmt::format("CPU {:.0f} °C", *sensors.cpuCelsius));
  if (sensors.hottestCelsius)
    parts.push_back(fmt::format("hottest {:.0f} °C ({})", *sensors.hottestCelsius, terminalText(sensors.hottestName)));
  std::vector<std::string> speeds;
  for (const auto& f : sensors.fans)
    if (f.rpm) speeds.push_back(fmt::format("{:.0f}", *f.rpm));
  if (!speeds.empty()) parts.push_back(fmt::format("fan{} {} rpm", speeds.size() == 1 ? "" : "s", fmt::join(speeds, ", ")));
  if (sensors.throttledCPUs && *sensors.throttledCPUs > 0)
    parts.push_back(fmt::format("{} CPU{} slowed down to cool", *sensors.throttledCPUs, *sensors.throttledCPUs == 1 ? "" : "s"));
  return fmt::format("{}", fmt::join(parts, " · "));
}

std::string powerLine(const SensorSample& sensors) {
  std::vector<std::string> parts;
  if (sensors.systemWatts) parts.push_back(fmt::format("computer {:.1f} W", *sensors.systemWatts));
  if (sensors.cpuWatts) parts.push_back(fmt::format("CPU {:.1f} W", *sensors.cpuWatts));
  return fmt::format("{}", fmt::join(parts, " · "));
}

}  // namespace

std::string snapshotText(const Snapshot& snap, size_t topApps) {
  const SystemSample& s = snap.system;
  std::string out;
  auto line = [&out](std::string_view label, const std::string& text) {
    out += fmt::format("{:<10}{}\n", label, text);
  };

  std::string cores;
  for (double core : s.cpuPerCore) cores += fmt::format(" {:.0f}", core * 100);
  line("CPU", fmt::format("{} (user {}, system {}) · load {:.2f}{}", percent(s.cpu()), percent(s.cpuUser),
                          percent(s.cpuSystem), s.loadAverage,
                          cores.empty() ? "" : fmt::format(" · per core %:{}", cores)));
  line("Memory", fmt::format("{} of {} used · pressure {} ({})", bytes(s.memoryUsed()), bytes(s.memoryTotal),
                             memoryPressureName(s.pressure), percent(s.memoryPressureFraction)));
  line("", fmt::format("app {} · wired {} · compressed {} · cached {}", bytes(s.memoryApp),
                       bytes(s.memoryWired), bytes(s.memoryCompressed), bytes(s.memoryCached)));
  line("Swap", s.swapUsed == 0 ? std::string("none used") : bytes(s.swapUsed) + " used");
  line("Disk", fmt::format("read {} · write {} · {} free of {}", rate(s.diskReadBytesPerSec),
                           rate(s.diskWriteBytesPerSec), bytes(s.diskAvailable), bytes(s.diskTotal)));
  line("Network", fmt::format("in {} · out {}", rate(s.networkInBytesPerSec), rate(s.networkOutBytesPerSec)));
  line("Battery", s.battery ? batteryLine(*s.battery) : std::string("none"));
  line("Heat", heatLine(snap.sensors));
  if (snap.sensors.systemWatts || snap.sensors.cpuWatts) line("Power", powerLine(snap.sensors));
  if (s.gpuUtilization)
    line("GPU", fmt::format("{} busy{}", percent(*s.gpuUtilization),
                            s.gpuMemoryBytes ? " · memory " + bytes(*s.gpuMemoryBytes) : std::string()));
  line("Uptime", duration(s.uptime));
  const std::string strain = WorthALook::strainLine(snap.strain, s.timestamp);
  line("Strain", strain.empty() ? std::string("none") : strain.substr(strain.find(' ') + 1));

  size_t apps = 0, processes = 0;
  for (const auto& g : snap.groups) processes += g.processCount();
  apps = snap.groups.size();
  out += fmt::format("\n{} processes in {} groups", processes, apps);
  std::string notes;
  if (snap.unmeasuredProcesses > 0) notes = fmt::format("{} more could not be measured", snap.unmeasuredProcesses);
  if (snap.processesWithoutDisk > 0) {
    if (!notes.empty()) notes += "; ";
    notes += fmt::format("{} of other users without disk figures{}", snap.processesWithoutDisk,
                         ::geteuid() == 0 ? "" : ", run as root to see them");
  }
  if (!notes.empty()) out += " (" + notes + ")";
  out += "\n\n";
  out += fmt::format("  {:<34} {:>6} {:>7} {:>10} {:>11}  {}\n", "APP", "PROCS", "CPU", "MEMORY", "NETWORK", "KIND");
  const size_t shown = std::min(topApps, snap.groups.size());
  for (size_t i = 0; i < shown; ++i) {
    const auto& g = snap.groups[i];
    // In and out together; blank for an app that moved nothing over TCP.
    const double network = g.networkInBytesPerSec() + g.networkOutBytesPerSec();
    out += fmt::format("  {:<34} {:>6} {:>6.1f}% {:>10} {:>11}  {}\n", fit(terminalText(g.name), 34), g.processCount(),
                       g.cpuPercent(), bytes(g.memoryBytes()), network > 0 ? rate(network) : "", rawValue(g.kind));
  }
  if (shown < snap.groups.size())
    out += fmt::format("  … and {} more (omnira snapshot --all, or --json)\n", snap.groups.size() - shown);
  return out;
}

nlohmann::ordered_json snapshotJSON(const Snapshot& snap) {
  nlohmann::ordered_json out = nlohmann::ordered_json::object();
  out["system"] = snap.system.toJSON();
  out["sensors"] = snap.sensors.toJSON();
  out["strain"] = nlohmann::ordered_json::object();
  for (const auto& [kind, since] : snap.strain) out["strain"][std::string(rawValue(kind))] = formatISO8601(since);
  auto groups = nlohmann::ordered_json::array();
  for (const auto& g : snap.groups) groups.push_back(g.toJSON());
  out["groups"] = std::move(groups);
  return out;
}

}  // namespace omnira::cli
