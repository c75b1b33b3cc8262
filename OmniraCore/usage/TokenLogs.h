#pragma once
// Reads the token counts that Claude Code and Codex write into their JSON-lines logs on
// this computer, into a TokenLedger per tool. Nothing is sent anywhere.
//
// Reading is incremental: each file is remembered by its size and the offset just past
// the last whole line taken, so a refresh reads only what was appended. A refresh with
// nothing new only lists the folders and looks at sizes. A file that shrank, or whose
// byte before the remembered offset is no longer a newline, was rewritten and is read
// again from the start, its old figures replaced. Files are read in 4 MiB chunks and only
// whole lines are taken; a line longer than a chunk is held until it is complete, up to
// longestLine: a longer one (a tool's output, a file of zeros) is passed over unread, so
// memory stays under longestLine whatever the files hold.
//
// Claude Code lines are scanned as bytes for fixed keys, never parsed as JSON; only the
// message object's own members are stepped through, to find its id and model wherever
// they stand (1.x writes the id first, 2.x the model). A reply (message id + request id,
// or the message id alone where a line has none) counts once across all files of a
// ledger, with the figures of its most complete line; a file that repeats a reply booked
// elsewhere keeps it as a copy, booked should the first file lose it. Lines without a
// message id count as they come; the model "<synthetic>" is no model and is left out.
// Codex lines are scanned the same way for their token events, which carry running
// totals: a line's usage is the growth of those totals (the last turn's usage where the
// totals start again), booked under the model of the latest "turn_context" line.
//
// Folders are walked once per real folder (a home reached through a link is not walked
// again). Ledger entries go with their files; a file that moved to another folder under
// the same name (Codex archives finished sessions) keeps its entry and is read on from
// where it was. Model names and reply ids that are not UTF-8 are kept with U+FFFD in
// place of the odd bytes; paths keep their bytes.
//
// Failures are silent by design: an unreadable folder or file is skipped, an unreadable
// line counts nothing and reading goes on.
// Threads: the operations are stateless; `update` changes the ledger it is given and must
// be the only one touching that ledger while it runs (one worker thread at a time).

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "OmniraCore/foundation/AppPaths.h"
#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/usage/DayCalendar.h"
#include "OmniraCore/usage/SessionLedger.h"
#include "OmniraCore/usage/TokenLedger.h"
#include "OmniraCore/usage/TokenUsage.h"
#include "OmniraCore/usage/UsageTool.h"

namespace omnira {

struct TokenLogs {
  static constexpr size_t chunkSize = 4 * 1024 * 1024;
  static constexpr size_t longestLine = 4 * chunkSize;
  // The model name under which usage without a named model is booked.
  static constexpr std::string_view unknownModel = "unknown";

  // One Claude Code line as read. The texts are views into the line and live only as long
  // as it does.
  struct ClaudeLine {
    enum class Kind {
      counted,  // an assistant reply with its usage
      skip,     // a line of another kind, or a reply of the "<synthetic>" model
      unknown,  // an assistant line that could not be read (no timestamp, a number too large)
    };
    Kind kind = Kind::skip;
    std::string_view messageID;  // empty when the line has none
    std::string_view requestID;  // empty when the line has none
    TokenUsage usage;
    std::string_view model;  // empty when the line names none
    Date timestamp{};

    // The reply's key needs its message id; the request id joins it where the line has one.
    bool hasKey() const { return !messageID.empty(); }
    std::string key() const;  // "<message id>:<request id>" or "<message id>", as UTF-8
  };
  static ClaudeLine readClaudeLine(std::string_view line);

  // What one update did.
  struct Update {
    std::vector<std::string> seen;  // every "jsonl" file found in the walk, skipped or not
    size_t filesRead = 0;           // files opened because they had new bytes
    uint64_t bytesRead = 0;
  };

  // Brings the ledger of `tool` up to date from its homes: "projects" inside each Claude
  // home, "sessions" and "archived_sessions" inside each Codex home; other tools keep no
  // logs. Files last modified before `since` are not opened. Ledger entries of files that
  // are gone (unless moved, see above) are dropped, and those of skipped files that hold
  // no day from `since` on, so the ledger (and its index of replies) stays within the
  // counted days.
  static Update update(TokenLedger& ledger, UsageTool tool, const std::vector<std::filesystem::path>& homes,
                       Date since, const DayCalendar& calendar = DayCalendar::local());
  // The same with the homes that UsageLogins finds in `environment`.
  static Update update(TokenLedger& ledger, UsageTool tool, const AppPaths::Environment& environment, Date since,
                       const DayCalendar& calendar = DayCalendar::local());
  // The same for a list of log folders, walked recursively.
  static Update updateFolders(TokenLedger& ledger, UsageTool tool, const std::vector<std::filesystem::path>& folders,
                              Date since, const DayCalendar& calendar = DayCalendar::local());
  // The same reading for the log files of one agent session (no `since`); `found` tells
  // whether any of them exists.
  static void updateSession(SessionLedger& session, UsageTool tool, const std::vector<std::filesystem::path>& files,
                            const DayCalendar& calendar = DayCalendar::local());

  // Books the whole lines of `text` into the ledger's entry for `file`, as reading them
  // appended to that file would; a last line without its newline is left out. The entry's
  // offset and size stay as they are: the bytes come from no file (tests, fuzzing).
  static void readLines(TokenLedger& ledger, UsageTool tool, const std::string& file, std::string_view text,
                        const DayCalendar& calendar = DayCalendar::local());

  // The day keys of the last `back` days up to and including the day of `from`, newest last.
  static std::vector<std::string> days(int back, Date from, const DayCalendar& calendar = DayCalendar::local());
  // The start of the earliest of those days: the `since` of an update that covers them.
  static Date start(int ofDaysBack, Date from, const DayCalendar& calendar = DayCalendar::local());
  // The day key of a moment.
  static std::string day(Date date, const DayCalendar& calendar = DayCalendar::local());

  // A short display form of a logged model name:
  //   "claude-…": the prefix and a trailing date go, the words come first and capitalized,
  //     the number parts join with dots: "claude-sonnet-4-5-20250929" → "Sonnet 4.5",
  //     "claude-3-5-haiku-20241022" → "Haiku 3.5", "claude-opus-4-1" → "Opus 4.1".
  //   "gpt-…": "GPT-" and the version, then the other parts capitalized, a trailing date
  //     dropped: "gpt-5-codex" → "GPT-5 Codex", "gpt-5.1-codex-max" → "GPT-5.1 Codex Max".
  //   Any other name stays as it is.
  static std::string modelName(std::string_view model);
};

}  // namespace omnira
