#pragma once
// An exclusive lock on "<file>.lock", held while the object lives, so that two programs
// (the running application and a command) read, change and write one saved file in turn.
// The file itself cannot carry the lock: every save renames a new file over it.
//
// The lock file is created 0600, never through a link, and one that is not a plain file
// of our own is refused.
// Blocks until the lock is free. A lock that cannot be taken says why in failure(); the
// caller then leaves the file alone.

#include <filesystem>
#include <string>

namespace omnira {

class FileLock {
 public:
  explicit FileLock(const std::filesystem::path& file);
  ~FileLock();
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;
  const std::string& failure() const { return failure_; }

 private:
  std::filesystem::path path_;
  int fd_ = -1;
  std::string failure_;
};

}  // namespace omnira
