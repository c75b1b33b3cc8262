#include "OmniraCore/platform/linux/LinuxSystemSource.h"

#include <spdlog/spdlog.h>
#include <sys/statvfs.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "OmniraCore/foundation/Parse.h"
#include "OmniraCore/platform/linux/DiskStats.h"
#include "OmniraCore/platform/linux/FileText.h"
#include "OmniraCore/platform/linux/KernelStat.h"
#include "OmniraCore/platform/linux/MemInfo.h"
#include "OmniraCore/platform/linux/PowerSupply.h"
#include "OmniraCore/platform/linux/PressureStall.h"

namespace omnira::platform {

namespace fs = std::filesystem;

namespace {

std::optional<std::string> readOrLog(const fs::path& path) {
  auto text = readTextFile(path);
  if (!text) {
    spdlog::debug("cannot read {}: {}", path.string(), std::strerror(text.error().error));
    return std::nullopt;
  }
  return std::move(text).value();
}

std::optional<uint64_t> readCounter(const fs::path& path) {
  auto text = readTextFile(path, 64);
  if (!text) return std::nullopt;
  return parseNumber<uint64_t>(trim(*text));
}

bool pathExists(const fs::path& path) {
  std::error_code ec;
  return fs::exists(path, ec);
}

}  // namespace

LinuxSystemSource::LinuxSystemSource(Roots roots, fs::path diskSpacePath)
    : roots_(std::move(roots)), diskSpacePath_(std::move(diskSpacePath)) {}

std::vector<CoreTicks> LinuxSystemSource::coreTicks() {
  auto text = readOrLog(roots_.proc / "stat");
  if (!text) return {};
  auto stat = parseKernelStat(*text);
  if (!stat) {
    spdlog::debug("/proc/stat: {}", stat.error().message);
    return {};
  }
  return std::move(stat->cores);
}

uint64_t LinuxSystemSource::zramBytesUsed() {
  uint64_t sum = 0;
  std::error_code ec;
  for (fs::directory_iterator it(roots_.sys / "block", ec), end; !ec && it != end; it.increment(ec)) {
    const auto name = it->path().filename().string();
    if (!name.starts_with("zram")) continue;
    auto text = readTextFile(it->path() / "mm_stat", 4096);
    if (!text) continue;
    if (auto used = parseZramMemoryUsed(*text)) sum += *used;
  }
  return sum;
}

std::optional<MemoryReading> LinuxSystemSource::memory() {
  auto text = readOrLog(roots_.proc / "meminfo");
  if (!text) return std::nullopt;
  auto info = parseMemInfo(*text);
  if (!info) {
    spdlog::debug("/proc/meminfo: {}", info.error().message);
    return std::nullopt;
  }
  return memoryReading(*info, zramBytesUsed());
}

std::optional<MemoryStall> LinuxSystemSource::memoryStall() {
  // Absent on kernels built without pressure-stall information, or with it switched off.
  auto text = readTextFile(roots_.proc / "pressure" / "memory", 4096);
  if (!text) return std::nullopt;
  auto stall = parseMemoryStall(*text);
  if (!stall) return std::nullopt;
  return *stall;
}

bool LinuxSystemSource::isPhysicalInterface(const std::string& name) const {
  // Backed by a device: loopback, bridges, veth pairs, tunnels and VPNs have none.
  return pathExists(roots_.sys / "class" / "net" / name / "device");
}

std::map<std::string, ByteCounters> LinuxSystemSource::interfaceCounters() {
  std::map<std::string, ByteCounters> counters;
  std::error_code ec;
  const fs::path net = roots_.sys / "class" / "net";
  for (fs::directory_iterator it(net, ec), end; !ec && it != end; it.increment(ec)) {
    const auto name = it->path().filename().string();
    if (!isPhysicalInterface(name)) continue;
    auto received = readCounter(net / name / "statistics" / "rx_bytes");
    auto sent = readCounter(net / name / "statistics" / "tx_bytes");
    if (received && sent) counters[name] = ByteCounters{*received, *sent};
  }
  return counters;
}

bool LinuxSystemSource::isWholePhysicalDisk(const std::string& name) const {
  // Partitions are not in /sys/block, and loop, zram, device-mapper and md devices
  // have no device link there, so no byte is counted twice.
  std::string sysName = name;
  for (auto& c : sysName)
    if (c == '/') c = '!';
  return pathExists(roots_.sys / "block" / sysName / "device");
}

std::optional<ByteCounters> LinuxSystemSource::diskCounters() {
  auto text = readOrLog(roots_.proc / "diskstats");
  if (!text) return std::nullopt;
  ByteCounters sum;
  for (const auto& [name, counters] : parseDiskStats(*text)) {
    if (!isWholePhysicalDisk(name)) continue;
    sum.received += counters.received;
    sum.sent += counters.sent;
  }
  return sum;
}

std::optional<DiskSpace> LinuxSystemSource::diskSpace() {
  struct statvfs info {};
  if (::statvfs(diskSpacePath_.c_str(), &info) != 0) return std::nullopt;
  return DiskSpace{static_cast<uint64_t>(info.f_blocks) * info.f_frsize,
                   static_cast<uint64_t>(info.f_bavail) * info.f_frsize};
}

std::vector<PowerSupply> LinuxSystemSource::powerSupplies() { return readPowerSupplies(roots_); }

std::optional<BatterySample> LinuxSystemSource::battery() { return batteryFrom(powerSupplies()); }

bool LinuxSystemSource::onExternalPower() {
  auto supplies = powerSupplies();
  if (!batteryFrom(supplies)) return true;
  return platform::onExternalPower(supplies);
}

std::optional<double> LinuxSystemSource::loadAverage() {
  double load[1];
  if (::getloadavg(load, 1) != 1) return std::nullopt;
  return load[0];
}

std::optional<Date> LinuxSystemSource::bootTime() {
  auto text = readOrLog(roots_.proc / "stat");
  if (!text) return std::nullopt;
  auto stat = parseKernelStat(*text);
  if (!stat || !stat->bootTime) return std::nullopt;
  return Date(std::chrono::seconds(*stat->bootTime));
}

std::optional<double> LinuxSystemSource::uptimeSeconds() {
  // https://man7.org/linux/man-pages/man5/proc_uptime.5.html
  auto text = readOrLog(roots_.proc / "uptime");
  if (!text) return std::nullopt;
  auto fields = splitFields(trim(*text));
  if (fields.empty()) return std::nullopt;
  return parseNumber<double>(fields[0]);
}

uint64_t LinuxSystemSource::monotonicNanoseconds() {
  timespec ts{};
  ::clock_gettime(CLOCK_BOOTTIME, &ts);
  return static_cast<uint64_t>(ts.tv_sec) * 1'000'000'000ULL + static_cast<uint64_t>(ts.tv_nsec);
}

uint64_t LinuxSystemSource::awakeNanoseconds() {
  timespec ts{};
  ::clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<uint64_t>(ts.tv_sec) * 1'000'000'000ULL + static_cast<uint64_t>(ts.tv_nsec);
}

Date LinuxSystemSource::now() { return std::chrono::system_clock::now(); }

}  // namespace omnira::platform
