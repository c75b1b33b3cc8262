#include "OmniraCore/platform/linux/FileText.h"

#include <fcntl.h>
#include <unistd.h>

namespace omnira::platform {

ReadFailure ReadFailure::fromErrno(int error) {
  switch (error) {
    case ENOENT:
    case ESRCH:
    case ENOTDIR:
      return {Kind::missing, error};
    case EACCES:
    case EPERM:
      return {Kind::denied, error};
    default:
      return {Kind::failed, error};
  }
}

namespace {

Result<std::string, ReadFailure> readAll(int fd, size_t limit) {
  std::string text;
  char buffer[4096];
  while (text.size() < limit) {
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n < 0) {
      if (errno == EINTR) continue;
      const int error = errno;
      ::close(fd);
      return fail(ReadFailure::fromErrno(error));
    }
    if (n == 0) break;
    text.append(buffer, static_cast<size_t>(n));
  }
  ::close(fd);
  if (text.size() > limit) text.resize(limit);
  return text;
}

}  // namespace

Result<std::string, ReadFailure> readTextFile(const std::filesystem::path& path, size_t limit) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return fail(ReadFailure::fromErrno(errno));
  return readAll(fd, limit);
}

Result<std::string, ReadFailure> readTextFileAt(int directory, const char* relativePath, size_t limit) {
  const int fd = ::openat(directory, relativePath, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return fail(ReadFailure::fromErrno(errno));
  return readAll(fd, limit);
}

}  // namespace omnira::platform
