#pragma once
// The text that "Copy diagnostic report" puts on the clipboard, for a person to paste into
// a bug report: Omnira's version, the system, the folders, every setting as Omnira reads it
// (metricsToken only as "(set)", never its value) and Omnira's own log of the last 30
// minutes, read back from the journal. Plain C++, so it is built and tested without Qt.
//
// Any thread; nothing here keeps state. A log that cannot be read is no failure: the report
// says why it has none.

#include <chrono>
#include <istream>
#include <string>
#include <vector>

#include "OmniraCore/foundation/AppPaths.h"
#include "OmniraCore/foundation/Date.h"

namespace omnira::presentation {

inline constexpr std::chrono::minutes diagnosticLogSpan{30};

struct LogExcerpt {
  std::vector<std::string> lines;  // "2026-11-25 19:40:01 warning: ...", oldest first
  std::string unreadable;          // when set: one sentence saying why no log could be read
};

// The entries of `journalctl -o json` output (one JSON object a line) from `since` on.
// Lines that are no entry, or have no time, are skipped.
LogExcerpt journalWindow(std::istream& entries, Date since);

// This user's entries under `identifier` from `since` on, read with journalctl. Blocks
// until journalctl ends; one that takes more than ten seconds is stopped.
LogExcerpt readJournal(const std::string& identifier, Date since);

struct DiagnosticFacts {
  std::string version;
  std::string systemName;  // from os-release
  AppPaths paths;
  Date now;
};

// Reads the settings file as `omnira settings` does; a file that cannot be used is named
// with why, and the defaults Omnira then runs with are listed.
std::string diagnosticReport(const DiagnosticFacts& facts, const LogExcerpt& log);

}  // namespace omnira::presentation
