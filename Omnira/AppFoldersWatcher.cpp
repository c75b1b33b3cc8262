#include "Omnira/AppFoldersWatcher.h"

#include <QFile>
#include <QStringList>

#include <spdlog/spdlog.h>

#include "Omnira/WatchedPaths.h"

namespace omnira {

namespace fs = std::filesystem;

namespace {

// Desktop entries may sit in subfolders (a vendor's folder inside applications/).
constexpr int deepestSubfolder = 4;

void addTree(const fs::path& folder, int depth, std::set<std::string>& into) {
  into.insert(folder.string());
  if (depth >= deepestSubfolder) return;
  std::error_code error;
  for (fs::directory_iterator it(folder, fs::directory_options::skip_permission_denied, error), end;
       !error && it != end; it.increment(error)) {
    if (it->is_directory(error) && !it->is_symlink(error)) addTree(it->path(), depth + 1, into);
  }
}

}  // namespace

AppFoldersWatcher::AppFoldersWatcher(std::vector<fs::path> folders, int gatherMilliseconds, QObject* parent)
    : QObject(parent), folders_(std::move(folders)) {
  gather_.setSingleShot(true);
  gather_.setInterval(gatherMilliseconds);
  connect(&gather_, &QTimer::timeout, this, &AppFoldersWatcher::gathered);
  connect(&watcher_, &QFileSystemWatcher::directoryChanged, this, &AppFoldersWatcher::noteEvent);
  existing_ = watch();
}

void AppFoldersWatcher::noteEvent(const QString& path) {
  if (existing_.contains(QFile::encodeName(path).toStdString())) contentChanged_ = true;
  if (!gather_.isActive()) gather_.start();
}

void AppFoldersWatcher::gathered() {
  std::set<std::string> now = watch();
  const bool changedNow = contentChanged_ || now != existing_;
  contentChanged_ = false;
  existing_ = std::move(now);
  if (changedNow) {
    spdlog::debug("The installed apps changed; reading them again.");
    emit changed();
  }
}

std::set<std::string> AppFoldersWatcher::watch() {
  std::set<std::string> existing;
  std::set<std::string> above;  // nearest existing parents of missing folders
  std::error_code error;
  for (const auto& folder : folders_) {
    if (fs::is_directory(folder, error)) {
      addTree(folder, 0, existing);
      continue;
    }
    const fs::path parent = nearestExistingFolder(folder);
    if (!parent.empty()) above.insert(parent.string());
  }
  QStringList paths;
  for (const auto& path : existing) paths << qtPath(path);
  for (const auto& path : above)
    if (!existing.contains(path)) paths << qtPath(path);
  for (const auto& path : rewatch(watcher_, paths))
    spdlog::warn("Cannot watch {} for installed apps; apps added there are seen at the next start.",
                 QFile::encodeName(path).toStdString());
  return existing;
}

}  // namespace omnira
