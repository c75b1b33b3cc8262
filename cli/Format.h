#pragma once
// How figures read in a terminal: binary units for memory, decimal for disks and networks
// (as the tools people compare them with), short durations.

#include <cstdint>
#include <cstdio>
#include <string>

namespace omnira::cli {

std::string bytes(uint64_t count);           // "1.5 GiB", "512 B"
std::string rate(double bytesPerSecond);     // "1.2 MB/s", "0 B/s"
std::string percent(double fraction);        // 0.123 -> "12%"; below 10 % with one decimal: "3.4%"
std::string duration(double seconds);        // "3d 4h", "2h 05m", "7m", "42s"
// At most `width` bytes, cut on a character boundary and ended with "…" when cut.
std::string fit(std::string text, size_t width);
// Asks `question` on the terminal and reads the answer from standard input: yes only for
// "y" or "yes".
bool confirmed(const std::string& question, std::FILE* out);
// "~/src/web" for a path in `home`.
std::string shownPath(const std::string& path, const std::string& home);

}  // namespace omnira::cli
