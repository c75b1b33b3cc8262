#pragma once
// `omnira history`: reads the history file that a running Omnira writes.
// Runs on the command's one thread; opens the file only if it exists, so asking never
// creates a history.

#include <cstdio>
#include <optional>
#include <string>

#include "OmniraCore/foundation/AppPaths.h"
#include "OmniraCore/foundation/Date.h"

namespace omnira::cli {

struct HistoryRequest {
  enum class Command { system, apps, exportFiles, remove };
  Command command = Command::system;
  std::string period = "day";  // day, week, month, year
  std::string by = "cpu";      // cpu, memory, energy, disk, network
  size_t top = 15;
  bool json = false;
  std::optional<std::string> since;  // export: "YYYY-MM-DD" or an ISO 8601 date
  bool older = false;                // delete: rows past the kept span
  bool all = false;                  // delete: everything
  bool yes = false;                  // delete without asking

  // A sentence about a wrong or missing argument, found without touching any file.
  std::optional<std::string> mistake() const;
};

// Prints to `out`, sentences about problems to `err`; returns the exit status: 2 for a
// mistake in the arguments, checked before the history is opened.
int runHistory(const HistoryRequest& request, const AppPaths& paths, Date now, std::FILE* out, std::FILE* err);

// "2026-11-21" (local midnight) or a full ISO 8601 date.
std::optional<Date> parseSinceDate(const std::string& text);

}  // namespace omnira::cli
