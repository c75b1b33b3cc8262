#include "OmniraCore/history/AppLimit.h"

#include <cmath>

#include "OmniraCore/history/JSONFields.h"

namespace omnira {

std::string_view rawValue(AppLimit::Figure figure) {
  return figure == AppLimit::Figure::memory ? "memory" : "cpu";
}

std::optional<AppLimit::Figure> appLimitFigureFromRaw(std::string_view raw) {
  if (raw == "memory") return AppLimit::Figure::memory;
  if (raw == "cpu") return AppLimit::Figure::cpu;
  return std::nullopt;
}

nlohmann::ordered_json AppLimit::toJSON() const {
  nlohmann::ordered_json j = nlohmann::ordered_json::object();
  j["id"] = id.string();
  j["appID"] = appID;
  j["appName"] = appName;
  if (bundlePath) j["bundlePath"] = *bundlePath;
  j["figure"] = rawValue(figure);
  j["limit"] = limit;
  j["minutes"] = minutes;
  j["isOn"] = isOn;
  return j;
}

Result<AppLimit, AppLimit::DecodeFailure> AppLimit::fromJSON(const nlohmann::ordered_json& json) {
  using namespace json_fields;
  if (!json.is_object()) return fail(DecodeFailure{"an app limit is not an object"});
  AppLimit limit;
  std::string error, figure;
  if (!readUUID(json, "id", limit.id, error) || !readString(json, "appID", limit.appID, error) ||
      !readString(json, "appName", limit.appName, error) ||
      !readOptionalString(json, "bundlePath", limit.bundlePath, error) ||
      !readString(json, "figure", figure, error) || !readNumber(json, "limit", limit.limit, error) ||
      !readNumber(json, "minutes", limit.minutes, error) || !readBool(json, "isOn", limit.isOn, error))
    return fail(DecodeFailure{error});
  auto parsed = appLimitFigureFromRaw(figure);
  if (!parsed) return fail(DecodeFailure{"\"figure\" is not memory or cpu"});
  limit.figure = *parsed;
  if (!std::isfinite(limit.limit) || limit.limit < 0) return fail(DecodeFailure{"\"limit\" is out of range"});
  if (!std::isfinite(limit.minutes) || limit.minutes < 0) return fail(DecodeFailure{"\"minutes\" is out of range"});
  return limit;
}

}  // namespace omnira
