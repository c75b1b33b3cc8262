#include "OmniraCore/foundation/AtomicFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

#include <fmt/format.h>

namespace omnira {

namespace {

std::string reason(int error) { return std::strerror(error); }

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

}  // namespace

Result<void, AtomicFile::Failure> AtomicFile::write(const std::filesystem::path& file, std::string_view bytes,
                                                    mode_t mode) {
  std::error_code error;
  const auto folder = file.parent_path().empty() ? std::filesystem::path(".") : file.parent_path();
  std::filesystem::create_directories(folder, error);
  if (error) return fail(Failure{fmt::format("cannot create {}: {}", folder.string(), error.message())});

  // A unique name, so a reader never sees our temporary file as someone else's.
  std::string pattern = (folder / ("." + file.filename().string() + ".XXXXXX")).string();
  const int fd = ::mkostemp(pattern.data(), O_CLOEXEC);
  if (fd < 0) return fail(Failure{fmt::format("cannot write in {}: {}", folder.string(), reason(errno))});
  const std::filesystem::path temporary = pattern;

  const bool written = writeAll(fd, bytes) && ::fchmod(fd, mode) == 0 && ::fsync(fd) == 0;
  const int writeError = errno;
  if (::close(fd) != 0 || !written) {
    const int closeError = written ? errno : writeError;
    std::filesystem::remove(temporary, error);
    return fail(Failure{fmt::format("cannot write {}: {}", file.string(), reason(closeError))});
  }
  if (::rename(temporary.c_str(), file.c_str()) != 0) {
    const int renameError = errno;
    std::filesystem::remove(temporary, error);
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

Result<std::string, AtomicFile::ReadFailure> AtomicFile::read(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) {
    const int error = errno;
    return fail(ReadFailure{error == ENOENT, fmt::format("cannot read {}: {}", file.string(), reason(error))});
  }
  std::ostringstream text;
  text << in.rdbuf();
  if (in.bad()) return fail(ReadFailure{false, fmt::format("cannot read {}", file.string())});
  return text.str();
}

}  // namespace omnira
