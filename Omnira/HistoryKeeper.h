#pragma once
// Keeps the history file open for the running program whatever happens to it:
// - at start it opens the file; when that fails (a full disk, a lock held elsewhere) it
//   tries again, 5 s after the failure and then twice as long each time up to 5 min, and
//   records from the moment it can;
// - when the data folder is removed while the program runs, it makes the folder again,
//   takes the instance lock again (so a second start is still refused) and starts a new
//   history; a removed history file or lock file alone is made again likewise.
// Each of these is said once in the log: once when the history goes off, once when it is back.
//
// Ownership and threads: owned by the monitor store and used on its main thread only; it
// owns the database and, after the folder or lock file was removed, the lock it took
// again. Times are seconds on the caller's monotonic clock (the store passes its boot clock).
//
// Failures reach no caller: the history is then absent (database() is null) and the
// program runs on with its live figures.

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>

#include "Omnira/InstanceLock.h"
#include "OmniraCore/history/HistoryDatabase.h"

namespace omnira {

class HistoryKeeper {
 public:
  static constexpr double firstRetrySeconds = 5;
  static constexpr double longestRetrySeconds = 300;

  // `lockFile` is the instance lock in the same data folder as `historyFile`.
  HistoryKeeper(std::filesystem::path historyFile, std::filesystem::path lockFile,
                HistoryDatabase::Options options = {});

  // The first attempt, at start.
  void open(double now);
  // At every tick: makes again what was removed, and tries to open when a retry is due.
  void check(double now);
  // Closes the file; nothing is tried any more.
  void close();

  HistoryDatabase* database() const { return database_.get(); }
  // Moves whenever another database object takes over, so that whoever keeps figures of
  // the old one (its restart count) starts over.
  uint64_t generation() const { return generation_; }
  // When the next attempt to open is due; absent while the history is open or given up.
  std::optional<double> nextAttempt() const { return nextAttempt_; }

 private:
  struct Identity {
    dev_t device = 0;
    ino_t inode = 0;
  };
  static std::optional<Identity> identityOf(const std::filesystem::path& path);

  bool tryOpen(double now);
  void remake(double now);
  bool retakeLock();

  std::filesystem::path file_;
  std::filesystem::path folder_;
  std::filesystem::path lockFile_;
  HistoryDatabase::Options options_;
  std::unique_ptr<HistoryDatabase> database_;
  uint64_t generation_ = 0;
  std::optional<double> nextAttempt_;
  double retrySeconds_ = firstRetrySeconds;
  bool saidOff_ = false;
  bool closed_ = false;
  // The data folder as it was when last seen, to tell when it was removed or replaced.
  std::optional<Identity> folderIdentity_;
  // Whether a lock file should stand in the folder: the program's own (taken before the
  // store started) or the one taken again here.
  bool lockExpected_ = false;
  std::optional<InstanceLock> lock_;
};

}  // namespace omnira
