#pragma once
// The live charts' rings as saved in "live.json", so the charts are not empty after a
// restart. A plain value: the monitor store fills it on the main thread when it stops and
// reads it back when it starts.
//
// Failures: a file that cannot be read or decoded is a Failure with a sentence; the store
// logs it and starts with empty charts. One that cannot be read is not saved over; one that
// is no live history is moved aside; points that do not decode are left out and the file is
// kept aside before the next save (see SavedFile.h). Saving replaces the file atomically.

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "Omnira/GroupPoint.h"
#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/sampling/SystemSample.h"

namespace omnira {

struct LiveHistory {
  struct Failure {
    std::string message;
  };

  Date savedAt{};
  std::vector<SystemSample> systemHistory;  // oldest first
  std::map<std::string, std::vector<GroupPoint>> groupHistory;

  // Drops what lies more than `seconds` before `now` (and anything dated after it, from a
  // clock that was set back), and apps left without points.
  void trim(Date now, double seconds);

  nlohmann::ordered_json toJSON() const;
  // Fails for the wrong shape only; samples and points that do not decode are left out and
  // counted in `dropped`.
  static Result<LiveHistory, Failure> fromJSON(const nlohmann::ordered_json& json, size_t* dropped = nullptr);

  // A missing file is an empty history, not a failure.
  static Result<LiveHistory, Failure> load(const std::filesystem::path& file);
  Result<void, Failure> save(const std::filesystem::path& file) const;

  friend bool operator==(const LiveHistory&, const LiveHistory&) = default;
};

}  // namespace omnira
