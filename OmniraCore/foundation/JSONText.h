#pragma once
// The one way this program turns JSON into text. Strings in it may hold bytes that are
// not UTF-8 (names from the system, see SystemText.h); the library's own writer throws
// on those, which once aborted the whole program at its first save. Here they become
// U+FFFD and writing never throws.
//
// Plain functions; safe on any thread.

#include <string>

#include <nlohmann/json.hpp>

namespace omnira {

// Compact with indent -1, else pretty with that many spaces.
std::string jsonText(const nlohmann::json& value, int indent = -1);
std::string jsonText(const nlohmann::ordered_json& value, int indent = -1);

}  // namespace omnira
