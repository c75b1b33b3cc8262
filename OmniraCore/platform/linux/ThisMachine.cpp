#include "OmniraCore/platform/linux/ThisMachine.h"

#include <spdlog/spdlog.h>
#include <unistd.h>

#include <cstdlib>

#include "OmniraCore/platform/linux/LibProc.h"
#include "OmniraCore/platform/linux/LinuxAppIdentifier.h"
#include "OmniraCore/platform/linux/LinuxSensorSource.h"
#include "OmniraCore/platform/linux/LinuxSystemSource.h"
#include "OmniraCore/platform/linux/OsRelease.h"

namespace omnira::platform {

std::unique_ptr<SystemSampler> makeSystemSampler() {
  return std::make_unique<SystemSampler>(std::make_unique<LinuxSystemSource>(Roots{}));
}

std::unique_ptr<Sensors> makeSensors() {
  LinuxSensorSource::Options options;
  options.readsSMC = ::geteuid() == 0;
  return std::make_unique<Sensors>(std::make_unique<LinuxSensorSource>(std::move(options)));
}

std::unique_ptr<ProcessSampler> makeProcessSampler(ProcessSampler::Options options) {
  return std::make_unique<ProcessSampler>(std::make_unique<LibProc>(Roots{}), std::move(options));
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
