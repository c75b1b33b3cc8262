#include "OmniraCore/foundation/AtomicFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cerrno>
#include <cstring>

#include <fmt/format.h>

#include "OmniraCore/foundation/Parse.h"

namespace omnira {

namespace {

std::string reason(int error) { return std::strerror(error); }

constexpr std::string_view kTemporaryMark = ".tmp-";

// Writes everything or reports why not; EINTR and short writes are retried.
bool writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(fd, bytes.data(), bytes.size());
    if (written < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    bytes.remove_prefix(static_cast<size_t>(written));
  }
  return true;
}

AtomicFile::ReadFailure readFailure(AtomicFile::ReadFailure::Kind kind, int error, std::string message) {
  return AtomicFile::ReadFailure{kind, error, kind == AtomicFile::ReadFailure::Kind::missing, std::move(message)};
}

}  // namespace

Result<void, AtomicFile::Failure> AtomicFile::makeFolders(const std::filesystem::path& folder) {
  if (folder.empty()) return {};  // the working folder
  std::filesystem::path partial;
  for (const auto& part : folder) {
    partial /= part;
    if (partial == partial.root_path()) continue;
    if (::mkdir(partial.c_str(), 0700) == 0) {
      // A umask can take even the owner's bits; the new folder is the owner's alone, whole.
      (void)::chmod(partial.c_str(), 0700);
    } else if (errno != EEXIST) {
      return fail(Failure{fmt::format("cannot create {}: {}", partial.string(), reason(errno))});
    }
  }
  struct stat info {};
  if (::stat(folder.c_str(), &info) != 0 || !S_ISDIR(info.st_mode))
    return fail(Failure{fmt::format("cannot create {}: {}", folder.string(), reason(ENOTDIR))});
  return {};
}

Result<void, AtomicFile::Failure> AtomicFile::write(const std::filesystem::path& file, std::string_view bytes,
                                                    mode_t mode) {
  const auto folder = file.parent_path().empty() ? std::filesystem::path(".") : file.parent_path();
  if (auto made = makeFolders(folder); !made) return made;

  // A unique name carrying our pid, so a reader never takes it for the file and a later
  // start can tell an interrupted save's leftover from a save in progress.
  std::string pattern =
      (folder / fmt::format(".{}{}{}-XXXXXX", file.filename().string(), kTemporaryMark, ::getpid())).string();
  const int fd = ::mkostemp(pattern.data(), O_CLOEXEC);  // O_EXCL, 0600: never through a planted link
  if (fd < 0) return fail(Failure{fmt::format("cannot write in {}: {}", folder.string(), reason(errno))});
  const std::filesystem::path temporary = pattern;

  const bool written = writeAll(fd, bytes) && ::fchmod(fd, mode) == 0 && ::fsync(fd) == 0;
  const int writeError = errno;
  if (::close(fd) != 0 || !written) {
    const int closeError = written ? errno : writeError;
    ::unlink(temporary.c_str());
    return fail(Failure{fmt::format("cannot write {}: {}", file.string(), reason(closeError))});
  }
  // rename() replaces a link in the file's place; it never writes through it.
  if (::rename(temporary.c_str(), file.c_str()) != 0) {
    const int renameError = errno;
    ::unlink(temporary.c_str());
    return fail(Failure{fmt::format("cannot replace {}: {}", file.string(), reason(renameError))});
  }
  // The rename itself is only durable once the folder is flushed too.
  const int folderFD = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folderFD >= 0) {
    (void)::fsync(folderFD);
    ::close(folderFD);
  }
  return {};
}

Result<void, AtomicFile::CreateFailure> AtomicFile::create(const std::filesystem::path& file, std::string_view bytes,
                                                           mode_t mode) {
  const int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (fd < 0) {
    const int error = errno;
    return fail(CreateFailure{error == EEXIST, fmt::format("cannot write {}: {}", file.string(), reason(error))});
  }
  const bool written = writeAll(fd, bytes) && ::fchmod(fd, mode) == 0;
  const int writeError = errno;
  if (::close(fd) != 0 || !written) {
    const int error = written ? errno : writeError;
    ::unlink(file.c_str());  // ours: we just made it
    return fail(CreateFailure{false, fmt::format("cannot write {}: {}", file.string(), reason(error))});
  }
  return {};
}

