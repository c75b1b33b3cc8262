#pragma once
// The one way this program turns JSON into text. Strings in it may hold bytes that are
// not UTF-8 (names from the system, see SystemText.h); the library's own writer throws
// on those, which once aborted the whole program at its first save. Here they become
// U+FFFD and writing never throws.
//
// Plain functions; safe on any thread.

#include <cstddef>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "OmniraCore/foundation/Result.h"

namespace omnira {

// Compact with indent -1, else pretty with that many spaces.
std::string jsonText(const nlohmann::json& value, int indent = -1);
std::string jsonText(const nlohmann::ordered_json& value, int indent = -1);

// The deepest nesting read from any file. The library parses deep text fine, but copying,
// comparing and writing a value recurse once per level, and a file nested 160,000 levels
// deep overflowed the stack. Nothing Omnira saves goes beyond a handful of levels.
inline constexpr size_t kJSONDepthLimit = 64;

struct JSONTextFailure {
  std::string message;  // a phrase to follow the file's name: "is not valid JSON (at byte 12)"
};

// Whether `text` opens more than `limit` arrays or objects inside each other; one pass
// over the bytes, strings skipped, so it is safe on text that is not JSON at all.
bool nestsDeeperThan(std::string_view text, size_t limit = kJSONDepthLimit);

// Parses without exceptions, refusing text nested deeper than kJSONDepthLimit.
Result<nlohmann::json, JSONTextFailure> parseJSONText(std::string_view text);
// Keys kept in the file's order. Each key is looked up among those before it, so this is
// for files of a few thousand keys, not for anything a person may have grown without bound.
Result<nlohmann::ordered_json, JSONTextFailure> parseOrderedJSONText(std::string_view text);

}  // namespace omnira
