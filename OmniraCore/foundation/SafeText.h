#pragma once
// Text that came from processes or files (names, paths, command lines, log lines), made
// safe for where it goes. Any local user can name a process "\x1b]0;owned\x07" or
// "=HYPERLINK(...)": printed raw, the first retitles or rewrites the person's terminal,
// the second runs as a formula in a spreadsheet.
//
//   terminalText: for a terminal. Valid UTF-8 is kept as it is; C0 controls (tab and line
//   breaks included), DEL, C1 controls (U+0080 to U+009F) and bytes that are not part of
//   valid UTF-8 are written as "\xNN" escapes, one per byte, so a line stays one line.
//   spreadsheetText: for a CSV text cell. A cell that begins with '=', '+', '-', '@', a tab
//   or a carriage return gets a leading single quote, so it is shown, not evaluated; the
//   CSV quoting comes after. Only for text cells: numbers keep their minus sign.
//   markupText: for a notification body, which servers with "body-markup" read as a small
//   subset of HTML: '&', '<' and '>' become entities.
//
// Plain functions; safe on any thread. Nothing here fails.

#include <string>
#include <string_view>

namespace omnira {

std::string terminalText(std::string_view bytes);
std::string spreadsheetText(std::string_view text);
std::string markupText(std::string_view text);

}  // namespace omnira
