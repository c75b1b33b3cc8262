#include "OmniraCore/usage/UsageText.h"

#include <cstdint>

namespace omnira::usage_text {

namespace {

constexpr std::string_view replacement = "\xEF\xBF\xBD";
constexpr char marker = '\0';

// The length of the well-formed character at the start of `text`, 0 when there is none.
size_t characterLength(std::string_view text) {
  const auto byte = [&](size_t i) { return static_cast<uint8_t>(text[i]); };
  const uint8_t lead = byte(0);
  if (lead < 0x80) return 1;
  size_t length = 0;
  uint8_t low = 0x80, high = 0xBF;  // the bounds of the second byte
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0) low = 0xA0;       // overlong
    else if (lead == 0xED) high = 0x9F;  // surrogates
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) low = 0x90;       // overlong
    else if (lead == 0xF4) high = 0x8F;  // above U+10FFFF
  } else {
    return 0;
  }
  if (text.size() < length) return 0;
  if (byte(1) < low || byte(1) > high) return 0;
  for (size_t i = 2; i < length; ++i)
    if ((byte(i) & 0xC0) != 0x80) return 0;
  return length;
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

}  // namespace

bool isUTF8(std::string_view text) {
  size_t i = 0;
  while (i < text.size()) {
    if (static_cast<uint8_t>(text[i]) < 0x80) {
      ++i;
      continue;
    }
    const size_t length = characterLength(text.substr(i));
    if (length == 0) return false;
    i += length;
  }
  return true;
}

void appendValid(std::string& out, std::string_view text) {
  if (isUTF8(text)) {
    out += text;
    return;
  }
  size_t i = 0;
  while (i < text.size()) {
    const size_t length = characterLength(text.substr(i));
    if (length == 0) {
      out += replacement;
      ++i;
    } else {
      out += text.substr(i, length);
      i += length;
    }
  }
}

std::string valid(std::string_view text) {
  std::string out;
  appendValid(out, text);
  return out;
}

std::string pathKey(std::string_view path) {
  if (isUTF8(path) && (path.empty() || path.front() != marker)) return std::string(path);
  static constexpr char digits[] = "0123456789ABCDEF";
  std::string key(1, marker);
  for (const char c : path) {
    const auto byte = static_cast<uint8_t>(c);
    if (byte >= 0x80 || c == '%') {
      key += '%';
      key += digits[byte >> 4];
      key += digits[byte & 0xF];
    } else {
      key += c;
    }
  }
  return key;
}

std::optional<std::string> pathFromKey(std::string_view key) {
  if (key.empty() || key.front() != marker) return std::string(key);
  std::string path;
  for (size_t i = 1; i < key.size(); ++i) {
    if (key[i] != '%') {
      path += key[i];
      continue;
    }
    if (i + 2 >= key.size()) return std::nullopt;
    const int high = hexValue(key[i + 1]), low = hexValue(key[i + 2]);
    if (high < 0 || low < 0) return std::nullopt;
    path += static_cast<char>(high * 16 + low);
    i += 2;
  }
  return path;
}

}  // namespace omnira::usage_text
