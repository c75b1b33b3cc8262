#pragma once
// Whole-file writes that never leave a half-written file behind: the bytes go to a
// temporary file in the same folder, are flushed to the disk, and the temporary file is
// renamed over the old one. A crash or a full disk leaves either the old file or the new
// one, never a mix. Missing folders are created, readable by their owner alone.
//
// Omnira may run as root next to folders other users can reach, so every file it makes
// is created exclusively (O_EXCL), never through a link (O_NOFOLLOW), and 0600 whatever
// the umask; reads take regular files only, without blocking, up to a size cap.
//
// Plain functions; safe on any thread as long as two writers do not share one file.
// A failure carries a sentence naming the file; nothing is thrown.

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "OmniraCore/foundation/Result.h"

namespace omnira {

struct AtomicFile {
  struct Failure {
    std::string message;  // names the file and the system's reason
  };

  // Caps for read(): saved state is never near these; anything bigger is not ours.
  static constexpr size_t savedStateLimit = size_t{8} << 20;
  static constexpr size_t settingsLimit = size_t{1} << 20;

  // The file gets `mode` (owner only by default), whatever the umask. A link in the file's
  // place is replaced, never written through.
  static Result<void, Failure> write(const std::filesystem::path& file, std::string_view bytes, mode_t mode = 0600);

  // Writes a file that must not exist yet (O_CREAT|O_EXCL|O_NOFOLLOW): an existing file or a
  // link of that name is left untouched and `exists` is set. A half-written file is removed.
  struct CreateFailure {
    bool exists = false;
    std::string message;
  };
  static Result<void, CreateFailure> create(const std::filesystem::path& file, std::string_view bytes,
                                            mode_t mode = 0600);

  // The whole file, read without blocking: a FIFO, a device or a folder is `notRegular`, a
  // link is `notRegular` unless `links` is follow, a file over `limit` bytes is `tooLarge`.
  // A missing file is `missing`, so callers can tell "nothing saved yet" from "cannot read".
  enum class Links { refuse, follow };
  struct ReadFailure {
    enum class Kind { missing, notRegular, tooLarge, unreadable };
    Kind kind = Kind::unreadable;
    int error = 0;         // unreadable: errno
    bool missing = false;  // kind == Kind::missing, kept for the callers that ask only that
    std::string message;   // one sentence naming the file
  };
  static Result<std::string, ReadFailure> read(const std::filesystem::path& file, size_t limit = savedStateLimit,
                                               Links links = Links::refuse);

  // Opens read-write a file Omnira keeps open (a lock file, the history), creating it 0600 if
  // absent. Refused: a link, anything but a regular file, a file of another user's or with a
  // second hard link. An existing file is tightened to 0600. The caller owns the descriptor.
  static Result<int, Failure> openOwn(const std::filesystem::path& file);

  // Creates `folder` and the folders above it that are missing, the new ones 0700.
  static Result<void, Failure> makeFolders(const std::filesystem::path& folder);

  // Removes what interrupted saves left in `folder`: only regular files named as write()
  // names its temporary files, whose writer is gone or that are older than `age`. Links
  // and anything else are left alone. Returns how many were removed.
  static size_t removeStale(const std::filesystem::path& folder, std::chrono::seconds age = std::chrono::minutes(1));
  // ".<name>.tmp-<pid>-XXXXXX"; the pid when `name` is one, for removeStale.
  static std::optional<pid_t> temporaryWriter(std::string_view name);
};

}  // namespace omnira
