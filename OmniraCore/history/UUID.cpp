#include "OmniraCore/history/UUID.h"

#include <random>

namespace omnira {

UUID UUID::random() {
  thread_local std::mt19937_64 engine = [] {
    std::random_device device;
    std::seed_seq seed{device(), device(), device(), device(), device(), device(), device(), device()};
    return std::mt19937_64(seed);
  }();
  UUID id;
  for (size_t i = 0; i < 16; i += 8) {
    const uint64_t word = engine();
    for (size_t j = 0; j < 8; ++j) id.bytes[i + j] = static_cast<uint8_t>(word >> (8 * j));
  }
  id.bytes[6] = static_cast<uint8_t>((id.bytes[6] & 0x0F) | 0x40);  // version 4
  id.bytes[8] = static_cast<uint8_t>((id.bytes[8] & 0x3F) | 0x80);  // RFC 4122 variant
  return id;
}

namespace {

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool dashAt(size_t i) { return i == 8 || i == 13 || i == 18 || i == 23; }

}  // namespace

std::optional<UUID> UUID::parse(std::string_view text) {
  if (text.size() != 36) return std::nullopt;
  UUID id;
  size_t byte = 0;
  for (size_t i = 0; i < text.size();) {
    if (dashAt(i)) {
      if (text[i] != '-') return std::nullopt;
      ++i;
      continue;
    }
    const int high = hexDigit(text[i]), low = hexDigit(text[i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    id.bytes[byte++] = static_cast<uint8_t>(high << 4 | low);
    i += 2;
  }
  return id;
}

std::string UUID::string() const {
  static constexpr char digits[] = "0123456789ABCDEF";
  std::string text;
  text.reserve(36);
  for (size_t i = 0; i < 16; ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text.push_back('-');
    text.push_back(digits[bytes[i] >> 4]);
    text.push_back(digits[bytes[i] & 0x0F]);
  }
  return text;
}

}  // namespace omnira
