#include "OmniraCore/platform/linux/PowerCap.h"

#include <algorithm>
#include <filesystem>

#include "OmniraCore/foundation/Parse.h"

namespace omnira::platform {

namespace fs = std::filesystem;

std::optional<uint64_t> parseEnergyMicrojoules(std::string_view text) {
  return parseNumber<uint64_t>(trim(text));
}

namespace {

bool isRaplZone(std::string_view entry) {
  return entry.starts_with("intel-rapl:") || entry.starts_with("intel-rapl-mmio:");
}

PowerReading::Kind kindOf(std::string_view name) {
  if (name.starts_with("package")) return PowerReading::Kind::cpuPackage;
  if (name == "core") return PowerReading::Kind::cpuCores;
  if (name == "dram") return PowerReading::Kind::dram;
  if (name == "uncore") return PowerReading::Kind::gpu;  // the integrated GPU on client parts
  if (name == "psys") return PowerReading::Kind::system;
  return PowerReading::Kind::other;
}

std::string displayName(std::string_view name) {
  if (name.starts_with("package-")) return "CPU package " + std::string(name.substr(8));
  if (name == "core") return "CPU cores";
  if (name == "dram") return "DRAM";
  if (name == "uncore") return "Integrated GPU";
  if (name == "psys") return "Platform";
  return std::string(name);
}

}  // namespace

Result<std::vector<RaplCounter>, ReadFailure> readRaplCounters(const Roots& roots) {
  std::vector<std::string> zones;
  std::error_code ec;
  const fs::path base = roots.sys / "class" / "powercap";
  for (fs::directory_iterator it(base, ec), end; !ec && it != end; it.increment(ec)) {
    const std::string entry = it->path().filename().string();
    if (isRaplZone(entry)) zones.push_back(entry);
  }
  std::sort(zones.begin(), zones.end());

  std::vector<RaplCounter> counters;
  std::optional<ReadFailure> firstFailure;
  for (const auto& zone : zones) {
    const fs::path folder = base / zone;
    auto energy = readTextFile(folder / "energy_uj", 64);
    if (!energy) {
      if (!firstFailure) firstFailure = energy.error();
      continue;
    }
    auto count = parseEnergyMicrojoules(*energy);
    auto name = readTextFile(folder / "name", 64);
    if (!count || !name) continue;
    RaplCounter counter{zone, std::string(trim(*name)), *count, std::nullopt};
    if (auto range = readTextFile(folder / "max_energy_range_uj", 64)) {
      counter.maxEnergyRangeMicrojoules = parseEnergyMicrojoules(*range);
    }
    counters.push_back(std::move(counter));
  }
  if (counters.empty() && firstFailure) return fail(*firstFailure);
  return counters;
}

std::vector<PowerReading> raplPower(const std::vector<RaplCounter>& before, const std::vector<RaplCounter>& after,
                                    double seconds) {
  std::vector<PowerReading> readings;
  if (!(seconds > 0)) return readings;
  for (const auto& now : after) {
    auto was = std::find_if(before.begin(), before.end(), [&](const RaplCounter& c) { return c.zone == now.zone; });
    if (was == before.end()) continue;
    uint64_t used = 0;
    if (now.energyMicrojoules >= was->energyMicrojoules) {
      used = now.energyMicrojoules - was->energyMicrojoules;
    } else if (now.maxEnergyRangeMicrojoules && *now.maxEnergyRangeMicrojoules >= was->energyMicrojoules) {
      used = *now.maxEnergyRangeMicrojoules - was->energyMicrojoules + now.energyMicrojoules;
    } else {
      continue;
    }
    readings.push_back({kindOf(now.name), displayName(now.name), static_cast<double>(used) / 1e6 / seconds,
                        "class/powercap/" + now.zone});
  }
  return readings;
}

}  // namespace omnira::platform
