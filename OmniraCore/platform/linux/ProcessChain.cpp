#include "OmniraCore/platform/linux/ProcessChain.h"

#include <algorithm>
#include <fstream>

#include "OmniraCore/platform/linux/PidStat.h"

namespace omnira::platform {

std::vector<std::pair<int32_t, std::string>> processChain(int32_t pid, const std::filesystem::path& procRoot) {
  std::vector<std::pair<int32_t, std::string>> chain;
  // 64 steps at most: a loop in a fixture, or a pid reused mid-walk, must not spin.
  while (pid > 1 && chain.size() < 64 &&
         std::none_of(chain.begin(), chain.end(), [&](const auto& link) { return link.first == pid; })) {
    std::ifstream in(procRoot / std::to_string(pid) / "stat");
    std::string text;
    std::getline(in, text);
    const auto stat = parsePidStat(text);
    if (!stat) break;
    chain.emplace_back(pid, std::string(stat->name));
    pid = stat->parentPID;
  }
  return chain;
}

}  // namespace omnira::platform
