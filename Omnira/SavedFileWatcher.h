#pragma once
// Follows one saved file that another program may change while Omnira runs ("insights.json",
// which `omnira insights` edits). Watches the file and its folder, since a save renames a
// new file over the old one and that ends a watch on the file alone; a folder that does not
// exist yet is waited for from the nearest folder above it.
//
// A QObject of the main thread. Events are gathered for a short moment, then changed()
// fires once; the owner reads the file itself and decides whether anything differs. Our
// own saves fire it too.

#include <QFileSystemWatcher>
#include <QObject>
#include <QTimer>

#include <filesystem>

namespace omnira {

class SavedFileWatcher : public QObject {
  Q_OBJECT

 public:
  static constexpr int gatherMilliseconds = 150;

  explicit SavedFileWatcher(std::filesystem::path file, QObject* parent = nullptr);

 signals:
  void changed();

 private:
  void noteEvent();
  void fire();
  void watch();

  std::filesystem::path file_;
  QFileSystemWatcher watcher_;
  QTimer gather_;
};

}  // namespace omnira
