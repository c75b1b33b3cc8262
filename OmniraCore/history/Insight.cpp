#include "OmniraCore/history/Insight.h"

#include "OmniraCore/history/JSONFields.h"

namespace omnira {

std::string_view rawValue(Insight::Kind kind) {
  switch (kind) {
    case Insight::Kind::sustainedCPU: return "sustainedCPU";
    case Insight::Kind::memoryGrowth: return "memoryGrowth";
    case Insight::Kind::memoryPressure: return "memoryPressure";
    case Insight::Kind::diskBurst: return "diskBurst";
    case Insight::Kind::networkBurst: return "networkBurst";
    case Insight::Kind::idleServers: return "idleServers";
    case Insight::Kind::runningHot: return "runningHot";
    case Insight::Kind::neuralEngineBusy: return "neuralEngineBusy";
    case Insight::Kind::appLimit: return "appLimit";
  }
  return "sustainedCPU";
}

std::optional<Insight::Kind> insightKindFromRaw(std::string_view raw) {
  for (Insight::Kind kind : Insight::allKinds)
    if (rawValue(kind) == raw) return kind;
  return std::nullopt;
}

nlohmann::ordered_json Insight::toJSON() const {
  nlohmann::ordered_json j = nlohmann::ordered_json::object();
  j["id"] = id.string();
  j["date"] = formatISO8601(date);
  j["kind"] = rawValue(kind);
  if (appID) j["appID"] = *appID;
  if (appName) j["appName"] = *appName;
  if (appKind) j["appKind"] = rawValue(*appKind);
  if (bundlePath) j["bundlePath"] = *bundlePath;
  j["title"] = title;
  j["detail"] = detail;
  if (ruleID) j["ruleID"] = ruleID->string();
  if (limitFigure) j["limitFigure"] = rawValue(*limitFigure);
  return j;
}

Result<Insight, Insight::DecodeFailure> Insight::fromJSON(const nlohmann::ordered_json& json) {
  using namespace json_fields;
  if (!json.is_object()) return fail(DecodeFailure{"an insight is not an object"});
  Insight insight;
  std::string error, kind;
  std::optional<std::string> appKind, ruleID, limitFigure;
  if (!readUUID(json, "id", insight.id, error) || !readDate(json, "date", insight.date, error) ||
      !readString(json, "kind", kind, error) || !readOptionalString(json, "appID", insight.appID, error) ||
      !readOptionalString(json, "appName", insight.appName, error) ||
      !readOptionalString(json, "appKind", appKind, error) ||
      !readOptionalString(json, "bundlePath", insight.bundlePath, error) ||
      !readString(json, "title", insight.title, error) || !readString(json, "detail", insight.detail, error) ||
      !readOptionalString(json, "ruleID", ruleID, error) ||
      !readOptionalString(json, "limitFigure", limitFigure, error))
    return fail(DecodeFailure{error});
  auto parsedKind = insightKindFromRaw(kind);
  if (!parsedKind) return fail(DecodeFailure{"\"kind\" is not a known insight kind"});
  insight.kind = *parsedKind;
  if (appKind) {
    insight.appKind = groupKindFromRaw(*appKind);
    if (!insight.appKind) return fail(DecodeFailure{"\"appKind\" is not a known group kind"});
  }
  if (ruleID) {
    insight.ruleID = UUID::parse(*ruleID);
    if (!insight.ruleID) return fail(DecodeFailure{"\"ruleID\" is not a UUID"});
  }
  if (limitFigure) {
    insight.limitFigure = appLimitFigureFromRaw(*limitFigure);
    if (!insight.limitFigure) return fail(DecodeFailure{"\"limitFigure\" is not memory or cpu"});
  }
  return insight;
}

}  // namespace omnira
