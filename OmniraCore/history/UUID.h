#pragma once
// A random (version 4) UUID, the identity of insights and app limits. Written in the
// usual 8-4-4-4-12 hexadecimal form, upper case; either case is read.

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace omnira {

struct UUID {
  std::array<uint8_t, 16> bytes{};

  // Fresh and random; the generator is seeded once per thread from std::random_device.
  static UUID random();
  static std::optional<UUID> parse(std::string_view text);
  std::string string() const;

  friend bool operator==(const UUID&, const UUID&) = default;
  friend auto operator<=>(const UUID&, const UUID&) = default;
};

}  // namespace omnira

template <>
struct std::hash<omnira::UUID> {
  size_t operator()(const omnira::UUID& id) const noexcept {
    size_t h = 0;
    for (uint8_t b : id.bytes) h = h * 131 + b;
    return h;
  }
};
