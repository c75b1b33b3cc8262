#pragma once
// The one place that knows where Omnira keeps its files.
// Data (history, saved state, the socket) lives in $XDG_DATA_HOME/Omnira
// (default ~/.local/share/Omnira); settings are $XDG_CONFIG_HOME/Omnira/settings.json
// (default ~/.config/Omnira/settings.json); exports go to the Downloads folder.
// Nothing else builds these paths.
// A plain value, built once at start; safe to copy to any thread.

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "OmniraCore/foundation/Result.h"

namespace omnira {

class AppPaths {
 public:
  using Environment = std::function<std::optional<std::string>(const std::string& name)>;

  struct Failure {
    std::string message;
  };

  // Reads XDG_DATA_HOME, XDG_CONFIG_HOME and HOME; a relative XDG value is ignored,
  // as the XDG base directory rules say. Fails only without any home folder.
  static Result<AppPaths, Failure> fromEnvironment(const Environment& environment);
  static Result<AppPaths, Failure> fromProcessEnvironment();

  // Omnira may run as root with a home another user controls. Makes the data and config
  // folders if need be (0700), refuses either when it is not the running user's own, when
  // others can write in it, or when a folder above it belongs to another user or is writable
  // by all without the sticky bit; then narrows each to 0700 and removes what interrupted
  // saves left there. Called at start by the application and by the commands that write;
  // the failure is one sentence for the person.
  Result<void, Failure> prepareFolders() const;
  // The check alone, for one existing folder.
  static Result<void, Failure> checkFolder(const std::filesystem::path& folder);

  AppPaths(std::filesystem::path dataFolder, std::filesystem::path configFolder,
           std::filesystem::path downloadsFolder = {})
      : data_(std::move(dataFolder)), config_(std::move(configFolder)), downloads_(std::move(downloadsFolder)) {}

  // ~/.local/share/Omnira
  const std::filesystem::path& dataFolder() const { return data_; }
  // ~/.local/share/Omnira/<name>, e.g. "history.sqlite".
  std::filesystem::path dataFile(const std::string& name) const { return data_ / name; }
  // ~/.config/Omnira/settings.json
  std::filesystem::path settingsFile() const { return config_ / "settings.json"; }
  // Where exports go: $XDG_DOWNLOAD_DIR, else ~/Downloads.
  const std::filesystem::path& downloadsFolder() const { return downloads_; }

 private:
  std::filesystem::path data_;
  std::filesystem::path config_;
  std::filesystem::path downloads_;
};

}  // namespace omnira
