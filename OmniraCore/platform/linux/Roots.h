#pragma once
// Where the kernel's file systems are mounted. Each reader takes this value in its
// constructor, so tests point readers at fixture trees; production uses the defaults.

#include <filesystem>

namespace omnira::platform {

struct Roots {
  std::filesystem::path proc = "/proc";
  std::filesystem::path sys = "/sys";
};

}  // namespace omnira::platform
