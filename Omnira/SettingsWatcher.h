#pragma once
// Follows the settings file, so a change (from `omnira settings set` or an editor) applies
// without a restart. Watches the file and its folder: an atomic save renames a new file over
// the old one, which ends a watch on the file alone. A folder that does not exist yet is
// waited for from the nearest folder above it that does.
//
// A QObject of the main thread. Events are gathered for a short moment and then the file is
// read again; changed() fires only when what the file says really differs. A file that
// cannot be read or is not a JSON object is logged and the last good settings stay (at
// start, with nothing read before, that is the defaults); a removed file means defaults.

#include <QObject>

#include <filesystem>

#include "Omnira/SavedFileWatcher.h"
#include "OmniraCore/foundation/Settings.h"

namespace omnira {

class SettingsWatcher : public QObject {
  Q_OBJECT

 public:
  // Short enough that a change applies well within a second; long enough to take an
  // editor's write, rename and permission change as one change.
  static constexpr int gatherMilliseconds = SavedFileWatcher::gatherMilliseconds;

  // Reads the file once now; no changed() for that first read.
  explicit SettingsWatcher(std::filesystem::path file, QObject* parent = nullptr);

  const Settings& current() const { return current_; }
  const std::filesystem::path& file() const { return file_; }

 signals:
  void changed(const omnira::Settings& settings);

 private:
  void reload();

  std::filesystem::path file_;
  Settings current_;
  SavedFileWatcher watcher_;
};

}  // namespace omnira
