#include "Omnira/SettingsWatcher.h"

#include <QFile>

#include <spdlog/spdlog.h>

namespace omnira {

namespace fs = std::filesystem;

namespace {

QString qtPath(const fs::path& path) { return QFile::decodeName(path.c_str()); }

}  // namespace

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
  std::error_code error;
  fs::path folder = file_.parent_path();
  while (!folder.empty() && !fs::is_directory(folder, error)) {
    if (folder == folder.parent_path()) {
      folder.clear();
      break;
    }
    folder = folder.parent_path();
  }
  // Added afresh every time: a folder or file that was replaced keeps a watch on its old
  // inode under the same name.
  if (!watcher_.files().isEmpty()) watcher_.removePaths(watcher_.files());
  if (!watcher_.directories().isEmpty()) watcher_.removePaths(watcher_.directories());
  if (!folder.empty() && !watcher_.addPath(qtPath(folder)))
    spdlog::warn("Cannot watch {} for settings changes; they apply at the next start.", folder.string());
  if (fs::exists(file_, error)) watcher_.addPath(qtPath(file_));
}

}  // namespace omnira
