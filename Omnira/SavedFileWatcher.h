#pragma once
// Follows one file that another program may change while Omnira runs ("insights.json",
// which `omnira insights` edits; the settings file). Watches the file and its folder, since a save renames a
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
#include <string>

namespace omnira {

class SavedFileWatcher : public QObject {
  Q_OBJECT

 public:
  static constexpr int gatherMilliseconds = 150;

  // `unwatchable` ends the warning logged when the folder cannot be watched: what the
  // person should expect then.
  SavedFileWatcher(std::filesystem::path file, std::string unwatchable, QObject* parent = nullptr);

 signals:
  void changed();

 private:
  void noteEvent();
  void fire();
  void watch();

  std::filesystem::path file_;
  std::string unwatchable_;
  QFileSystemWatcher watcher_;
  QTimer gather_;
};

}  // namespace omnira
