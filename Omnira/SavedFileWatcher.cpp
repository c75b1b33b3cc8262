#include "Omnira/SavedFileWatcher.h"

#include <spdlog/spdlog.h>

#include "Omnira/WatchedPaths.h"

namespace omnira {

namespace fs = std::filesystem;

SavedFileWatcher::SavedFileWatcher(fs::path file, QObject* parent) : QObject(parent), file_(std::move(file)) {
  gather_.setSingleShot(true);
  gather_.setInterval(gatherMilliseconds);
  connect(&gather_, &QTimer::timeout, this, &SavedFileWatcher::fire);
  connect(&watcher_, &QFileSystemWatcher::fileChanged, this, &SavedFileWatcher::noteEvent);
  connect(&watcher_, &QFileSystemWatcher::directoryChanged, this, &SavedFileWatcher::noteEvent);
  watch();
}

void SavedFileWatcher::noteEvent() {
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
  if (!folder.empty() && rewatch(watcher_, paths).contains(qtPath(folder)))
    spdlog::warn("Cannot watch {}; changes to {} made while Omnira runs apply when it saves it next.",
                 folder.string(), file_.filename().string());
}

}  // namespace omnira
