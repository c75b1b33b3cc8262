#include "OmniraCore/foundation/SafeText.h"

#include <fmt/format.h>

namespace omnira {

namespace {

// The length of the valid UTF-8 sequence at the start of `text`, or 0 when it is not one
// (overlong forms, surrogates and code points past U+10FFFF included).
size_t sequenceLength(std::string_view text) {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(0);
  size_t length = 0;
  unsigned char low = 0x80, high = 0xBF;  // the bounds of the second byte
  if (lead >= 0xC2 && lead <= 0xDF) length = 2;
  else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return 0;
  }
  if (text.size() < length || byte(1) < low || byte(1) > high) return 0;
  for (size_t i = 2; i < length; ++i)
    if ((byte(i) & 0xC0) != 0x80) return 0;
  return length;
}

void escape(std::string& out, std::string_view bytes) {
  for (const char c : bytes) out += fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
}

}  // namespace

std::string terminalText(std::string_view bytes) {
  std::string out;
  out.reserve(bytes.size());
  size_t i = 0;
  while (i < bytes.size()) {
    const auto c = static_cast<unsigned char>(bytes[i]);
    if (c < 0x80) {
      if (c < 0x20 || c == 0x7F) escape(out, bytes.substr(i, 1));
      else out += static_cast<char>(c);
      ++i;
      continue;
    }
    const size_t length = sequenceLength(bytes.substr(i));
    if (length == 0) {
      escape(out, bytes.substr(i, 1));
      ++i;
      continue;
    }
    // C1 controls are U+0080 to U+009F: 0xC2 0x80 to 0xC2 0x9F; terminals act on them too.
    const bool c1 = length == 2 && c == 0xC2 && static_cast<unsigned char>(bytes[i + 1]) <= 0x9F;
    if (c1) escape(out, bytes.substr(i, 2));
    else out.append(bytes.substr(i, length));
    i += length;
  }
  return out;
}

std::string spreadsheetText(std::string_view text) {
  if (!text.empty() && std::string_view("=+-@\t\r").find(text.front()) != std::string_view::npos)
    return "'" + std::string(text);
  return std::string(text);
}

std::string markupText(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (const char c : text) {
    if (c == '&') out += "&amp;";
    else if (c == '<') out += "&lt;";
    else if (c == '>') out += "&gt;";
    else out += c;
  }
  return out;
}

}  // namespace omnira
