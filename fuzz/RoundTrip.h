#pragma once
// A save follows every load, so what a decoder accepts must come back unchanged from being
// written and read again; the fuzz targets of saved files all check that the same way.

#include <type_traits>
#include <string_view>

#include "OmniraCore/foundation/JSONText.h"

namespace omnira::fuzz {

// Decoders answer with the value itself or with a result that may hold it.
template <class Decoded, class T>
bool sameValue(const Decoded& again, const T& first) {
  if constexpr (std::is_same_v<Decoded, T>) return again == first;
  else return again && *again == first;
}

// Json is the flavour the loader parses with (ordered or not); traps on any difference.
template <class Json, class T>
void checkRoundTrip(const T& decoded) {
  const auto again = Json::parse(jsonText(decoded.toJSON()), nullptr, /*allow_exceptions=*/false);
  if (again.is_discarded() || !sameValue(T::fromJSON(again), decoded)) __builtin_trap();
}

// The loader's way in: text that is not JSON, or not this kind of file, is simply refused.
template <class Json, class T>
void checkDecodedText(std::string_view text) {
  const auto json = Json::parse(text, nullptr, /*allow_exceptions=*/false);
  if (json.is_discarded()) return;
  if (auto decoded = T::fromJSON(json)) checkRoundTrip<Json>(*decoded);
}

}  // namespace omnira::fuzz
