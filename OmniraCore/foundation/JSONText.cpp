#include "OmniraCore/foundation/JSONText.h"

#include <fmt/format.h>

namespace omnira {

namespace {

template <class Json>
Result<Json, JSONTextFailure> parseBounded(std::string_view text) {
  if (nestsDeeperThan(text))
    return fail(JSONTextFailure{fmt::format("nests deeper than {} levels", kJSONDepthLimit)});
  auto json = Json::parse(text, nullptr, /*allow_exceptions=*/false);
  if (!json.is_discarded()) return json;
  // Only to learn where it stopped: the same text again, with exceptions.
  try {
    const auto unreachable = Json::parse(text);
    static_cast<void>(unreachable);
  } catch (const nlohmann::json::parse_error& error) {
    if (error.byte > 0) return fail(JSONTextFailure{fmt::format("is not valid JSON (at byte {})", error.byte)});
  } catch (const nlohmann::json::out_of_range&) {
    return fail(JSONTextFailure{"is not valid JSON (a number is too large)"});  // "1e999" has no position
  }
  return fail(JSONTextFailure{"is not valid JSON"});
}

}  // namespace

bool nestsDeeperThan(std::string_view text, size_t limit) {
  size_t depth = 0;
  bool inString = false, escaped = false;
  for (const char c : text) {
    if (inString) {
      if (escaped) escaped = false;
      else if (c == '\\') escaped = true;
      else if (c == '"') inString = false;
      continue;
    }
    switch (c) {
      case '"': inString = true; break;
      case '[':
      case '{':
        if (++depth > limit) return true;
        break;
      case ']':
      case '}':
        if (depth > 0) --depth;
        break;
      default: break;
    }
  }
  return false;
}

Result<nlohmann::json, JSONTextFailure> parseJSONText(std::string_view text) {
  return parseBounded<nlohmann::json>(text);
}

Result<nlohmann::ordered_json, JSONTextFailure> parseOrderedJSONText(std::string_view text) {
  return parseBounded<nlohmann::ordered_json>(text);
}

std::string jsonText(const nlohmann::json& value, int indent) {
  return value.dump(indent, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string jsonText(const nlohmann::ordered_json& value, int indent) {
  return value.dump(indent, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace omnira
