#pragma once
// Text from the system (file names, process names, command lines, log lines) is bytes,
// not UTF-8: any local user can name a process "\xff". Such bytes are kept as they are
// wherever the program opens files by them; wherever text is shown or written for
// others to read (JSON, the history, CSV, notifications), it goes through shownText,
// which puts U+FFFD in place of each byte that is not part of valid UTF-8.
//
// Plain functions; safe on any thread. Nothing here fails.

#include <string>
#include <string_view>

namespace omnira {

bool isUTF8(std::string_view bytes);
// The bytes themselves when they are valid UTF-8, else with U+FFFD for what is not.
std::string shownText(std::string_view bytes);

}  // namespace omnira
