#pragma once
// Checked reads of fixed-key JSON records: a wrong type is a message naming the key, never
// an exception out of nlohmann::json.

#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/history/UUID.h"

namespace omnira::json_fields {

using Json = nlohmann::ordered_json;

// Each returns false and fills `error` when the key is missing (for required fields) or
// holds the wrong type; optional fields accept a missing key or null as absent.
inline bool readString(const Json& json, const char* key, std::string& out, std::string& error) {
  auto it = json.find(key);
  if (it == json.end() || !it->is_string()) {
    error = std::string("\"") + key + "\" is missing or not text";
    return false;
  }
  out = it->get<std::string>();
  return true;
}

inline bool readOptionalString(const Json& json, const char* key, std::optional<std::string>& out,
                               std::string& error) {
  auto it = json.find(key);
  if (it == json.end() || it->is_null()) return true;
  if (!it->is_string()) {
    error = std::string("\"") + key + "\" is not text";
    return false;
  }
  out = it->get<std::string>();
  return true;
}

inline bool readNumber(const Json& json, const char* key, double& out, std::string& error) {
  auto it = json.find(key);
  if (it == json.end() || !it->is_number()) {
    error = std::string("\"") + key + "\" is missing or not a number";
    return false;
  }
  out = it->get<double>();
  return true;
}

inline bool readBool(const Json& json, const char* key, bool& out, std::string& error) {
  auto it = json.find(key);
  if (it == json.end() || !it->is_boolean()) {
    error = std::string("\"") + key + "\" is missing or not a boolean";
    return false;
  }
  out = it->get<bool>();
  return true;
}

inline bool readUUID(const Json& json, const char* key, UUID& out, std::string& error) {
  std::string text;
  if (!readString(json, key, text, error)) return false;
  auto id = UUID::parse(text);
  if (!id) {
    error = std::string("\"") + key + "\" is not a UUID";
    return false;
  }
  out = *id;
  return true;
}

inline bool readDate(const Json& json, const char* key, Date& out, std::string& error) {
  std::string text;
  if (!readString(json, key, text, error)) return false;
  auto date = parseISO8601(text);
  if (!date) {
    error = std::string("\"") + key + "\" is not an ISO 8601 date";
    return false;
  }
  out = *date;
  return true;
}

}  // namespace omnira::json_fields
