#pragma once
// Reading whole small kernel files (/proc, /sys) into memory.
// Kernel files report a size of 0 or 4096 whatever they hold, so they are read
// until end of file rather than by their stat size.

#include <cerrno>
#include <filesystem>
#include <string>

#include "OmniraCore/foundation/Result.h"

namespace omnira::platform {

struct ReadFailure {
  enum class Kind {
    missing,  // ENOENT, ESRCH: the file or its process is gone
    denied,   // EACCES, EPERM: exists, but not ours to read
    failed,   // any other error
  };
  Kind kind = Kind::failed;
  int error = 0;  // errno

  static ReadFailure fromErrno(int error);
};

// Reads at most `limit` bytes; a longer file is cut there (callers parse what they need from the front).
Result<std::string, ReadFailure> readTextFile(const std::filesystem::path& path, size_t limit = 1 << 20);

// Same, relative to an open directory (dirfd), without building a path string.
Result<std::string, ReadFailure> readTextFileAt(int directory, const char* relativePath, size_t limit = 1 << 20);

}  // namespace omnira::platform
