// The NVML loader against a stand-in library built with the tests: figures come through
// as the library gives them, and every way of not having the library leaves no GPUs.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include "OmniraCore/platform/linux/NvidiaML.h"

namespace omnira::platform {
namespace {

// The test's own load of the stand-in keeps it, and its count of inits, in memory
// across the loader's load and unload.
struct FakeLibrary {
  void* handle = ::dlopen(OMNIRA_FAKE_NVML, RTLD_NOW | RTLD_LOCAL);
  ~FakeLibrary() {
    if (handle) ::dlclose(handle);
  }
  int openInits() const {
    auto count = reinterpret_cast<int (*)()>(::dlsym(handle, "fakeNvmlOpenInits"));
    return count ? count() : -1;
  }
};

TEST(NvidiaML, ReadsEachDeviceAndLeavesOutWhatItWillNotGive) {
  FakeLibrary fake;
  ASSERT_NE(fake.handle, nullptr) << ::dlerror();
  {
    NvidiaML nvml(OMNIRA_FAKE_NVML);
    ASSERT_TRUE(nvml.available());
    EXPECT_EQ(fake.openInits(), 1);
    auto reading = nvml.read();

    ASSERT_EQ(reading.gpus.size(), 2u);
    EXPECT_EQ(reading.gpus[0], (GPUReading{"Fake GeForce 0", "nvidia", 0.37, 1073741824u, 8589934592u, std::nullopt,
                                           "NVML GPU 0"}));
    EXPECT_FALSE(reading.gpus[1].busy);  // the library could not sample it

    ASSERT_EQ(reading.temperatures.size(), 1u);
    EXPECT_EQ(reading.temperatures[0], (TemperatureReading{"Fake GeForce 0", "nvidia", SensorKind::gpu, 61,
                                                           std::nullopt, std::nullopt, "NVML GPU 0"}));
    ASSERT_EQ(reading.power.size(), 1u);
    EXPECT_EQ(reading.power[0], (PowerReading{PowerReading::Kind::gpu, "Fake GeForce 0", 123.456, "NVML GPU 0"}));
  }
  EXPECT_EQ(fake.openInits(), 0);  // shut down on the way out
}

TEST(NvidiaML, NoLibraryAMissingFunctionOrAFailedInitIsNoGPU) {
  NvidiaML missing("/nonexistent/libnvidia-ml.so.1");
  EXPECT_FALSE(missing.available());
  EXPECT_TRUE(missing.read().gpus.empty());

  FakeLibrary fake;
  {
    NvidiaML partial(OMNIRA_FAKE_NVML_PARTIAL);
    EXPECT_FALSE(partial.available());
    auto reading = partial.read();
    EXPECT_TRUE(reading.gpus.empty());
    EXPECT_TRUE(reading.temperatures.empty());
    EXPECT_TRUE(reading.power.empty());
  }

  ::setenv("FAKE_NVML_INIT_FAILS", "1", 1);
  {
    NvidiaML failing(OMNIRA_FAKE_NVML);
    ::unsetenv("FAKE_NVML_INIT_FAILS");
    EXPECT_FALSE(failing.available());
    EXPECT_TRUE(failing.read().gpus.empty());
  }
  EXPECT_EQ(fake.openInits(), 0);  // no shutdown for an init that failed, none left open
}

}  // namespace
}  // namespace omnira::platform
