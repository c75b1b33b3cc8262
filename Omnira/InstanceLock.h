#pragma once
// One running Omnira per user: an exclusive lock on "omnira.lock" in the data folder,
// held for the life of the process. The kernel drops the lock when the process ends, even
// after a crash, so a stale file never blocks a start. The file names the holder's pid so
// that a second start can say who holds it. The file is 0600 and opened never through a
// link; one that is not a plain file of our own is refused rather than truncated.
//
// Owned by AppDelegate on the main thread; moving it hands the lock over.

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string>

#include "OmniraCore/foundation/Result.h"

namespace omnira {

class InstanceLock {
 public:
  // Its name in the data folder.
  static constexpr const char* fileName = "omnira.lock";

  struct Failure {
    enum class Kind { alreadyRunning, cannotLock };
    Kind kind = Kind::cannotLock;
    std::optional<pid_t> holder;  // alreadyRunning: the running instance, when the file names it
    std::string message;          // a sentence for the person
  };

  static Result<InstanceLock, Failure> acquire(const std::filesystem::path& file);

  InstanceLock(InstanceLock&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
  InstanceLock& operator=(InstanceLock&& other) noexcept;
  InstanceLock(const InstanceLock&) = delete;
  InstanceLock& operator=(const InstanceLock&) = delete;
  ~InstanceLock();

 private:
  explicit InstanceLock(int fd) : fd_(fd) {}
  int fd_ = -1;
};

}  // namespace omnira
