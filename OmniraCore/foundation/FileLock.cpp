#include "OmniraCore/foundation/FileLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <fmt/format.h>

namespace omnira {

FileLock::FileLock(const std::filesystem::path& file) {
  std::error_code error;
  std::filesystem::create_directories(file.parent_path(), error);
  path_ = file;
  path_ += ".lock";
  fd_ = ::open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644);
  if (fd_ < 0) {
    failure_ = fmt::format("Cannot open {}: {}.", path_.string(), std::strerror(errno));
    return;
  }
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
