#include "OmniraCore/foundation/FileLock.h"

#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <fmt/format.h>

#include "OmniraCore/foundation/AtomicFile.h"

namespace omnira {

FileLock::FileLock(const std::filesystem::path& file) {
  path_ = file;
  path_ += ".lock";
  if (auto made = AtomicFile::makeFolders(file.parent_path()); !made) {
    failure_ = fmt::format("Cannot lock {}: {}.", file.string(), made.error().message);
    return;
  }
  auto opened = AtomicFile::openOwn(path_);
  if (!opened) {
    failure_ = fmt::format("Cannot lock {}: {}.", file.string(), opened.error().message);
    return;
  }
  fd_ = *opened;
  while (::flock(fd_, LOCK_EX) != 0) {
    if (errno == EINTR) continue;
    failure_ = fmt::format("Cannot lock {}: {}.", path_.string(), std::strerror(errno));
    break;
  }
}

FileLock::~FileLock() {
  if (fd_ >= 0) ::close(fd_);  // closing drops the lock
}

}  // namespace omnira
