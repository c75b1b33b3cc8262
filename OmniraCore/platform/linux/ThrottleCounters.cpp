#include "OmniraCore/platform/linux/ThrottleCounters.h"

#include <unistd.h>

#include <algorithm>
#include <map>
#include <string>

#include "OmniraCore/foundation/Parse.h"
#include "OmniraCore/platform/linux/SysfsAttributes.h"

namespace omnira::platform {

std::optional<uint64_t> parseThrottleCounter(std::string_view text) { return parseNumber<uint64_t>(trim(text)); }

namespace {

// Growth of one counter, or absent when either side lacks it or it went down.
std::optional<uint64_t> growth(const std::optional<uint64_t>& before, const std::optional<uint64_t>& after) {
  if (!before || !after || *after < *before) return std::nullopt;
  return *after - *before;
}

constexpr const char* counterFiles[] = {"core_throttle_count", "package_throttle_count",
                                        "core_throttle_total_time_ms", "package_throttle_total_time_ms"};

struct CPUFolder {
  unsigned cpu = 0;
  DirectoryHandle dir;
  bool present[4] = {};
};

}  // namespace

ThrottleStep throttleStep(const std::vector<CPUThrottleCounters>& before,
                          const std::vector<CPUThrottleCounters>& after, double intervalSeconds) {
  std::map<unsigned, const CPUThrottleCounters*> earlier;
  for (const auto& c : before) earlier[c.cpu] = &c;
  ThrottleStep step;
  for (const auto& now : after) {
    auto it = earlier.find(now.cpu);
    if (it == earlier.end()) continue;
    const auto& then = *it->second;
    auto coreCount = growth(then.coreCount, now.coreCount);
    auto packageCount = growth(then.packageCount, now.packageCount);
    auto coreTime = growth(then.coreMilliseconds, now.coreMilliseconds);
    auto packageTime = growth(then.packageMilliseconds, now.packageMilliseconds);
    auto positive = [](const std::optional<uint64_t>& v) { return v && *v > 0; };
    if (positive(coreCount) || positive(packageCount) || positive(coreTime) || positive(packageTime))
      ++step.throttledCPUs;
    if ((coreTime || packageTime) && intervalSeconds > 0) {
      const double ms = static_cast<double>(std::max(coreTime.value_or(0), packageTime.value_or(0)));
      const double share = std::min(ms / (intervalSeconds * 1000.0), 1.0);
      step.throttledShare = std::max(step.throttledShare.value_or(0.0), share);
    }
  }
  return step;
}

struct ThrottleCounterReader::State {
  std::string cpuPath;
  bool discovered = false;
  std::vector<CPUFolder> cpus;

  void discover();
  bool readInto(std::vector<CPUThrottleCounters>& out) const;
};

void ThrottleCounterReader::State::discover() {
  cpus.clear();
  discovered = true;
  DirectoryHandle cpuDir = DirectoryHandle::open(cpuPath);
  if (!cpuDir.valid()) return;
  for (const auto& name : listDirectory(cpuDir.fd())) {
    auto n = numberAfter(name, "cpu");
    if (!n) continue;
    CPUFolder folder;
    folder.cpu = *n;
    folder.dir = DirectoryHandle::openAt(cpuDir.fd(), (name + "/thermal_throttle").c_str());
    if (!folder.dir.valid()) continue;
    bool any = false;
    for (int i = 0; i < 4; ++i) {
      folder.present[i] = ::faccessat(folder.dir.fd(), counterFiles[i], F_OK, 0) == 0;
      any = any || folder.present[i];
    }
    if (any) cpus.push_back(std::move(folder));
  }
  std::sort(cpus.begin(), cpus.end(), [](const CPUFolder& a, const CPUFolder& b) { return a.cpu < b.cpu; });
}

bool ThrottleCounterReader::State::readInto(std::vector<CPUThrottleCounters>& out) const {
  bool vanished = false;
  char buffer[64];
  out.reserve(cpus.size());
  for (const auto& folder : cpus) {
    CPUThrottleCounters c;
    c.cpu = folder.cpu;
    std::optional<uint64_t>* slots[] = {&c.coreCount, &c.packageCount, &c.coreMilliseconds, &c.packageMilliseconds};
    for (int i = 0; i < 4; ++i) {
      if (!folder.present[i]) continue;
      const auto read = readAttributeAt(folder.dir.fd(), counterFiles[i], buffer, sizeof buffer);
      if (read.status == AttributeRead::Status::missing) vanished = true;
      if (read.status == AttributeRead::Status::ok) *slots[i] = parseThrottleCounter(read.text);
    }
    out.push_back(c);
  }
  return vanished;
}

ThrottleCounterReader::ThrottleCounterReader(Roots roots) : state_(std::make_unique<State>()) {
  state_->cpuPath = (roots.sys / "devices" / "system" / "cpu").string();
}

ThrottleCounterReader::~ThrottleCounterReader() = default;
ThrottleCounterReader::ThrottleCounterReader(ThrottleCounterReader&&) noexcept = default;
ThrottleCounterReader& ThrottleCounterReader::operator=(ThrottleCounterReader&&) noexcept = default;

void ThrottleCounterReader::rediscover() { state_->discovered = false; }

std::vector<CPUThrottleCounters> ThrottleCounterReader::read() {
  if (!state_->discovered) state_->discover();
  std::vector<CPUThrottleCounters> out;
  if (state_->readInto(out)) {
    state_->discover();
    out.clear();
    state_->readInto(out);
  }
  return out;
}

}  // namespace omnira::platform
