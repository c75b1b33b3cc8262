#include "Omnira/SettingsWatcher.h"

#include <QFile>

#include <spdlog/spdlog.h>

#include "Omnira/WatchedPaths.h"

namespace omnira {

namespace fs = std::filesystem;

SettingsWatcher::SettingsWatcher(fs::path file, QObject* parent)
    : QObject(parent), file_(std::move(file)), current_(Settings::load(file_)) {
  gather_.setSingleShot(true);
  gather_.setInterval(gatherMilliseconds);
  connect(&gather_, &QTimer::timeout, this, &SettingsWatcher::reload);
  connect(&watcher_, &QFileSystemWatcher::fileChanged, this, &SettingsWatcher::noteEvent);
  connect(&watcher_, &QFileSystemWatcher::directoryChanged, this, &SettingsWatcher::noteEvent);
  watch();
}

void SettingsWatcher::noteEvent() {
  // Not restarted by later events: a file rewritten without pause still reloads in time.
  if (!gather_.isActive()) gather_.start();
}

void SettingsWatcher::reload() {
  // Watches first, then the read: a change after the read is seen by the new watches.
  watch();
  auto read = Settings::read(file_);
  if (!read) {
    // Half an edit must not throw a running Omnira back to the defaults: the last good
    // settings stay until the file is mended.
    spdlog::warn("{} Keeping the settings read before.", read.error().message);
    return;
  }
  Settings next = std::move(*read);
  if (next == current_) return;
  spdlog::debug("The settings file {} changed.", file_.string());
  current_ = std::move(next);
  emit changed(current_);
}

void SettingsWatcher::watch() {
  const fs::path folder = nearestExistingFolder(file_.parent_path());
  QStringList paths;
  if (!folder.empty()) paths << qtPath(folder);
  std::error_code error;
  if (fs::exists(file_, error)) paths << qtPath(file_);
  // A file that cannot be watched is still seen through its folder.
  if (!folder.empty() && rewatch(watcher_, paths).contains(qtPath(folder)))
    spdlog::warn("Cannot watch {} for settings changes; they apply at the next start.", folder.string());
}

}  // namespace omnira
