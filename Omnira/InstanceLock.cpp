#include "Omnira/InstanceLock.h"

#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include <fmt/format.h>

#include "OmniraCore/foundation/AtomicFile.h"
#include "OmniraCore/foundation/Parse.h"

namespace omnira {

namespace {

std::optional<pid_t> readHolder(int fd) {
  char buffer[32] = {};
  const ssize_t got = ::pread(fd, buffer, sizeof buffer - 1, 0);
  if (got <= 0) return std::nullopt;
  auto pid = parseNumber<int64_t>(trim(std::string_view(buffer, static_cast<size_t>(got))));
  if (!pid || *pid <= 0) return std::nullopt;
  return static_cast<pid_t>(*pid);
}

}  // namespace

Result<InstanceLock, InstanceLock::Failure> InstanceLock::acquire(const std::filesystem::path& file) {
  if (auto made = AtomicFile::makeFolders(file.parent_path()); !made)
    return fail(Failure{Failure::Kind::cannotLock, std::nullopt, fmt::format("Omnira {}.", made.error().message)});
  // Never through a link and only a plain file of our own: we truncate it and write to it.
  auto opened = AtomicFile::openOwn(file);
  if (!opened)
    return fail(Failure{Failure::Kind::cannotLock, std::nullopt,
                        fmt::format("Omnira cannot take its lock: {}.", opened.error().message)});
  const int fd = *opened;
  if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
    const int why = errno;
    if (why == EWOULDBLOCK) {
      auto holder = readHolder(fd);
      ::close(fd);
      return fail(Failure{Failure::Kind::alreadyRunning, holder,
                          holder ? fmt::format("Omnira is already running (process {}).", *holder)
                                 : std::string("Omnira is already running.")});
    }
    ::close(fd);
    return fail(Failure{Failure::Kind::cannotLock, std::nullopt,
                        fmt::format("Omnira cannot lock {}: {}.", file.string(), std::strerror(why))});
  }
  const std::string pid = fmt::format("{}\n", ::getpid());
  if (::ftruncate(fd, 0) != 0 || ::pwrite(fd, pid.data(), pid.size(), 0) != static_cast<ssize_t>(pid.size())) {
    // The lock holds without the pid; a second start just cannot name us.
  }
  return InstanceLock(fd);
}

InstanceLock& InstanceLock::operator=(InstanceLock&& other) noexcept {
  if (this != &other) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = other.fd_;
    other.fd_ = -1;
  }
  return *this;
}

InstanceLock::~InstanceLock() {
  if (fd_ >= 0) ::close(fd_);
}

}  // namespace omnira
