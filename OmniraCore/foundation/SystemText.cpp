#include "OmniraCore/foundation/SystemText.h"

#include <iterator>

#include <utf8.h>

namespace omnira {

bool isUTF8(std::string_view bytes) { return utf8::is_valid(bytes.begin(), bytes.end()); }

std::string shownText(std::string_view bytes) {
  if (isUTF8(bytes)) return std::string(bytes);
  std::string shown;
  shown.reserve(bytes.size() + 8);
  utf8::replace_invalid(bytes.begin(), bytes.end(), std::back_inserter(shown));
  return shown;
}

}  // namespace omnira
