#pragma once
// The log of agents' quit requests: "Omnira/requests.json", a JSON list of ActionRecords,
// oldest first, kept 30 days and 500 records at most (applied on every save).
//
// Two programs use the file, the running application (adds) and `omnira actions` (reads,
// clears), so every change holds a lock beside it from the read to the rename, and writes
// are atomic. A missing file is an empty log. A file that cannot be read is a failure and is
// never written over. A file that is not a list of records is set aside as
// "requests.json.bad-<date>" first and the log starts empty; `setAside` says where it went.
// Records that do not decode are left out and logged, and the file is kept aside before
// the next save replaces it (see SavedFile.h).
//
// A plain value holding only the path; any thread, one call at a time per file.

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "OmniraCore/bridge/ActionRecord.h"
#include "OmniraCore/foundation/Result.h"

namespace omnira {

class ActionLog {
 public:
  struct Failure {
    std::string message;
  };
  struct Read {
    std::vector<ActionRecord> records;  // oldest first
    std::optional<std::string> setAside;  // a sentence when a file that is no log was moved away
  };

  explicit ActionLog(std::filesystem::path file) : file_(std::move(file)) {}

  Result<Read, Failure> read() const;
  // Adds the record and saves, pruned as of `now`.
  Result<Read, Failure> add(const ActionRecord& record, Date now) const;
  Result<void, Failure> clear() const;
  const std::filesystem::path& file() const { return file_; }

 private:
  Result<Read, Failure> load() const;  // under the caller's lock

  std::filesystem::path file_;
};

}  // namespace omnira
