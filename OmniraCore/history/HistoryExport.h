#pragma once
// Writes the history as two CSV files for the person: the machine by five minutes and the
// apps by day. App names and figures only: no ids or paths leave the file. CSV follows
// RFC 4180: CRLF line ends, and fields holding a comma, a quote or a line break are
// quoted with their quotes doubled. Dates are local time "yyyy-MM-dd HH:mm". An app name
// that a spreadsheet would take for a formula ("=", "+", "-", "@") begins with a single quote.
// Runs on any thread; the database's lock keeps its reads apart from the store's writes.

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/history/HistoryDatabase.h"

namespace omnira {

class HistoryExport {
 public:
  struct Failure {
    std::string message;
  };
  struct Files {
    std::filesystem::path machine;
    std::filesystem::path apps;
  };

  static const std::vector<std::string>& machineColumns();
  static const std::vector<std::string>& appColumns();

  // Writes rows with start >= since into `folder` (which must exist), in files named
  // with `now`; an existing file (or link) of the same name is left alone and the new file
  // is numbered: "... (2).csv". Files returns the names written.
  static Result<Files, Failure> write(HistoryDatabase& database, const std::filesystem::path& folder, Date since,
                                      Date now);

  static std::string field(std::string_view text);
  // The fields joined by commas, ending in CRLF.
  static std::string record(const std::vector<std::string>& fields);
  static std::string localMinute(int64_t secondsSinceEpoch);
};

}  // namespace omnira
