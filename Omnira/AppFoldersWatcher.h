#pragma once
// Notices apps being installed or removed, so that processes of a new app are grouped under
// it without a restart. Watches the folders that describe the installed apps (on Linux the
// applications/ folders of the data dirs) and their subfolders; a folder that does not
// exist yet is waited for from the nearest folder above it that does.
//
// A QObject of the main thread. A package manager touches many files at once, so events are
// gathered for a moment and changed() fires once for them. Events in a folder above a
// missing one (say ~/.local/share, which many programs write to) fire changed() only when
// one of the watched folders has appeared or gone. A folder that cannot be watched is
// logged; its apps are then only seen at the next start.

#include <QFileSystemWatcher>
#include <QObject>
#include <QTimer>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

namespace omnira {

class AppFoldersWatcher : public QObject {
  Q_OBJECT

 public:
  static constexpr int defaultGatherMilliseconds = 2000;

  explicit AppFoldersWatcher(std::vector<std::filesystem::path> folders,
                             int gatherMilliseconds = defaultGatherMilliseconds, QObject* parent = nullptr);

 signals:
  void changed();

 private:
  void noteEvent(const QString& path);
  void gathered();
  // The existing folders and all their subfolders, and for each missing folder its nearest
  // existing parent; returns the folders that exist.
  std::set<std::string> watch();

  std::vector<std::filesystem::path> folders_;
  std::set<std::string> existing_;  // the watched folders (and subfolders) that exist
  bool contentChanged_ = false;     // an event came from inside one of them
  QFileSystemWatcher watcher_;
  QTimer gather_;
};

}  // namespace omnira
