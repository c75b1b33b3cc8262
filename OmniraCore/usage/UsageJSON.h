#pragma once
// Checked reads of the usage records' fixed keys: a wrong type is a failure naming the
// key, never an exception out of nlohmann::json. Shared by the usage folder only.

#include <cstdint>
#include <optional>
#include <string>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/usage/UsageDecodeFailure.h"

namespace omnira::usage_json {

using Json = nlohmann::json;

inline UsageDecodeFailure wrong(const char* key, const char* what) {
  return UsageDecodeFailure{fmt::format("\"{}\" {}", key, what)};
}

// Each returns a failure when a required key is missing or any key holds the wrong type;
// an optional key that is missing or null is absent.
inline std::optional<UsageDecodeFailure> readString(const Json& json, const char* key, std::string& out) {
  auto it = json.find(key);
  if (it == json.end() || !it->is_string()) return wrong(key, "is missing or not text");
  out = it->get<std::string>();
  return std::nullopt;
}

inline std::optional<UsageDecodeFailure> readOptionalString(const Json& json, const char* key,
                                                            std::optional<std::string>& out) {
  auto it = json.find(key);
  if (it == json.end() || it->is_null()) return std::nullopt;
  if (!it->is_string()) return wrong(key, "is not text");
  out = it->get<std::string>();
  return std::nullopt;
}

inline std::optional<UsageDecodeFailure> readNumber(const Json& json, const char* key, double& out) {
  auto it = json.find(key);
  if (it == json.end() || !it->is_number()) return wrong(key, "is missing or not a number");
  out = it->get<double>();
  return std::nullopt;
}

inline std::optional<UsageDecodeFailure> readOptionalNumber(const Json& json, const char* key,
                                                            std::optional<double>& out) {
  auto it = json.find(key);
  if (it == json.end() || it->is_null()) return std::nullopt;
  if (!it->is_number()) return wrong(key, "is not a number");
  out = it->get<double>();
  return std::nullopt;
}

inline std::optional<UsageDecodeFailure> readInteger(const Json& json, const char* key, int64_t& out) {
  auto it = json.find(key);
  if (it == json.end() || !it->is_number_integer()) return wrong(key, "is missing or not a whole number");
  out = it->get<int64_t>();
  return std::nullopt;
}

inline std::optional<UsageDecodeFailure> readUnsigned(const Json& json, const char* key, uint64_t& out) {
  auto it = json.find(key);
  if (it == json.end() || !it->is_number_unsigned()) return wrong(key, "is missing or not a byte count");
  out = it->get<uint64_t>();
  return std::nullopt;
}

inline std::optional<UsageDecodeFailure> readBool(const Json& json, const char* key, bool& out) {
  auto it = json.find(key);
  if (it == json.end() || !it->is_boolean()) return wrong(key, "is missing or not true or false");
  out = it->get<bool>();
  return std::nullopt;
}

inline std::optional<UsageDecodeFailure> readDate(const Json& json, const char* key, Date& out) {
  std::string text;
  if (auto failure = readString(json, key, text)) return failure;
  auto date = parseISO8601(text);
  if (!date) return wrong(key, "is not an ISO 8601 date");
  out = *date;
  return std::nullopt;
}

inline std::optional<UsageDecodeFailure> readOptionalDate(const Json& json, const char* key,
                                                          std::optional<Date>& out) {
  std::optional<std::string> text;
  if (auto failure = readOptionalString(json, key, text)) return failure;
  if (!text) return std::nullopt;
  auto date = parseISO8601(*text);
  if (!date) return wrong(key, "is not an ISO 8601 date");
  out = *date;
  return std::nullopt;
}

// Mixes one more value into a hash.
inline void mix(size_t& seed, size_t value) { seed ^= value + 0x9e3779b97f4a7c15ULL + (seed << 6) + (seed >> 2); }

}  // namespace omnira::usage_json
