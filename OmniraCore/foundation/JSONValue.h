#pragma once
// A general JSON value, for answers read loosely and for canonical JSON out.
// A plain value: copy it freely, touch it from any one thread at a time.
// Objects keep their keys sorted, so encoding is canonical (same value, same bytes).

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "OmniraCore/foundation/Result.h"

namespace omnira {

class JSONValue {
 public:
  using Array = std::vector<JSONValue>;
  using Object = std::map<std::string, JSONValue, std::less<>>;

  struct Failure {
    std::string message;  // a sentence for a person: where the text stopped being JSON
  };

  JSONValue() = default;  // null
  JSONValue(std::nullptr_t) {}
  JSONValue(bool value) : storage_(value) {}
  JSONValue(double value) : storage_(value) {}
  // Integer literals become numbers.
  template <class I, std::enable_if_t<std::is_integral_v<I> && !std::is_same_v<I, bool>, int> = 0>
  JSONValue(I value) : storage_(static_cast<double>(value)) {}
  JSONValue(const char* value) : storage_(std::string(value)) {}
  JSONValue(std::string_view value) : storage_(std::string(value)) {}
  JSONValue(std::string value) : storage_(std::move(value)) {}
  JSONValue(Array value) : storage_(std::move(value)) {}
  JSONValue(Object value) : storage_(std::move(value)) {}

  static JSONValue array(std::initializer_list<JSONValue> items) { return JSONValue(Array(items)); }
  static JSONValue object(std::initializer_list<Object::value_type> members) {
    return JSONValue(Object(members));
  }

  bool isNull() const { return std::holds_alternative<std::monostate>(storage_); }

  // Typed accessors: nothing when the value is of another case.
  std::optional<std::string> string() const;
  std::optional<bool> boolean() const;
  std::optional<double> number() const;
  // A number that is a whole value within the range of int64.
  std::optional<int64_t> integer() const;
  const Array* array() const;
  const Object* object() const;

  // Member of an object, or nullptr when this is no object or has no such key.
  const JSONValue* find(std::string_view key) const;

  // Text nested deeper than kJSONDepthLimit (JSONText.h) is refused like text that is not JSON.
  static Result<JSONValue, Failure> parse(std::string_view text);
  // Compact: no spaces, sorted keys, whole numbers without a fraction.
  std::string encoded() const;

  nlohmann::json toJSON() const;
  static JSONValue fromJSON(const nlohmann::json& json);

  friend bool operator==(const JSONValue&, const JSONValue&) = default;

 private:
  std::variant<std::monostate, bool, double, std::string, Array, Object> storage_;
};

}  // namespace omnira
