#include "OmniraCore/platform/linux/Hwmon.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <set>
#include <string>

#include "OmniraCore/foundation/Parse.h"
#include "OmniraCore/platform/linux/SensorKinds.h"
#include "OmniraCore/platform/linux/SysfsAttributes.h"

namespace omnira::platform {

std::optional<int64_t> parseHwmonInteger(std::string_view text) { return parseNumber<int64_t>(trim(text)); }

std::optional<double> parseMillidegrees(std::string_view text) {
  auto value = parseHwmonInteger(text);
  if (!value) return std::nullopt;
  return static_cast<double>(*value) / 1000.0;
}

std::optional<double> parseMillivolts(std::string_view text) { return parseMillidegrees(text); }

std::optional<double> parseMicrowatts(std::string_view text) {
  auto value = parseHwmonInteger(text);
  if (!value) return std::nullopt;
  return static_cast<double>(*value) / 1e6;
}

bool plausibleCelsius(double celsius, SensorKind kind) {
  if (!std::isfinite(celsius) || celsius < -55.0 || celsius > 150.0) return false;
  if (celsius == 127.0 || celsius == 128.0) return false;
  if (celsius == 0.0 && kind != SensorKind::ambient) return false;
  return true;
}

bool plausibleLimitCelsius(double celsius) { return std::isfinite(celsius) && celsius > 0.0 && celsius <= 125.0; }

namespace {

constexpr size_t valueBufferSize = 64;  // the longest integer a driver writes, and then some

struct TempSensor {
  std::string input;  // "temp1_input"
  std::string name;
  SensorKind kind = SensorKind::other;
  std::optional<double> hot;
  std::optional<double> critical;
  std::string source;
};

struct FanSensor {
  int index = 0;
  std::string input;      // "fan1_input"
  std::string target;     // "fan1_target", applesmc's "fan1_output", or empty
  std::string modeFile;   // "pwm1_enable", applesmc's "fan1_manual", or empty
  bool smcMode = false;   // modeFile is fanN_manual (0 automatic, 1 manual)
  std::string label;
  std::optional<double> minimum;
  std::optional<double> maximum;
};

struct PowerSensor {
  std::string input;  // "power1_input" or "power1_average"
  std::string name;
  PowerReading::Kind kind = PowerReading::Kind::other;
  std::string source;
};

struct Device {
  DirectoryHandle dir;  // the folder holding the attributes
  std::string chip;
  std::string folder;  // relative to the sysfs root
  std::vector<TempSensor> temperatures;
  std::vector<FanSensor> fans;
  std::vector<PowerSensor> power;
};

// "temp12_input" with prefix "temp" and suffix "_input" gives 12.
std::optional<unsigned> attributeNumber(std::string_view name, std::string_view prefix, std::string_view suffix) {
  if (!name.starts_with(prefix) || !name.ends_with(suffix) || name.size() <= prefix.size() + suffix.size())
    return std::nullopt;
  return parseNumber<unsigned>(name.substr(prefix.size(), name.size() - prefix.size() - suffix.size()));
}

std::optional<int64_t> readInteger(int dir, const char* name, bool* vanished = nullptr) {
  char buffer[valueBufferSize];
  const auto read = readAttributeAt(dir, name, buffer, sizeof buffer);
  if (read.status == AttributeRead::Status::missing && vanished) *vanished = true;
  if (read.status != AttributeRead::Status::ok) return std::nullopt;
  return parseHwmonInteger(read.text);
}

std::optional<double> readLimit(int dir, const std::set<std::string, std::less<>>& files, const std::string& name) {
  if (!files.contains(name)) return std::nullopt;
  auto value = readInteger(dir, name.c_str());
  if (!value) return std::nullopt;
  const double celsius = static_cast<double>(*value) / 1000.0;
  if (!plausibleLimitCelsius(celsius)) return std::nullopt;
  return celsius;
}

std::optional<double> rpmFigure(std::optional<int64_t> value) {
  if (!value || *value < 0 || *value > 100000) return std::nullopt;
  return static_cast<double>(*value);
}

std::string labelOf(int dir, const std::set<std::string, std::less<>>& files, const std::string& name) {
  if (!files.contains(name)) return {};
  return readAttributeLineAt(dir, name.c_str()).value_or(std::string());
}

std::vector<std::pair<unsigned, std::string>> hwmonEntries(const std::string& classPath) {
  std::vector<std::pair<unsigned, std::string>> entries;
  for (auto& name : listDirectory(classPath))
    if (auto n = numberAfter(name, "hwmon")) entries.emplace_back(*n, std::move(name));
  std::sort(entries.begin(), entries.end());
  return entries;
}

}  // namespace

struct HwmonReader::State {
  Roots roots;
  std::string classPath;
  bool discovered = false;
  std::vector<std::pair<unsigned, std::string>> entries;
  std::vector<Device> devices;

