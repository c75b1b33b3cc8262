#pragma once
// Changes one key of the settings file: checked against the settings table, every other
// key (unknown ones too) kept as it stands, written to a temporary file in the same folder,
// synced and renamed over the old one, so a reader sees the old file or the new, never half.
// Other keys keep their bytes and their order; only the changed one is written anew, so the
// work grows with the file's size, not with the square of its keys.
// A file that is not a JSON object, or nests deeper than kJSONDepthLimit, is refused and
// left alone for the person to mend.
// Any thread. Every change holds the lock "<file>.lock" (FileLock.h) from the read to the
// rename, so two programs changing different keys at once both keep their change.

#include <filesystem>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "OmniraCore/foundation/Result.h"

namespace omnira {

class SettingsFile {
 public:
  struct Failure {
    enum class Kind {
      unknownKey,   // no such setting
      wrongValue,   // the value is not one the key takes
      unusable,     // the file is there but is no JSON object, or cannot be read
      notWritten,   // the folder or the file could not be written
    };
    Kind kind;
    std::string message;  // a sentence naming the key or the file
  };

  explicit SettingsFile(std::filesystem::path file) : file_(std::move(file)) {}

  // Checks a value as a person types it ("on", "15", "[]") and writes it; returns the value
  // as stored. Writing the value that is already there leaves the file untouched.
  Result<nlohmann::json, Failure> set(std::string_view key, std::string_view text) const;
  // The same for a value that is already JSON.
  Result<nlohmann::json, Failure> setValue(std::string_view key, const nlohmann::json& value) const;
  // Removes the key, so it reads as its default; a key that is not there changes nothing.
  Result<void, Failure> unset(std::string_view key) const;

  const std::filesystem::path& path() const { return file_; }

 private:
  struct Document;
  Result<Document, Failure> read() const;
  Result<void, Failure> write(std::string_view text) const;

  std::filesystem::path file_;
};

}  // namespace omnira
