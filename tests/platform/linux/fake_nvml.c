/* A stand-in for the NVIDIA management library with known figures, for the loader's tests.
   Two devices: the first gives everything, the second no temperature or power and a
   utilisation the library could not sample. FAKE_NVML_INIT_FAILS in the environment makes
   init fail. Built without the power function (FAKE_NVML_WITHOUT_POWER) it is a library
   that lacks a symbol. */

#include <stdlib.h>
#include <string.h>

struct fakeDevice {
  const char* name;
  int utilization, memory, temperature, power;  /* 0: the call succeeds */
  unsigned int gpuPercent;
  unsigned long long total, used;
  unsigned int celsius, milliwatts;
};

static struct fakeDevice devices[2] = {
    {"Fake GeForce 0", 0, 0, 0, 0, 37, 8589934592ULL, 1073741824ULL, 61, 123456},
    {"Fake Quadro 1", 3, 0, 3, 3, 0, 4294967296ULL, 0ULL, 0, 0},
};

static int inits = 0;

/* For the tests: how many inits have not been shut down (below 0 after a shutdown too many). */
int fakeNvmlOpenInits(void) { return inits; }

int nvmlInit_v2(void) {
  if (getenv("FAKE_NVML_INIT_FAILS")) return 999;
  ++inits;
  return 0;
}

int nvmlShutdown(void) {
  --inits;
  return inits < 0 ? 1 /* NVML_ERROR_UNINITIALIZED */ : 0;
}

int nvmlDeviceGetCount_v2(unsigned int* count) {
  if (inits <= 0) return 1;
  *count = 2;
  return 0;
}

int nvmlDeviceGetHandleByIndex_v2(unsigned int index, struct fakeDevice** device) {
  if (inits <= 0 || index >= 2) return 2; /* NVML_ERROR_INVALID_ARGUMENT */
  *device = &devices[index];
  return 0;
}

int nvmlDeviceGetName(struct fakeDevice* device, char* name, unsigned int length) {
  if (strlen(device->name) + 1 > length) return 7; /* NVML_ERROR_INSUFFICIENT_SIZE */
  strcpy(name, device->name);
  return 0;
}

struct fakeUtilization { unsigned int gpu, memory; };
int nvmlDeviceGetUtilizationRates(struct fakeDevice* device, struct fakeUtilization* utilization) {
  if (device->utilization) return device->utilization;
  utilization->gpu = device->gpuPercent;
  utilization->memory = 5;
  return 0;
}

struct fakeMemory { unsigned long long total, free, used; };
int nvmlDeviceGetMemoryInfo(struct fakeDevice* device, struct fakeMemory* memory) {
  if (device->memory) return device->memory;
  memory->total = device->total;
  memory->used = device->used;
  memory->free = device->total - device->used;
  return 0;
}

int nvmlDeviceGetTemperature(struct fakeDevice* device, int sensor, unsigned int* celsius) {
  if (sensor != 0) return 2;
  if (device->temperature) return device->temperature;
  *celsius = device->celsius;
  return 0;
}

#ifndef FAKE_NVML_WITHOUT_POWER
int nvmlDeviceGetPowerUsage(struct fakeDevice* device, unsigned int* milliwatts) {
  if (device->power) return device->power;
  *milliwatts = device->milliwatts;
  return 0;
}
#endif
