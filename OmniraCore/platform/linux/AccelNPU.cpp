#include "OmniraCore/platform/linux/AccelNPU.h"

#include <algorithm>
#include <filesystem>

#include "OmniraCore/foundation/Parse.h"
#include "OmniraCore/platform/linux/FileText.h"

namespace omnira::platform {

namespace fs = std::filesystem;

std::optional<uint64_t> parseBusyMicroseconds(std::string_view text) { return parseNumber<uint64_t>(trim(text)); }

std::vector<AccelDevice> readAccelDevices(const Roots& roots) {
  std::vector<std::pair<unsigned, AccelDevice>> devices;
  std::error_code ec;
  for (fs::directory_iterator it(roots.sys / "class" / "accel", ec), end; !ec && it != end; it.increment(ec)) {
    const std::string name = it->path().filename().string();
    if (!name.starts_with("accel")) continue;
    auto number = parseNumber<unsigned>(std::string_view(name).substr(5));
    if (!number) continue;
    AccelDevice device{name, {}, std::nullopt, "class/accel/" + name};
    std::error_code linkError;
    const auto driver = fs::read_symlink(it->path() / "device" / "driver", linkError);
    if (!linkError) device.driver = driver.filename().string();
    if (auto text = readTextFile(it->path() / "device" / "npu_busy_time_us", 64))
      device.busyMicroseconds = parseBusyMicroseconds(*text);
    devices.emplace_back(*number, std::move(device));
  }
  std::sort(devices.begin(), devices.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  std::vector<AccelDevice> out;
  for (auto& [number, device] : devices) out.push_back(std::move(device));
  return out;
}

std::vector<NPUReading> npuReadings(const std::vector<AccelDevice>& before, const std::vector<AccelDevice>& after,
                                    double seconds) {
  std::vector<NPUReading> readings;
  for (const auto& device : after) {
    NPUReading r{device.name, device.driver, std::nullopt, device.source};
    auto was = std::find_if(before.begin(), before.end(), [&](const AccelDevice& d) { return d.name == device.name; });
    if (seconds > 0 && device.busyMicroseconds && was != before.end() && was->busyMicroseconds &&
        *device.busyMicroseconds >= *was->busyMicroseconds) {
      const double busy = static_cast<double>(*device.busyMicroseconds - *was->busyMicroseconds) / 1e6;
      r.busy = std::clamp(busy / seconds, 0.0, 1.0);
    }
    readings.push_back(std::move(r));
  }
  return readings;
}

std::vector<NPUReading> AccelNPUReader::read(double monotonicSeconds) {
  auto devices = readAccelDevices(roots_);
  const double seconds = previousAt_ ? monotonicSeconds - *previousAt_ : 0;
  auto readings = npuReadings(previous_, devices, seconds);
  previous_ = std::move(devices);
  previousAt_ = monotonicSeconds;
  return readings;
}

}  // namespace omnira::platform
