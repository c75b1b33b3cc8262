#pragma once
// A process and its parents up to (not including) pid 1, with their names, read from
// /proc/PID/stat one at a time: who is behind a connection right now, whether or not the
// last process sample saw it. `procRoot` is "/proc", or a fixture tree in tests. A process
// that cannot be read ends the chain there.

#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace omnira::platform {

std::vector<std::pair<int32_t, std::string>> processChain(int32_t pid, const std::filesystem::path& procRoot = "/proc");

}  // namespace omnira::platform
