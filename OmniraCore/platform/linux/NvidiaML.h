#pragma once
// NVIDIA GPUs through the driver's management library, loaded at run time so that the
// program runs, and builds, where no NVIDIA driver is installed. No NVIDIA headers are
// packaged for Debian's main archive, so the few types used are declared by hand in
// NvidiaML.cpp, matching the library's C ABI.
//
// An object owns one load of the library and one init; it is made and used by one
// sampling thread. Failures are silent: no library, a missing symbol or a failed init
// leave an object with no GPUs; a figure a device will not give is absent.

#include <string>
#include <vector>

#include "OmniraCore/sensors/GPUReading.h"
#include "OmniraCore/sensors/PowerReading.h"
#include "OmniraCore/sensors/TemperatureReading.h"

namespace omnira::platform {

class NvidiaML {
 public:
  struct Reading {
    std::vector<GPUReading> gpus;                  // driver "nvidia", named by the product
    std::vector<TemperatureReading> temperatures;  // kind gpu, chip "nvidia"
    std::vector<PowerReading> power;               // kind gpu
  };

  // Loads `library` (a file name for the loader's search, or a path) and initialises it.
  explicit NvidiaML(const std::string& library = "libnvidia-ml.so.1");
  ~NvidiaML();  // shuts the library down and unloads it
  NvidiaML(const NvidiaML&) = delete;
  NvidiaML& operator=(const NvidiaML&) = delete;

  // The library loaded, had every function and initialised.
  bool available() const { return api_ != nullptr; }

  // One reading of every device; empty when not available.
  Reading read() const;

 private:
  struct Api;
  void* handle_ = nullptr;
  Api* api_ = nullptr;
};

}  // namespace omnira::platform
