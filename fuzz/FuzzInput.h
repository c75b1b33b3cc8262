#pragma once
// What every fuzz target shares: the input as a string_view, and the parser picked by its
// first byte so one target covers a family of parsers (the rest of the input is the text).

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace omnira::fuzz {

struct Input {
  unsigned selector = 0;
  std::string_view text;
};

// Empty input picks parser 0 with empty text, so every parser sees "" too.
inline Input split(const uint8_t* data, size_t size, unsigned parsers) {
  if (size == 0) return {0, {}};
  return {data[0] % parsers, std::string_view(reinterpret_cast<const char*>(data) + 1, size - 1)};
}

// Keeps a value alive so the optimiser cannot drop the call that made it.
template <class T>
inline void keep(const T& value) {
  asm volatile("" : : "g"(&value) : "memory");
}

// Whether a view points into the text it was cut from (empty views point anywhere).
inline bool within(std::string_view part, std::string_view whole) {
  return part.empty() || (part.data() >= whole.data() && part.data() + part.size() <= whole.data() + whole.size());
}

}  // namespace omnira::fuzz
