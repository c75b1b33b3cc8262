#include "OmniraCore/usage/HTTPTransport.h"

#include <algorithm>
#include <cctype>

namespace omnira {

std::optional<std::string> HTTPTransport::Response::header(std::string_view name) const {
  const auto same = [&](const std::string& candidate) {
    return std::equal(candidate.begin(), candidate.end(), name.begin(), name.end(), [](char a, char b) {
      return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
    });
  };
  for (const auto& [key, value] : headers) {
    if (same(key)) return value;
  }
  return std::nullopt;
}

}  // namespace omnira
