#pragma once
// The machine's readings from /proc and /sys, under the roots it is given.
// Owned by one SystemSampler; touched only by the thread that owns that sampler.
// Unreadable files give absent readings (logged at debug level), never errors.

#include <filesystem>
#include <string>

#include "OmniraCore/platform/linux/Roots.h"
#include "OmniraCore/sampling/SystemSource.h"

namespace omnira::platform {

class LinuxSystemSource : public SystemSource {
 public:
  // `diskSpacePath` is the mount whose space is reported (the root file system).
  explicit LinuxSystemSource(Roots roots, std::filesystem::path diskSpacePath = "/");

  std::vector<CoreTicks> coreTicks() override;
  std::optional<MemoryReading> memory() override;
  std::optional<MemoryStall> memoryStall() override;
  std::map<std::string, ByteCounters> interfaceCounters() override;
  std::optional<ByteCounters> diskCounters() override;
  std::optional<DiskSpace> diskSpace() override;
  std::optional<BatterySample> battery() override;
  std::optional<double> loadAverage() override;
  std::optional<Date> bootTime() override;
  std::optional<double> uptimeSeconds() override;
  uint64_t monotonicNanoseconds() override;
  uint64_t awakeNanoseconds() override;
  Date now() override;

  // Whether a mains or USB supply is online (the machine is not on battery).
  // Without any power supply information a machine counts as plugged in.
  bool onExternalPower();

 private:
  std::vector<struct PowerSupply> powerSupplies();
  bool isPhysicalInterface(const std::string& name) const;
  bool isWholePhysicalDisk(const std::string& name) const;
  uint64_t zramBytesUsed();

  Roots roots_;
  std::filesystem::path diskSpacePath_;
};

}  // namespace omnira::platform
