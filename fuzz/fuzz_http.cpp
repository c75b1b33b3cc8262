// The container engines' HTTP replies: the status line and header, and chunked bodies.

#include <cstdint>
#include <string>

#include "OmniraCore/containers/UnixHTTP.h"
#include "fuzz/FuzzInput.h"

using namespace omnira;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto input = fuzz::split(data, size, 2);
  const auto text = input.text;
  if (input.selector == 0) {
    // A body is never larger than the reply it came in.
    if (auto body = UnixHTTP::body(text); body && body->size() > text.size()) __builtin_trap();
  } else {
    if (auto body = UnixHTTP::dechunk(text); body && body->size() > text.size()) __builtin_trap();
  }
  return 0;
}
