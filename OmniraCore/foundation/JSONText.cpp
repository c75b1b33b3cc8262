#include "OmniraCore/foundation/JSONText.h"

namespace omnira {

std::string jsonText(const nlohmann::json& value, int indent) {
  return value.dump(indent, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string jsonText(const nlohmann::ordered_json& value, int indent) {
  return value.dump(indent, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace omnira
