#include "OmniraCore/platform/linux/NvidiaML.h"

#include <dlfcn.h>

#include <cstring>
#include <memory>

#include <fmt/format.h>

namespace omnira::platform {

namespace {

// The library's C ABI, declared by hand: a return code (0 is success), an opaque device
// handle and two plain structs.
using nvmlReturn = int;
using nvmlDevice = struct nvmlDeviceOpaque*;
struct nvmlUtilization {
  unsigned int gpu;     // % of the last sample period a kernel ran
  unsigned int memory;  // % of it memory was read or written
};
struct nvmlMemory {
  unsigned long long total;
  unsigned long long free;
  unsigned long long used;
};
constexpr int temperatureSensorGPU = 0;
constexpr unsigned nameBufferSize = 96;  // the library's own bound for a device name

template <class F>
bool resolve(void* handle, const char* name, F*& into) {
  into = reinterpret_cast<F*>(::dlsym(handle, name));
  return into != nullptr;
}

}  // namespace

struct NvidiaML::Api {
  nvmlReturn (*init)();
  nvmlReturn (*shutdown)();
  nvmlReturn (*deviceCount)(unsigned int*);
  nvmlReturn (*deviceByIndex)(unsigned int, nvmlDevice*);
  nvmlReturn (*name)(nvmlDevice, char*, unsigned int);
  nvmlReturn (*utilization)(nvmlDevice, nvmlUtilization*);
  nvmlReturn (*memory)(nvmlDevice, nvmlMemory*);
  nvmlReturn (*temperature)(nvmlDevice, int, unsigned int*);
  nvmlReturn (*powerUsage)(nvmlDevice, unsigned int*);
};

NvidiaML::NvidiaML(const std::string& library) {
  handle_ = ::dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!handle_) return;
  auto api = std::make_unique<Api>();
  const bool complete = resolve(handle_, "nvmlInit_v2", api->init) && resolve(handle_, "nvmlShutdown", api->shutdown) &&
                        resolve(handle_, "nvmlDeviceGetCount_v2", api->deviceCount) &&
                        resolve(handle_, "nvmlDeviceGetHandleByIndex_v2", api->deviceByIndex) &&
                        resolve(handle_, "nvmlDeviceGetName", api->name) &&
                        resolve(handle_, "nvmlDeviceGetUtilizationRates", api->utilization) &&
                        resolve(handle_, "nvmlDeviceGetMemoryInfo", api->memory) &&
                        resolve(handle_, "nvmlDeviceGetTemperature", api->temperature) &&
                        resolve(handle_, "nvmlDeviceGetPowerUsage", api->powerUsage);
  if (!complete || api->init() != 0) {
    ::dlclose(handle_);
    handle_ = nullptr;
    return;
  }
  api_ = api.release();
}

NvidiaML::~NvidiaML() {
  if (api_) api_->shutdown();
  delete api_;
  if (handle_) ::dlclose(handle_);
}

NvidiaML::Reading NvidiaML::read() const {
  Reading reading;
  unsigned int count = 0;
  if (!api_ || api_->deviceCount(&count) != 0) return reading;
  for (unsigned int i = 0; i < count; ++i) {
    nvmlDevice device = nullptr;
    if (api_->deviceByIndex(i, &device) != 0) continue;
    const std::string source = fmt::format("NVML GPU {}", i);

    char buffer[nameBufferSize] = {};
    std::string name = api_->name(device, buffer, sizeof buffer) == 0
                           ? std::string(buffer, ::strnlen(buffer, sizeof buffer))
                           : fmt::format("NVIDIA GPU {}", i);

    GPUReading gpu{name, "nvidia", std::nullopt, std::nullopt, std::nullopt, std::nullopt, source};
    nvmlUtilization utilization{};
    if (api_->utilization(device, &utilization) == 0 && utilization.gpu <= 100) gpu.busy = utilization.gpu / 100.0;
    nvmlMemory memory{};
    if (api_->memory(device, &memory) == 0 && memory.total > 0) {
      gpu.memoryUsedBytes = memory.used;
      gpu.memoryTotalBytes = memory.total;
    }
    if (gpu.busy || gpu.memoryTotalBytes) reading.gpus.push_back(gpu);

    unsigned int celsius = 0;
    if (api_->temperature(device, temperatureSensorGPU, &celsius) == 0) {
      reading.temperatures.push_back(
          {name, "nvidia", SensorKind::gpu, static_cast<double>(celsius), std::nullopt, std::nullopt, source});
    }
    unsigned int milliwatts = 0;
    if (api_->powerUsage(device, &milliwatts) == 0) {
      reading.power.push_back({PowerReading::Kind::gpu, name, milliwatts / 1000.0, source});
    }
  }
  return reading;
}

}  // namespace omnira::platform
