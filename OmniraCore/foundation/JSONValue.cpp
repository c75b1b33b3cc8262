#include "OmniraCore/foundation/JSONValue.h"

#include <cmath>
#include <nlohmann/json.hpp>

#include "OmniraCore/foundation/JSONText.h"

namespace omnira {

std::optional<std::string> JSONValue::string() const {
  if (auto* s = std::get_if<std::string>(&storage_)) return *s;
  return std::nullopt;
}

std::optional<bool> JSONValue::boolean() const {
  if (auto* b = std::get_if<bool>(&storage_)) return *b;
  return std::nullopt;
}

std::optional<double> JSONValue::number() const {
  if (auto* d = std::get_if<double>(&storage_)) return *d;
  return std::nullopt;
}

std::optional<int64_t> JSONValue::integer() const {
  auto* d = std::get_if<double>(&storage_);
  if (!d || !std::isfinite(*d) || std::trunc(*d) != *d) return std::nullopt;
  // 2^63 is exactly representable; anything at or beyond it does not fit.
  if (*d >= 9223372036854775808.0 || *d < -9223372036854775808.0) return std::nullopt;
  return static_cast<int64_t>(*d);
}

const JSONValue::Array* JSONValue::array() const { return std::get_if<Array>(&storage_); }
const JSONValue::Object* JSONValue::object() const { return std::get_if<Object>(&storage_); }

const JSONValue* JSONValue::find(std::string_view key) const {
  auto* members = object();
  if (!members) return nullptr;
  auto it = members->find(key);
  return it == members->end() ? nullptr : &it->second;
}

nlohmann::json JSONValue::toJSON() const {
  struct Visitor {
    nlohmann::json operator()(std::monostate) const { return nullptr; }
    nlohmann::json operator()(bool b) const { return b; }
    nlohmann::json operator()(double d) const {
      // Whole numbers print without ".0"; non-finite numbers have no JSON form.
      if (!std::isfinite(d)) return nullptr;
      if (std::trunc(d) == d && std::fabs(d) < 9007199254740992.0) return static_cast<int64_t>(d);
      return d;
    }
    nlohmann::json operator()(const std::string& s) const { return s; }
    nlohmann::json operator()(const Array& a) const {
      auto out = nlohmann::json::array();
      for (const auto& item : a) out.push_back(item.toJSON());
      return out;
    }
    nlohmann::json operator()(const Object& o) const {
      auto out = nlohmann::json::object();
      for (const auto& [key, value] : o) out[key] = value.toJSON();
      return out;
    }
  };
  return std::visit(Visitor{}, storage_);
}

JSONValue JSONValue::fromJSON(const nlohmann::json& json) {
  switch (json.type()) {
    case nlohmann::json::value_t::null:
    case nlohmann::json::value_t::discarded:
      return JSONValue();
    case nlohmann::json::value_t::boolean:
      return JSONValue(json.get<bool>());
    case nlohmann::json::value_t::number_integer:
      return JSONValue(static_cast<double>(json.get<int64_t>()));
    case nlohmann::json::value_t::number_unsigned:
      return JSONValue(static_cast<double>(json.get<uint64_t>()));
    case nlohmann::json::value_t::number_float:
      return JSONValue(json.get<double>());
    case nlohmann::json::value_t::string:
      return JSONValue(json.get<std::string>());
    case nlohmann::json::value_t::array: {
      Array items;
      items.reserve(json.size());
      for (const auto& item : json) items.push_back(fromJSON(item));
      return JSONValue(std::move(items));
    }
    case nlohmann::json::value_t::object: {
      Object members;
      for (const auto& [key, value] : json.items()) members.emplace(key, fromJSON(value));
      return JSONValue(std::move(members));
    }
    case nlohmann::json::value_t::binary:
      break;
  }
  return JSONValue();
}

Result<JSONValue, JSONValue::Failure> JSONValue::parse(std::string_view text) {
  // Parse without exceptions; a second pass with them only to get the position for the message.
  auto json = nlohmann::json::parse(text, nullptr, /*allow_exceptions=*/false);
  if (json.is_discarded()) {
    std::string where;
    try {
      const auto unreachable = nlohmann::json::parse(text);
      static_cast<void>(unreachable);
    } catch (const nlohmann::json::parse_error& e) {
      where = positionNote(e.byte);
    } catch (const nlohmann::json::out_of_range&) {
      where = " (a number is too large)";  // "1e999": the library tells no position for it
    }
    return fail(Failure{"The text is not valid JSON" + where + "."});
  }
  return fromJSON(json);
}

std::string JSONValue::positionNote(size_t byte) {
  return byte == 0 ? std::string() : " (at byte " + std::to_string(byte) + ")";
}

std::string JSONValue::encoded() const { return jsonText(toJSON()); }

}  // namespace omnira
