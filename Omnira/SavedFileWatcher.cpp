#include "Omnira/SavedFileWatcher.h"

#include <spdlog/spdlog.h>

#include "Omnira/WatchedPaths.h"

namespace omnira {

namespace fs = std::filesystem;

SavedFileWatcher::SavedFileWatcher(fs::path file, std::string unwatchable, QObject* parent)
    : QObject(parent), file_(std::move(file)), unwatchable_(std::move(unwatchable)) {
  gather_.setSingleShot(true);
  gather_.setInterval(gatherMilliseconds);
  connect(&gather_, &QTimer::timeout, this, &SavedFileWatcher::fire);
  connect(&watcher_, &QFileSystemWatcher::fileChanged, this, &SavedFileWatcher::noteEvent);
  connect(&watcher_, &QFileSystemWatcher::directoryChanged, this, &SavedFileWatcher::noteEvent);
  watch();
}

void SavedFileWatcher::noteEvent() {
  // Not restarted by later events: a file rewritten without pause is still read in time.
  if (!gather_.isActive()) gather_.start();
}

void SavedFileWatcher::fire() {
  // Watches first, then the owner's read: a change after the read is seen by the new watches.
  watch();
  emit changed();
}

void SavedFileWatcher::watch() {
  const fs::path folder = nearestExistingFolder(file_.parent_path());
  QStringList paths;
  if (!folder.empty()) paths << qtPath(folder);
  std::error_code error;
  if (fs::exists(file_, error)) paths << qtPath(file_);
  // A file that cannot be watched is still seen through its folder.
  if (!folder.empty() && rewatch(watcher_, paths).contains(qtPath(folder)))
    spdlog::warn("Cannot watch {}; {}", folder.string(), unwatchable_);
}

}  // namespace omnira
