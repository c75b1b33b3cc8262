#pragma once
// What each app used, day by day: seconds seen, CPU seconds, energy and peak memory per
// app id and local calendar day ("%04d-%02d-%02d"), plus the seconds the machine was
// watched that day. The store records every tick into its working ledger, publishes a
// copy for the views, and saves it as AppPaths::dataFile("usage.json"):
//   {"version": 1, "days": {"2026-11-21": {"seconds": 3600.0,
//     "apps": {"<app id>": {"name": "Files", "seconds": 3600.0, "cpuSeconds": 12.5,
//                           "energyJoules": 80.0, "peakMemoryBytes": 123456789}}}}}
// Only the last `keptDays` days are kept.
// A plain value: owned by the monitor store and used on its thread; copies go anywhere.

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/history/TickGroups.h"
#include "OmniraCore/sampling/AppGroup.h"

namespace omnira {

class UsageLedger {
 public:
  struct Failure {
    std::string message;  // names the file and what is wrong with it
  };

  static constexpr int keptDays = 31;

  struct AppDay {
    std::string name;
    double seconds = 0;
    double cpuSeconds = 0;  // core-seconds
    double energyJoules = 0;
    uint64_t peakMemoryBytes = 0;
    friend bool operator==(const AppDay&, const AppDay&) = default;
  };

  struct Day {
    double seconds = 0;  // how long the machine was watched
    std::map<std::string, AppDay> apps;
    friend bool operator==(const Day&, const Day&) = default;
  };

  // The machine was watched for `interval` seconds ending at `at`.
  void record(double interval, Date at);
  // Each group was seen for `interval` seconds ending at `at`; its energy counts only when
  // the groups are fresh (see TickGroups).
  void record(const std::vector<AppGroup>& groups, TickGroups freshness, double interval, Date at);

  // The day, by key; an empty day when nothing was recorded.
  const Day& day(const std::string& key) const;
  const std::map<std::string, Day>& days() const { return days_; }

  static std::string dayKey(Date at);  // the local calendar day

  nlohmann::ordered_json toJSON() const;
  // Fails only for JSON that is no ledger at all; a day or an app entry that does not decode
  // is left out, with why in `dropped`.
  static Result<UsageLedger, Failure> fromJSON(const nlohmann::ordered_json& json,
                                               std::vector<std::string>* dropped = nullptr);

  // A missing file is an empty ledger. One that cannot be read is a failure and is not saved
  // over; one that is no ledger is moved aside (the failure says where); bad entries are left
  // out and logged, and the file is kept aside before the next save (see SavedFile.h).
  static Result<UsageLedger, Failure> load(const std::filesystem::path& file);
  // Written to a temporary file beside it and renamed, so a crash leaves the old file. Skipped
  // (and logged once) while the file on disk could not be read.
  Result<void, Failure> save(const std::filesystem::path& file) const;

  friend bool operator==(const UsageLedger&, const UsageLedger&) = default;

 private:
  Day& dayFor(Date at);
  std::map<std::string, Day> days_;
};

}  // namespace omnira
