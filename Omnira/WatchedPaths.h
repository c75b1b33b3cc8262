#pragma once
// What the watchers of files and folders on the main thread share: they watch paths that
// may not exist yet, and they put their watches on afresh after each change, because a
// file or folder replaced under the same name keeps a watch on its old inode.

#include <QFileSystemWatcher>
#include <QString>
#include <QStringList>

#include <filesystem>

namespace omnira {

QString qtPath(const std::filesystem::path& path);

// The folder itself when it exists, else the nearest existing folder above it; empty when
// there is none.
std::filesystem::path nearestExistingFolder(std::filesystem::path folder);

// Replaces every watch of the watcher with `paths`; returns the paths it could not watch.
QStringList rewatch(QFileSystemWatcher& watcher, const QStringList& paths);

}  // namespace omnira
