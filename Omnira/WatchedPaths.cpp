#include "Omnira/WatchedPaths.h"

#include <QFile>

namespace omnira {

namespace fs = std::filesystem;

QString qtPath(const fs::path& path) { return QFile::decodeName(path.c_str()); }

fs::path nearestExistingFolder(fs::path folder) {
  std::error_code error;
  while (!folder.empty() && !fs::is_directory(folder, error)) {
    if (folder == folder.parent_path()) return {};
    folder = folder.parent_path();
  }
  return folder;
}

QStringList rewatch(QFileSystemWatcher& watcher, const QStringList& paths) {
  if (!watcher.files().isEmpty()) watcher.removePaths(watcher.files());
  if (!watcher.directories().isEmpty()) watcher.removePaths(watcher.directories());
  if (paths.isEmpty()) return {};
  return watcher.addPaths(paths);
}

}  // namespace omnira
