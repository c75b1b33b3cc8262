#include "OmniraCore/bridge/ActionRecord.h"

#include <algorithm>

#include "OmniraCore/history/JSONFields.h"

namespace omnira {

namespace {

using Json = nlohmann::ordered_json;

bool textList(const Json& json, const char* key, std::vector<std::string>& out, std::string& error) {
  const auto it = json.find(key);
  if (it == json.end() || it->is_null()) return true;
  if (!it->is_array()) {
    error = std::string("\"") + key + "\" is not a list";
    return false;
  }
  for (const auto& item : *it) {
    if (!item.is_string()) {
      error = std::string("\"") + key + "\" holds something that is not text";
      return false;
    }
    out.push_back(item.get<std::string>());
  }
  return true;
}

}  // namespace

std::string_view rawValue(ActionRecord::Outcome outcome) {
  switch (outcome) {
    case ActionRecord::Outcome::quit: return "quit";
    case ActionRecord::Outcome::declined: return "declined";
    case ActionRecord::Outcome::unanswered: return "unanswered";
    case ActionRecord::Outcome::refused: return "refused";
  }
  return "refused";
}

std::optional<ActionRecord::Outcome> actionOutcomeFromRaw(std::string_view raw) {
  for (auto outcome : {ActionRecord::Outcome::quit, ActionRecord::Outcome::declined, ActionRecord::Outcome::unanswered,
                       ActionRecord::Outcome::refused})
    if (rawValue(outcome) == raw) return outcome;
  return std::nullopt;
}

Json ActionRecord::toJSON() const {
  Json json;
  json["id"] = id.string();
  json["date"] = formatISO8601(date);
  json["asker"] = asker;
  json["target"] = target;
  json["verdict"] = verdict;
  json["outcome"] = rawValue(outcome);
  json["forced"] = forced;
  if (detail) {
    Json d;
    if (detail->reason) d["reason"] = *detail->reason;
    d["alsoStops"] = detail->alsoStops;
    d["ports"] = detail->ports;
    d["connectedFrom"] = detail->connectedFrom;
    if (detail->memoryMB) d["memoryMB"] = *detail->memoryMB;
    d["items"] = detail->items;
    json["detail"] = std::move(d);
  }
  return json;
}

Result<ActionRecord, ActionRecord::DecodeFailure> ActionRecord::fromJSON(const Json& json) {
  using namespace json_fields;
  if (!json.is_object()) return fail(DecodeFailure{"a record is not an object"});
  ActionRecord r;
  std::string error, outcome;
  if (!readUUID(json, "id", r.id, error) || !readDate(json, "date", r.date, error) ||
      !readString(json, "asker", r.asker, error) || !readString(json, "target", r.target, error) ||
      !readString(json, "verdict", r.verdict, error) || !readString(json, "outcome", outcome, error) ||
      !readBool(json, "forced", r.forced, error))
    return fail(DecodeFailure{error});
  const auto parsed = actionOutcomeFromRaw(outcome);
  if (!parsed) return fail(DecodeFailure{"\"outcome\" is not quit, declined, unanswered or refused"});
  r.outcome = *parsed;
  if (const auto it = json.find("detail"); it != json.end() && !it->is_null()) {
    if (!it->is_object()) return fail(DecodeFailure{"\"detail\" is not an object"});
    Detail d;
    if (!readOptionalString(*it, "reason", d.reason, error) || !textList(*it, "alsoStops", d.alsoStops, error) ||
        !textList(*it, "connectedFrom", d.connectedFrom, error) || !textList(*it, "items", d.items, error))
      return fail(DecodeFailure{error});
    if (const auto ports = it->find("ports"); ports != it->end() && ports->is_array())
      for (const auto& p : *ports)
        if (p.is_number_unsigned() && p.get<uint64_t>() <= 65535) d.ports.push_back(p.get<uint16_t>());
    if (const auto mb = it->find("memoryMB"); mb != it->end() && mb->is_number()) d.memoryMB = mb->get<double>();
    r.detail = std::move(d);
  }
  return r;
}

std::vector<ActionRecord> ActionRecord::pruned(std::vector<ActionRecord> records, Date now) {
  std::erase_if(records, [&](const ActionRecord& r) {
    return std::chrono::duration<double>(now - r.date).count() > kept;
  });
  std::stable_sort(records.begin(), records.end(), [](const auto& a, const auto& b) { return a.date < b.date; });
  if (records.size() > most) records.erase(records.begin(), records.end() - static_cast<ptrdiff_t>(most));
  return records;
}

}  // namespace omnira
