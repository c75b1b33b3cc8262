#include "OmniraCore/platform/linux/LinuxSensorSource.h"

#include <unistd.h>

#include <filesystem>

#include "OmniraCore/platform/linux/AccelNPU.h"
#include "OmniraCore/platform/linux/AppleSMCSysfs.h"
#include "OmniraCore/platform/linux/DrmGPU.h"
#include "OmniraCore/platform/linux/Hwmon.h"
#include "OmniraCore/platform/linux/NvidiaML.h"
#include "OmniraCore/platform/linux/PowerCap.h"
#include "OmniraCore/platform/linux/PowerSupply.h"
#include "OmniraCore/platform/linux/ThermalZones.h"
#include "OmniraCore/platform/linux/ThrottleCounters.h"
#include "OmniraCore/platform/linux/UPowerDevices.h"
#include "OmniraCore/sensors/HelperClient.h"
#include "OmniraCore/sensors/SMC.h"
#include "OmniraCore/sensors/TemperatureSummary.h"

namespace omnira::platform {

namespace fs = std::filesystem;

namespace {

constexpr double helperRetrySeconds = 60;

constexpr const char* raplNote =
    "CPU power needs root on this kernel: 'omnira helper install' lets Omnira read it through its helper.";

}  // namespace

LinuxSensorSource::LinuxSensorSource(Options options)
    : options_(std::move(options)),
      started_(std::chrono::steady_clock::now()),
      hwmon_(std::make_unique<HwmonReader>(options_.roots)),
      zones_(std::make_unique<ThermalZoneReader>(options_.roots)),
      throttle_(std::make_unique<ThrottleCounterReader>(options_.roots)),
      gpus_(std::make_unique<DrmGPUReader>(options_.roots)),
      npus_(std::make_unique<AccelNPUReader>(options_.roots)) {
  // Loading the library costs milliseconds and a page of mappings; only a machine whose
  // kernel runs NVIDIA's driver can have anything to say through it.
  std::error_code ec;
  if (fs::exists(options_.roots.sys / "module" / "nvidia", ec)) {
    auto nvidia = std::make_unique<NvidiaML>(options_.nvidiaLibrary);
    if (nvidia->available()) nvidia_ = std::move(nvidia);
  }
  // The SMC's own total on Intel Macs. Selecting a key needs root, so a normal user's
  // process does not try; the listing is read once, on the first lookup.
  if (options_.readsSMC) {
    if (auto device = appleSMCDevice(options_.roots)) {
      smcPort_ = std::make_unique<AppleSMCSysfsKeyPort>(*device);
      smcTransport_ = std::make_unique<AppleSMCSysfs>(*smcPort_, *device);
    }
  }
  if (!options_.helperSocket.empty()) {
    HelperClient::Options helper;
    helper.socket = options_.helperSocket;
    helper.config = options_.helperConfig;
    helper.timeout = std::chrono::milliseconds(500);
    helper_ = std::make_unique<HelperClient>(helper);
  }
}

LinuxSensorSource::~LinuxSensorSource() = default;

double LinuxSensorSource::now() const {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - started_).count();
}

std::vector<RaplCounter> LinuxSensorSource::raplCounters(std::string& note) {
  if (!raplDenied_) {
    auto local = readRaplCounters(options_.roots);
    if (local) return std::move(local).value();
    if (local.error().kind != ReadFailure::Kind::denied) return {};
    raplDenied_ = true;  // stays so while this process runs: rights do not change under it
  }
  note = raplNote;
  if (!helper_) return {};
  const double at = now();
  if (helperFailedAt_ && at - *helperFailedAt_ < helperRetrySeconds) return {};
  auto counters = helper_->rapl();
  if (!counters) {
    helperFailedAt_ = at;
    return {};
  }
  helperFailedAt_.reset();
  note.clear();
  return std::move(counters).value();
}

SensorSample LinuxSensorSource::read() {
  SensorSample sample;
  auto hwmon = hwmon_->read();
  sample.temperatures = temperatures(hwmon.temperatures, zones_->read());
  sample.fans = std::move(hwmon.fans);
  sample.powers = std::move(hwmon.power);

  const double at = now();
  auto throttle = throttle_->read();
  if (!throttle.empty()) {
    if (lastThrottle_) {
      const auto step = throttleStep(*lastThrottle_, throttle, at - lastThrottleAt_);
      sample.throttledCPUs = step.throttledCPUs;
      sample.throttledShare = step.throttledShare;
    }
    lastThrottle_ = std::move(throttle);
    lastThrottleAt_ = at;
  }

  auto rapl = raplCounters(sample.powerNote);
  const double raplAt = now();
  if (!rapl.empty()) {
    for (auto& power : raplPower(lastRapl_, rapl, raplAt - lastRaplAt_)) sample.powers.push_back(std::move(power));
    lastRapl_ = std::move(rapl);
    lastRaplAt_ = raplAt;
  }


  if (smcTransport_) {
    SMC smc(*smcTransport_);
    if (auto watts = smc.systemPower())
      sample.powers.push_back({PowerReading::Kind::system, "Whole computer (SMC)", *watts, "SMC PSTR"});
  }

  sample.gpus = gpus_->read(now());
  if (nvidia_) {
    auto nvidia = nvidia_->read();
    for (auto& gpu : nvidia.gpus) sample.gpus.push_back(std::move(gpu));
    for (auto& t : nvidia.temperatures) sample.temperatures.push_back(std::move(t));
    for (auto& p : nvidia.power) sample.powers.push_back(std::move(p));
  }
  sample.npus = npus_->read(now());

  sample.cpuCelsius = cpuCelsius(sample.temperatures);
  if (const auto* hottest = hottestReading(sample.temperatures)) {
    sample.hottestCelsius = hottest->celsius;
    sample.hottestName = hottest->name + " (" + hottest->chip + ")";
  }
  return sample;
}

std::vector<PeripheralBattery> LinuxSensorSource::peripherals() {
  auto fromSupplies = peripheralBatteries(readPowerSupplies(options_.roots));
  if (options_.upowerBus == "none") return fromSupplies;
  return mergePeripherals(std::move(fromSupplies), readUPowerPeripherals(options_.upowerBus));
}

}  // namespace omnira::platform
