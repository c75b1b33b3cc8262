#pragma once
// The person's settings: one JSON object in AppPaths::settingsFile().
// Reading never fails: a missing file or key gives the caller's default, and a
// malformed file is logged and read as all defaults. The file is never rewritten
// here, so a file the person broke by hand is left for them to mend.
// A plain value: load on one thread, then read or copy it anywhere.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "OmniraCore/foundation/Result.h"

namespace omnira {

class Settings {
 public:
  struct Failure {
    std::string message;  // a sentence naming the file and what is wrong with it
  };

  Settings() : values_(nlohmann::json::object()) {}

  // Strict read: the caller learns why a file could not be used.
  static Result<Settings, Failure> read(const std::filesystem::path& file);
  // Lenient read used at start: any failure is logged and gives defaults.
  static Settings load(const std::filesystem::path& file);

  bool boolean(const std::string& key, bool fallback) const;
  double number(const std::string& key, double fallback) const;
  int64_t integer(const std::string& key, int64_t fallback) const;
  std::string string(const std::string& key, const std::string& fallback) const;
  bool contains(const std::string& key) const { return values_.contains(key); }

 private:
  explicit Settings(nlohmann::json values) : values_(std::move(values)) {}
  nlohmann::json values_;
};

}  // namespace omnira
