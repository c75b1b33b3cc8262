#include "OmniraCore/platform/linux/SysfsAttributes.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "OmniraCore/foundation/Parse.h"

namespace omnira::platform {

DirectoryHandle& DirectoryHandle::operator=(DirectoryHandle&& other) noexcept {
  if (this != &other) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = other.release();
  }
  return *this;
}

DirectoryHandle::~DirectoryHandle() {
  if (fd_ >= 0) ::close(fd_);
}

DirectoryHandle DirectoryHandle::open(const std::string& path) {
  return DirectoryHandle(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

DirectoryHandle DirectoryHandle::openAt(int directory, const char* relativePath) {
  return DirectoryHandle(::openat(directory, relativePath, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

namespace {

bool gone(int error) { return error == ENOENT || error == ENODEV || error == ENOTDIR || error == ENXIO; }

}  // namespace

AttributeRead readAttributeAt(int directory, const char* name, char* buffer, size_t size) {
  const int fd = ::openat(directory, name, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return {gone(errno) ? AttributeRead::Status::missing : AttributeRead::Status::failed, {}};
  size_t length = 0;
  while (length < size) {
    const size_t asked = size - length;
    const ssize_t n = ::read(fd, buffer + length, asked);
    if (n < 0) {
      if (errno == EINTR) continue;
      ::close(fd);
      return {AttributeRead::Status::failed, {}};
    }
    if (n == 0) break;
    length += static_cast<size_t>(n);
    // sysfs hands over a whole attribute in one read, so a short read is its end: this
    // spares the read that would return 0 on every file of every tick.
    if (static_cast<size_t>(n) < asked) break;
  }
  ::close(fd);
  return {AttributeRead::Status::ok, std::string_view(buffer, length)};
}

std::optional<std::string> readAttributeLineAt(int directory, const char* name) {
  char buffer[256];
  const auto read = readAttributeAt(directory, name, buffer, sizeof buffer);
  if (read.status != AttributeRead::Status::ok) return std::nullopt;
  return std::string(trim(read.text));
}

namespace {

std::vector<std::string> drain(DIR* dir) {
  std::vector<std::string> names;
  if (!dir) return names;
  while (const dirent* entry = ::readdir(dir)) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
  }
  ::closedir(dir);
  return names;
}

}  // namespace

std::vector<std::string> listDirectory(int directory) {
  // fdopendir takes over the descriptor it is given, so it gets a copy.
  const int copy = ::openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (copy < 0) return {};
  DIR* dir = ::fdopendir(copy);
  if (!dir) {
    ::close(copy);
    return {};
  }
  return drain(dir);
}

std::vector<std::string> listDirectory(const std::string& path) { return drain(::opendir(path.c_str())); }

std::optional<unsigned> numberAfter(std::string_view name, std::string_view prefix) {
  if (!name.starts_with(prefix)) return std::nullopt;
  return parseNumber<unsigned>(name.substr(prefix.size()));
}

}  // namespace omnira::platform
