#pragma once
// Text that comes from the coding tools' logs and from file names, whose bytes need not be
// UTF-8. Names and ids read from a log become UTF-8 here, with U+FFFD for each byte that is
// not part of a well-formed character, so everything kept and shown is text. File paths
// keep their bytes (they open the file) and are turned into a text key only to be saved.
// Pure functions; any thread.

#include <optional>
#include <string>
#include <string_view>

namespace omnira::usage_text {

// Well-formed UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
bool isUTF8(std::string_view text);
// `text` with each byte that is not part of a well-formed character replaced by U+FFFD.
void appendValid(std::string& out, std::string_view text);
std::string valid(std::string_view text);

// A file path as a saved key that gives back the same bytes. A UTF-8 path is its own key.
// Any other starts with U+0000, which no path holds, and has every byte from 0x80 up and
// every "%" written as "%XX" ("/logs/caf\xe9.jsonl" → "\0/logs/caf%E9.jsonl").
std::string pathKey(std::string_view path);
// The path of a key made by pathKey; nothing when a marked key is malformed.
std::optional<std::string> pathFromKey(std::string_view key);

}  // namespace omnira::usage_text
