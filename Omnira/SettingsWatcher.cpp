#include "Omnira/SettingsWatcher.h"

#include <spdlog/spdlog.h>

namespace omnira {

namespace fs = std::filesystem;

SettingsWatcher::SettingsWatcher(fs::path file, QObject* parent)
    : QObject(parent), file_(std::move(file)), current_(Settings::load(file_)),
      watcher_(file_, "settings changes apply at the next start.") {
  connect(&watcher_, &SavedFileWatcher::changed, this, &SettingsWatcher::reload);
}

void SettingsWatcher::reload() {
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

}  // namespace omnira
