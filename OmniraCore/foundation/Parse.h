#pragma once
// Checked number parsing and small text helpers shared by the readers.
// Every number read from a file goes through parseNumber: partial or
// out-of-range text is no number, never a silent 0.

#include <charconv>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>
#include <vector>

namespace omnira {

template <class T>
std::optional<T> parseNumber(std::string_view text) {
  static_assert(std::is_arithmetic_v<T>);
  T value{};
  const char* begin = text.data();
  const char* end = text.data() + text.size();
  auto [ptr, ec] = std::from_chars(begin, end, value);
  if (ec != std::errc() || ptr != end || text.empty()) return std::nullopt;
  return value;
}

// Parses the leading number of `text` and advances it past the digits.
template <class T>
std::optional<T> consumeNumber(std::string_view& text) {
  T value{};
  auto [ptr, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (ec != std::errc() || ptr == text.data()) return std::nullopt;
  text.remove_prefix(static_cast<size_t>(ptr - text.data()));
  return value;
}

// ASCII letters in lower case; other bytes as they are (names are bytes, not UTF-8).
inline std::string lowered(std::string_view text) {
  std::string out(text);
  for (char& c : out)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return out;
}

inline std::string_view trim(std::string_view text) {
  constexpr std::string_view space = " \t\r\n";
  const auto first = text.find_first_not_of(space);
  if (first == std::string_view::npos) return {};
  const auto last = text.find_last_not_of(space);
  return text.substr(first, last - first + 1);
}

// Splits at runs of spaces and tabs; empty fields are never produced.
inline std::vector<std::string_view> splitFields(std::string_view text) {
  std::vector<std::string_view> fields;
  size_t i = 0;
  while (i < text.size()) {
    while (i < text.size() && (text[i] == ' ' || text[i] == '\t')) ++i;
    size_t start = i;
    while (i < text.size() && text[i] != ' ' && text[i] != '\t') ++i;
    if (i > start) fields.push_back(text.substr(start, i - start));
  }
  return fields;
}

// Calls fn(line) for each line; a last line without a newline still counts.
template <class Fn>
void forEachLine(std::string_view text, Fn&& fn) {
  while (!text.empty()) {
    const auto nl = text.find('\n');
    if (nl == std::string_view::npos) {
      fn(text);
      return;
    }
    fn(text.substr(0, nl));
    text.remove_prefix(nl + 1);
  }
}

// Calls fn(key, value, line) for each "key: value" line of the kernel's many files of
// that form; the value is untrimmed. Lines without a key and colon are skipped.
template <class Fn>
void forEachKeyValue(std::string_view text, Fn&& fn) {
  forEachLine(text, [&](std::string_view line) {
    const auto colon = line.find(':');
    if (colon == std::string_view::npos || colon == 0) return;
    fn(line.substr(0, colon), line.substr(colon + 1), line);
  });
}

// "  1234 kB" as 1234. Bounded so that sums of a few such figures in bytes cannot overflow.
inline std::optional<uint64_t> parseKilobytes(std::string_view value) {
  value = trim(value);
  if (!value.ends_with(" kB")) return std::nullopt;
  auto number = parseNumber<uint64_t>(trim(value.substr(0, value.size() - 3)));
  if (!number || *number > UINT64_MAX / 1024 / 4) return std::nullopt;
  return number;
}

}  // namespace omnira
