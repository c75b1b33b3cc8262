#include "OmniraCore/platform/linux/ThisMachine.h"

#include <spdlog/spdlog.h>
#include <unistd.h>

#include <cstdlib>

#include "OmniraCore/platform/linux/LibProc.h"
#include "OmniraCore/platform/linux/LinuxAppIdentifier.h"
#include "OmniraCore/platform/linux/LinuxSensorSource.h"
#include "OmniraCore/platform/linux/LinuxSystemSource.h"
#include "OmniraCore/platform/linux/OsRelease.h"
#include "OmniraCore/sensors/HelperClient.h"

namespace omnira::platform {

std::unique_ptr<SystemSampler> makeSystemSampler() {
  return std::make_unique<SystemSampler>(std::make_unique<LinuxSystemSource>(Roots{}));
}

std::unique_ptr<Sensors> makeSensors() {
  LinuxSensorSource::Options options;
  options.readsSMC = ::geteuid() == 0;
  return std::make_unique<Sensors>(std::make_unique<LinuxSensorSource>(std::move(options)));
}

namespace {

// Other users' disk counters through the privileged helper, where it is installed ("Full
// System Metrics"). A helper that cannot be reached is asked again a minute later, not on
// every sample. Used on the sampler's thread only.
ProcessSampler::Options withHelper(ProcessSampler::Options options) {
  if (::geteuid() == 0 || options.privilegedDisk) return options;
  struct Reach {
    HelperClient client{HelperClient::Options{.timeout = std::chrono::milliseconds(500)}};
    std::optional<std::chrono::steady_clock::time_point> failedAt;
  };
  auto reach = std::make_shared<Reach>();
  options.privilegedDisk = [reach](const std::vector<int32_t>& pids) {
    std::unordered_map<int32_t, ProcessSampler::Options::DiskCounters> counters;
    const auto now = std::chrono::steady_clock::now();
    if (reach->failedAt && now - *reach->failedAt < std::chrono::minutes(1)) return counters;
    auto figures = reach->client.processes(pids);
    if (!figures) {
      reach->failedAt = now;
      return counters;
    }
    reach->failedAt.reset();
    for (const auto& figure : *figures)
      if (figure.io) counters[figure.pid] = {figure.io->readBytes, figure.io->writeBytes};
    return counters;
  };
  return options;
}

}  // namespace

std::unique_ptr<ProcessSampler> makeProcessSampler(ProcessSampler::Options options) {
  return std::make_unique<ProcessSampler>(std::make_unique<LibProc>(Roots{}), withHelper(std::move(options)));
}

namespace {

LinuxAppIdentifier::Config identifierConfig() {
  const auto environment = [](const std::string& variable) -> std::optional<std::string> {
    if (const char* value = std::getenv(variable.c_str())) return std::string(value);
    return std::nullopt;
  };
  return LinuxAppIdentifier::Config::fromEnvironment(environment, ::getuid());
}

}  // namespace

std::string systemName() {
  auto name = readOperatingSystemName("/");
  if (!name) spdlog::debug("no distribution name in os-release; the system is called Linux");
  return name ? *name : std::string("Linux");
}

std::unique_ptr<AppGrouper> makeAppGrouper() { return makeLinuxAppGrouper(systemName(), identifierConfig()); }

std::vector<std::filesystem::path> appFolders() {
  std::vector<std::filesystem::path> folders;
  for (const auto& dataDir : identifierConfig().desktop.dataDirs) folders.push_back(dataDir / "applications");
  return folders;
}

}  // namespace omnira::platform
