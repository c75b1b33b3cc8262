#include "Omnira/TickLine.h"

#include <algorithm>
#include <ctime>

#include <fmt/format.h>

#include "OmniraCore/foundation/SafeText.h"
#include "OmniraCore/sampling/MemoryPressure.h"

namespace omnira {

std::optional<AppGroup> TickLine::topApp(const std::vector<AppGroup>& groups) {
  auto top = std::max_element(groups.begin(), groups.end(), [](const AppGroup& a, const AppGroup& b) {
    return a.cpuPercent() < b.cpuPercent();
  });
  if (top == groups.end()) return std::nullopt;
  return *top;
}

std::string TickLine::format(const SystemSample& system, const std::vector<AppGroup>& groups,
                             const StrainSince& strain, Date at) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(at);
  std::tm local{};
  localtime_r(&seconds, &local);
  constexpr double gigabyte = 1e9;
  std::string line = fmt::format("{:02}:{:02}:{:02}  CPU {:.0f}%  Memory {:.1f}/{:.1f} GB  Pressure {}", local.tm_hour,
                                 local.tm_min, local.tm_sec, system.cpu() * 100,
                                 static_cast<double>(system.memoryUsed()) / gigabyte,
                                 static_cast<double>(system.memoryTotal) / gigabyte,
                                 memoryPressureName(system.pressure));
  if (auto top = topApp(groups)) line += fmt::format("  Top {} {:.1f}%", terminalText(top->name), top->cpuPercent());
  if (const auto strained = WorthALook::strainLine(strain, at); !strained.empty()) line += "  " + strained;
  return line;
}

}  // namespace omnira
