#pragma once
// What a load found in one of Omnira's saved files, so that the next save never destroys
// what could not be read: an unreadable file once cost five days of usage, and one bad
// insight cost the three good ones (and a pin) beside it.
//
//   missing               start empty, save as usual
//   unreadable            start empty, and never write over it until a load reads it
//   not the data at all   moved aside to "<name>.bad-<date>" at once, start empty
//   some entries bad      keep the good ones; the file is kept as "<name>.bad-<date>"
//                         just before the first save replaces it
//
// Loaders report with found(); savers ask mayReplace() right before writing. The record is
// one table for the whole process, keyed by path and behind a mutex, because the loader
// and the saver of one file are often different objects (a static load at start, a save
// from a copy later). Any thread.

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "OmniraCore/foundation/AtomicFile.h"
#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/foundation/Result.h"

namespace omnira::SavedFile {

enum class Found {
  whole,        // read and decoded, or missing
  someDropped,  // read, but entries that did not decode were left out
  unreadable,   // there, but could not be read
};

// Records what a load found; `why` is logged for someDropped ("2 entries ... dropped").
void found(const std::filesystem::path& file, Found what, std::string_view why = {});

// A loader's first step: the file's text, nullopt when there is no file (recorded as whole),
// or the sentence for one that cannot be read (recorded as unreadable).
Result<std::optional<std::string>, std::string> read(const std::filesystem::path& file);

// A loader's last step: whole when nothing was dropped, else someDropped with
// "<entries> left out as they could not be read: <count> (first: <first>)".
void foundDropping(const std::filesystem::path& file, size_t dropped, std::string_view entries,
                   std::string_view first = {});

// Whether a save may write over `file` now. False for a file that could not be read when it
// was last loaded; the first refusal is logged, later ones are silent. A file with dropped
// entries is kept aside first (and false when that fails).
bool mayReplace(const std::filesystem::path& file, Date now);

// Renames `file` to "<file>.bad-<local date>", or "-2", "-3", ... when that is taken, never
// replacing anything. With `keepOriginal` the aside is a second link and the file stays.
// Returns where it went, or the system's reason.
Result<std::filesystem::path, std::string> setAside(const std::filesystem::path& file, Date now,
                                                    bool keepOriginal = false);

// For a file that is not the saved data at all: sets it aside, logs nothing, and returns the
// sentence for the caller to log ("<file> <problem>; it was moved to <aside>."). When it
// cannot be moved the file counts as unreadable and the sentence says it is left alone.
std::string discard(const std::filesystem::path& file, std::string_view problem, Date now);

// "<reason>; it is left as it is and not saved over until it can be read." Records it too.
std::string unreadable(const std::filesystem::path& file, std::string_view reason);

}  // namespace omnira::SavedFile