Result<std::string, AtomicFile::ReadFailure> AtomicFile::read(const std::filesystem::path& file, size_t limit,
                                                              Links links) {
  using Kind = ReadFailure::Kind;
  // O_NONBLOCK: a FIFO in the file's place would otherwise wait for a writer forever.
  const int flags = O_RDONLY | O_NONBLOCK | O_CLOEXEC | (links == Links::refuse ? O_NOFOLLOW : 0);
  const int fd = ::open(file.c_str(), flags);
  if (fd < 0) {
    const int error = errno;
    if (error == ENOENT) return fail(readFailure(Kind::missing, error, fmt::format("cannot read {}: {}", file.string(), reason(error))));
    if (error == ELOOP && links == Links::refuse)
      return fail(readFailure(Kind::notRegular, error, fmt::format("{} is a link, which Omnira does not follow", file.string())));
    if (error == ENXIO)  // a socket
      return fail(readFailure(Kind::notRegular, error, fmt::format("{} is not a regular file", file.string())));
    return fail(readFailure(Kind::unreadable, error, fmt::format("cannot read {}: {}", file.string(), reason(error))));
  }
  struct stat info {};
  if (::fstat(fd, &info) != 0) {
    const int error = errno;
    ::close(fd);
    return fail(readFailure(Kind::unreadable, error, fmt::format("cannot read {}: {}", file.string(), reason(error))));
  }
  const auto tooLarge = [&] {
    return fail(readFailure(Kind::tooLarge, 0,
                            fmt::format("{} is larger than the {} KiB Omnira reads", file.string(), limit / 1024)));
  };
  if (!S_ISREG(info.st_mode)) {
    ::close(fd);
    return fail(readFailure(Kind::notRegular, 0, fmt::format("{} is not a regular file", file.string())));
  }
  if (static_cast<uint64_t>(info.st_size) > limit) {
    ::close(fd);
    return tooLarge();
  }
  // Read one byte past the cap: a file growing under us is caught too.
  std::string text(static_cast<size_t>(info.st_size) + 1, '\0');
  size_t got = 0;
  while (true) {
    if (got == text.size()) {
      if (got > limit) break;
      text.resize(std::min(text.size() * 2, limit + 1));
    }
    const ssize_t n = ::read(fd, text.data() + got, text.size() - got);
    if (n < 0) {
      if (errno == EINTR) continue;
      const int error = errno;
      ::close(fd);
      return fail(readFailure(Kind::unreadable, error, fmt::format("cannot read {}: {}", file.string(), reason(error))));
    }
    if (n == 0) break;
    got += static_cast<size_t>(n);
  }
  ::close(fd);
  if (got > limit) return tooLarge();
  text.resize(got);
  return text;
}

Result<int, AtomicFile::Failure> AtomicFile::openOwn(const std::filesystem::path& file) {
  // Created here, or there already: two tries cover a file removed between them.
  for (int attempt = 0; attempt < 2; ++attempt) {
    int fd = ::open(file.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
    if (fd >= 0) {
      (void)::fchmod(fd, 0600);  // whatever the umask took away or left
      return fd;
    }
    if (errno != EEXIST) break;
    fd = ::open(file.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
      if (errno == ENOENT) continue;
      break;
    }
    struct stat info {};
    std::string refusal;
    if (::fstat(fd, &info) != 0) refusal = reason(errno);
    else if (!S_ISREG(info.st_mode)) refusal = "it is not a regular file";
    else if (info.st_uid != ::geteuid()) refusal = fmt::format("it belongs to user {}", info.st_uid);
    else if (info.st_nlink != 1) refusal = "it has another name elsewhere (a hard link)";
    else if ((info.st_mode & 07777) != 0600 && ::fchmod(fd, 0600) != 0) refusal = reason(errno);
    if (refusal.empty()) return fd;
    ::close(fd);
    return fail(Failure{fmt::format("cannot use {}: {}", file.string(), refusal)});
  }
  if (errno == ELOOP) return fail(Failure{fmt::format("cannot use {}: it is a link, which Omnira does not follow", file.string())});
  return fail(Failure{fmt::format("cannot open {}: {}", file.string(), reason(errno))});
}

std::optional<pid_t> AtomicFile::temporaryWriter(std::string_view name) {
  // ".<file>.tmp-<pid>-XXXXXX", the last six from mkostemp's letters and digits.
  constexpr size_t kRandom = 6;
  if (name.size() < 1 + 1 + kTemporaryMark.size() + 1 + 1 + kRandom || name.front() != '.') return std::nullopt;
  const std::string_view random = name.substr(name.size() - kRandom);
  for (char c : random)
    if (!std::isalnum(static_cast<unsigned char>(c))) return std::nullopt;
  name.remove_suffix(kRandom);
  if (name.back() != '-') return std::nullopt;
  name.remove_suffix(1);
  const auto mark = name.rfind(kTemporaryMark);
  if (mark == std::string_view::npos || mark < 2) return std::nullopt;
  auto pid = parseNumber<pid_t>(name.substr(mark + kTemporaryMark.size()));
  if (!pid || *pid <= 0) return std::nullopt;
  return pid;
}

size_t AtomicFile::removeStale(const std::filesystem::path& folder, std::chrono::seconds age) {
  const int dirFD = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (dirFD < 0) return 0;
  DIR* dir = ::fdopendir(dirFD);
  if (!dir) {
    ::close(dirFD);
    return 0;
  }
  const auto now = std::chrono::system_clock::now();
  size_t removed = 0;
  while (const dirent* entry = ::readdir(dir)) {
    const auto writer = temporaryWriter(entry->d_name);
    if (!writer) continue;
    struct stat info {};
    if (::fstatat(dirFD, entry->d_name, &info, AT_SYMLINK_NOFOLLOW) != 0) continue;
    if (!S_ISREG(info.st_mode) || info.st_uid != ::geteuid()) continue;
    const auto modified = std::chrono::system_clock::time_point(
        std::chrono::duration_cast<std::chrono::system_clock::duration>(
            std::chrono::seconds(info.st_mtim.tv_sec) + std::chrono::nanoseconds(info.st_mtim.tv_nsec)));
    const bool old = now - modified > age;
    const bool writerGone = *writer != ::getpid() && ::kill(*writer, 0) != 0 && errno == ESRCH;
    if ((old || writerGone) && ::unlinkat(dirFD, entry->d_name, 0) == 0) ++removed;
  }
  ::closedir(dir);
  return removed;
}

}  // namespace omnira
