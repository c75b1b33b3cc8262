#pragma once
// The production parts, reading this machine's /proc, /sys and desktop entries.
// Each call builds fresh parts; the caller owns them and hands each to one thread.

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "OmniraCore/sampling/AppGrouper.h"
#include "OmniraCore/sampling/ProcessSampler.h"
#include "OmniraCore/sampling/SystemSampler.h"
#include "OmniraCore/sensors/Sensors.h"

namespace omnira::platform {

std::unique_ptr<SystemSampler> makeSystemSampler();
std::unique_ptr<ProcessSampler> makeProcessSampler(ProcessSampler::Options options = {});
// Scans the installed desktop entries once; the system group is named for the distribution.
std::unique_ptr<AppGrouper> makeAppGrouper();
// Every sensor source of this machine under /sys, with the privileged helper's socket for
// what only root may read.
std::unique_ptr<Sensors> makeSensors();
// The distribution's name ("Debian GNU/Linux"), or "Linux" when os-release has none.
std::string systemName();
// The folders that scan reads; after they change, AppGrouper::reload() finds the new apps.
std::vector<std::filesystem::path> appFolders();

}  // namespace omnira::platform