  void discover(std::vector<std::pair<unsigned, std::string>> fresh);
  Device describe(int classDir, const std::string& entry, int& nextFan) const;
  bool readInto(HwmonReadings& out) const;
};

Device HwmonReader::State::describe(int classDir, const std::string& entry, int& nextFan) const {
  Device device;
  device.folder = "class/hwmon/" + entry;
  DirectoryHandle dir = DirectoryHandle::openAt(classDir, entry.c_str());
  if (!dir.valid()) return device;
  // Older drivers (applesmc among them) keep name and attributes in the parent device's
  // folder; the hwmon folder then only links to it.
  if (::faccessat(dir.fd(), "name", F_OK, 0) != 0) {
    DirectoryHandle parent = DirectoryHandle::openAt(dir.fd(), "device");
    if (parent.valid() && ::faccessat(parent.fd(), "name", F_OK, 0) == 0) {
      dir = std::move(parent);
      device.folder += "/device";
    }
  }
  device.chip = readAttributeLineAt(dir.fd(), "name").value_or(std::string());

  std::set<std::string, std::less<>> files;
  for (auto& name : listDirectory(dir.fd())) files.insert(std::move(name));
  std::set<unsigned> temps, fans, powers;
  for (const auto& name : files) {
    if (auto n = attributeNumber(name, "temp", "_input")) temps.insert(*n);
    else if (auto n = attributeNumber(name, "fan", "_input")) fans.insert(*n);
    else if (auto n = attributeNumber(name, "power", "_input")) powers.insert(*n);
    else if (auto n = attributeNumber(name, "power", "_average")) powers.insert(*n);
  }
  const int fd = dir.fd();

  for (unsigned n : temps) {
    const std::string base = "temp" + std::to_string(n);
    TempSensor t;
    t.input = base + "_input";
    const std::string label = labelOf(fd, files, base + "_label");
    t.name = label.empty() ? base : label;
    t.kind = sensorKind(device.chip, label);
    t.hot = readLimit(fd, files, base + "_max");
    t.critical = readLimit(fd, files, base + "_crit");
    if (!t.critical) t.critical = readLimit(fd, files, base + "_emergency");
    t.source = device.folder + "/" + t.input;
    device.temperatures.push_back(std::move(t));
  }

  for (unsigned n : fans) {
    const std::string base = "fan" + std::to_string(n);
    FanSensor f;
    f.index = nextFan++;
    f.input = base + "_input";
    f.label = labelOf(fd, files, base + "_label");
    if (f.label.empty()) f.label = "Fan " + std::to_string(n);
    if (files.contains(base + "_min")) f.minimum = rpmFigure(readInteger(fd, (base + "_min").c_str()));
    if (files.contains(base + "_max")) f.maximum = rpmFigure(readInteger(fd, (base + "_max").c_str()));
    if (f.maximum == 0.0) f.maximum.reset();  // no real fan tops out at 0 rpm
    if (files.contains(base + "_target")) f.target = base + "_target";
    else if (files.contains(base + "_output")) f.target = base + "_output";
    const std::string pwmEnable = "pwm" + std::to_string(n) + "_enable";
    if (files.contains(pwmEnable)) {
      f.modeFile = pwmEnable;
    } else if (files.contains(base + "_manual")) {
      f.modeFile = base + "_manual";
      f.smcMode = true;
    }
    device.fans.push_back(std::move(f));
  }

  for (unsigned n : powers) {
    const std::string base = "power" + std::to_string(n);
    PowerSensor p;
    p.input = files.contains(base + "_input") ? base + "_input" : base + "_average";
    const std::string label = labelOf(fd, files, base + "_label");
    p.name = label.empty() ? device.chip + " " + base : label;
    p.kind = hwmonPowerKind(device.chip, label);
    p.source = device.folder + "/" + p.input;
    device.power.push_back(std::move(p));
  }

  device.dir = std::move(dir);
  return device;
}

void HwmonReader::State::discover(std::vector<std::pair<unsigned, std::string>> fresh) {
  devices.clear();
  entries = std::move(fresh);
  discovered = true;
  DirectoryHandle classDir = DirectoryHandle::open(classPath);
  if (!classDir.valid()) return;
  int nextFan = 0;
  for (const auto& [number, entry] : entries) {
    Device device = describe(classDir.fd(), entry, nextFan);
    if (device.dir.valid()) devices.push_back(std::move(device));
  }
}

// Returns true when a file that discovery saw is gone, so the layout must be looked at again.
bool HwmonReader::State::readInto(HwmonReadings& out) const {
  bool vanished = false;
  char buffer[valueBufferSize];
  for (const auto& d : devices) {
    const int fd = d.dir.fd();
    for (const auto& t : d.temperatures) {
      const auto read = readAttributeAt(fd, t.input.c_str(), buffer, sizeof buffer);
      if (read.status == AttributeRead::Status::missing) vanished = true;
      if (read.status != AttributeRead::Status::ok) continue;
      auto celsius = parseMillidegrees(read.text);
      if (!celsius || !plausibleCelsius(*celsius, t.kind)) continue;
      out.temperatures.push_back({t.name, d.chip, t.kind, *celsius, t.hot, t.critical, t.source});
    }
    for (const auto& f : d.fans) {
      FanStatus fan;
      fan.index = f.index;
      fan.chip = d.chip;
      fan.label = f.label;
      fan.rpm = rpmFigure(readInteger(fd, f.input.c_str(), &vanished));
      fan.minimumRPM = f.minimum;
      fan.maximumRPM = f.maximum;
      if (!f.target.empty()) fan.targetRPM = rpmFigure(readInteger(fd, f.target.c_str()));
      if (!f.modeFile.empty()) {
        if (auto mode = readInteger(fd, f.modeFile.c_str())) {
          if (f.smcMode) fan.mode = *mode == 1 ? FanStatus::Mode::manual : *mode == 0 ? FanStatus::Mode::automatic
                                                                                      : FanStatus::Mode::unknown;
          else if (*mode == 0) fan.mode = FanStatus::Mode::fullSpeed;
          else if (*mode == 1) fan.mode = FanStatus::Mode::manual;
          else if (*mode >= 2) fan.mode = FanStatus::Mode::automatic;
        }
      }
      fan.source = d.folder;
      out.fans.push_back(std::move(fan));
    }
    for (const auto& p : d.power) {
      const auto read = readAttributeAt(fd, p.input.c_str(), buffer, sizeof buffer);
      if (read.status == AttributeRead::Status::missing) vanished = true;
      if (read.status != AttributeRead::Status::ok) continue;
      auto watts = parseMicrowatts(read.text);
      if (!watts || *watts < 0) continue;
      out.power.push_back({p.kind, p.name, *watts, p.source});
    }
  }
  return vanished;
}

HwmonReader::HwmonReader(Roots roots) : state_(std::make_unique<State>()) {
  state_->roots = std::move(roots);
  state_->classPath = (state_->roots.sys / "class" / "hwmon").string();
}

HwmonReader::~HwmonReader() = default;
HwmonReader::HwmonReader(HwmonReader&&) noexcept = default;
HwmonReader& HwmonReader::operator=(HwmonReader&&) noexcept = default;

void HwmonReader::rediscover() { state_->discovered = false; }

HwmonReadings HwmonReader::read() {
  auto entries = hwmonEntries(state_->classPath);
  if (!state_->discovered || entries != state_->entries) state_->discover(std::move(entries));
  HwmonReadings out;
  if (state_->readInto(out)) {
    // A device went away under us: look again and read once more.
    state_->discover(hwmonEntries(state_->classPath));
    out = {};
    state_->readInto(out);
  }
  return out;
}

}  // namespace omnira::platform
