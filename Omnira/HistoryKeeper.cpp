#include "Omnira/HistoryKeeper.h"

#include <sys/stat.h>

#include <algorithm>

#include <spdlog/spdlog.h>

namespace omnira {

HistoryKeeper::HistoryKeeper(std::filesystem::path historyFile, std::filesystem::path lockFile,
                             HistoryDatabase::Options options)
    : file_(std::move(historyFile)), folder_(file_.parent_path()), lockFile_(std::move(lockFile)),
      options_(options) {}

std::optional<HistoryKeeper::Identity> HistoryKeeper::identityOf(const std::filesystem::path& path) {
  struct stat found {};
  if (::stat(path.c_str(), &found) != 0) return std::nullopt;
  return Identity{found.st_dev, found.st_ino};
}

void HistoryKeeper::open(double now) {
  if (closed_ || database_) return;
  std::error_code error;
  // The program takes its lock before the store starts; a store without one (tests, tools)
  // takes one only once the folder it worked in was removed.
  lockExpected_ = std::filesystem::exists(lockFile_, error);
  tryOpen(now);
}

bool HistoryKeeper::tryOpen(double now) {
  auto opened = HistoryDatabase::open(file_, options_);
  // Opening makes the folder; from here on its removal is noticed.
  folderIdentity_ = identityOf(folder_);
  if (opened) {
    database_ = std::move(*opened);
    ++generation_;
    nextAttempt_.reset();
    retrySeconds_ = firstRetrySeconds;
    if (std::exchange(saidOff_, false)) spdlog::info("History is recorded again in {}.", file_.string());
    return true;
  }
  if (!std::exchange(saidOff_, true)) {
    spdlog::warn("History is off for now: {}. Omnira tries again from time to time and records from when it can.",
                 opened.error().message);
  } else {
    spdlog::debug("History is still off: {}", opened.error().message);
  }
  nextAttempt_ = now + retrySeconds_;
  retrySeconds_ = std::min(retrySeconds_ * 2, longestRetrySeconds);
  return false;
}

void HistoryKeeper::check(double now) {
  if (closed_) return;
  if (folderIdentity_) {
    auto folder = identityOf(folder_);
    if (!folder || folder->device != folderIdentity_->device || folder->inode != folderIdentity_->inode) {
      remake(now);
      return;
    }
  }
  std::error_code error;
  if (lockExpected_ && !std::filesystem::exists(lockFile_, error) && !error) {
    spdlog::warn("The lock file {} was removed while Omnira ran; it is taken again.", lockFile_.string());
    if (!retakeLock()) return;
  }
  if (database_ && database_->isDetached()) {
    spdlog::warn("The history file {} was removed or replaced while Omnira ran; recording goes on in the file now there.",
                 file_.string());
    database_.reset();
    retrySeconds_ = firstRetrySeconds;
    tryOpen(now);
    return;
  }
  if (!database_ && nextAttempt_ && now >= *nextAttempt_) tryOpen(now);
}

void HistoryKeeper::remake(double now) {
  spdlog::warn("The data folder {} was removed while Omnira ran; it is made again, with the lock and a new history.",
               folder_.string());
  // Whatever the old file still takes in is lost with it.
  database_.reset();
  std::error_code error;
  std::filesystem::create_directories(folder_, error);
  if (!retakeLock()) return;
  retrySeconds_ = firstRetrySeconds;
  tryOpen(now);
}

bool HistoryKeeper::retakeLock() {
  auto lock = InstanceLock::acquire(lockFile_);
  if (lock) {
    lock_.emplace(std::move(*lock));
    lockExpected_ = true;
    return true;
  }
  if (lock.error().kind == InstanceLock::Failure::Kind::alreadyRunning) {
    // That one started in the empty folder and keeps its own history there.
    spdlog::error("{} It started after Omnira's data folder or lock was removed; this one records no more history.",
                  lock.error().message);
    close();
    return false;
  }
  // Without a lock a second start is not refused, but the history can still be kept.
  spdlog::warn("{}", lock.error().message);
  lockExpected_ = false;
  return true;
}

void HistoryKeeper::close() {
  closed_ = true;
  database_.reset();
  nextAttempt_.reset();
}

}  // namespace omnira
