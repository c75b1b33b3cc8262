#include "OmniraCore/usage/TokenFileLedger.h"

#include "OmniraCore/usage/UsageJSON.h"

namespace omnira {

namespace {

nlohmann::json repliesJSON(const TokenFileLedger::Counted& replies) {
  nlohmann::json json = nlohmann::json::object();
  for (const auto& [key, booked] : replies) {
    const TokenUsage& u = booked.usage;
    json[key] = nlohmann::json::array({booked.day, booked.model, u.input, u.output, u.cacheRead, u.cacheWrite});
  }
  return json;
}

std::optional<UsageDecodeFailure> readReplies(const nlohmann::json& json, const char* what,
                                              TokenFileLedger::Counted& replies) {
  replies.reserve(json.size());
  for (const auto& [key, entry] : json.items()) {
    const bool wellFormed = entry.is_array() && entry.size() == 6 && entry[0].is_string() && entry[1].is_string() &&
                            entry[2].is_number_integer() && entry[3].is_number_integer() &&
                            entry[4].is_number_integer() && entry[5].is_number_integer();
    if (!wellFormed) return UsageDecodeFailure{fmt::format("the {} reply {} is not [day, model, four counts]", what, key)};
    replies.emplace(key, TokenFileLedger::Booked{{entry[2].get<int64_t>(), entry[3].get<int64_t>(),
                                                  entry[4].get<int64_t>(), entry[5].get<int64_t>()},
                                                 entry[0].get<std::string>(),
                                                 entry[1].get<std::string>()});
  }
  return std::nullopt;
}

}  // namespace

void TokenFileLedger::add(const TokenUsage& usage, std::string_view modelName, std::string_view day) {
  auto dayIt = days.find(day);
  if (dayIt == days.end()) dayIt = days.emplace(std::string(day), Models{}).first;
  auto modelIt = dayIt->second.find(modelName);
  if (modelIt == dayIt->second.end()) modelIt = dayIt->second.emplace(std::string(modelName), TokenUsage{}).first;
  modelIt->second += usage;
}

TokenUsage TokenFileLedger::total() const {
  TokenUsage sum;
  for (const auto& [day, models] : days)
    for (const auto& [name, usage] : models) sum += usage;
  return sum;
}

nlohmann::json TokenFileLedger::toJSON() const {
  nlohmann::json daysJSON = nlohmann::json::object();
  for (const auto& [day, models] : days) {
    nlohmann::json modelsJSON = nlohmann::json::object();
    for (const auto& [name, usage] : models) modelsJSON[name] = usage.toJSON();
    daysJSON[day] = std::move(modelsJSON);
  }
  nlohmann::json json = {{"size", size},
                         {"offset", offset},
                         {"days", std::move(daysJSON)},
                         {"counted", repliesJSON(counted)},
                         {"lastTotal", lastTotal.toJSON()}};
  if (!copies.empty()) json["copies"] = repliesJSON(copies);
  if (model) json["model"] = *model;
  return json;
}

Result<TokenFileLedger, UsageDecodeFailure> TokenFileLedger::fromJSON(const nlohmann::json& json) {
  using namespace usage_json;
  if (!json.is_object()) return fail(UsageDecodeFailure{"a log file's ledger is not an object"});
  TokenFileLedger ledger;
  for (auto failure : {readUnsigned(json, "size", ledger.size), readUnsigned(json, "offset", ledger.offset),
                       readOptionalString(json, "model", ledger.model)})
    if (failure) return fail(*failure);
  if (ledger.offset > ledger.size) return fail(UsageDecodeFailure{"\"offset\" lies beyond \"size\""});

  auto daysJSON = json.find("days");
  if (daysJSON == json.end() || !daysJSON->is_object()) return fail(wrong("days", "is missing or not an object"));
  for (const auto& [day, modelsJSON] : daysJSON->items()) {
    if (!modelsJSON.is_object()) return fail(UsageDecodeFailure{fmt::format("the day {} is not an object", day)});
    Models& models = ledger.days[day];
    for (const auto& [name, usageJSON] : modelsJSON.items()) {
      auto usage = TokenUsage::fromJSON(usageJSON);
      if (!usage) return fail(UsageDecodeFailure{fmt::format("{} on {}: {}", name, day, usage.error().message)});
      models[name] = *usage;
    }
  }

  auto countedJSON = json.find("counted");
  if (countedJSON == json.end() || !countedJSON->is_object())
    return fail(wrong("counted", "is missing or not an object"));
  if (auto failure = readReplies(*countedJSON, "counted", ledger.counted)) return fail(*failure);
  if (auto copiesJSON = json.find("copies"); copiesJSON != json.end()) {
    if (!copiesJSON->is_object()) return fail(wrong("copies", "is not an object"));
    if (auto failure = readReplies(*copiesJSON, "copied", ledger.copies)) return fail(*failure);
  }

  auto lastTotalJSON = json.find("lastTotal");
  if (lastTotalJSON == json.end()) return fail(wrong("lastTotal", "is missing"));
  auto lastTotal = TokenUsage::fromJSON(*lastTotalJSON);
  if (!lastTotal) return fail(UsageDecodeFailure{"\"lastTotal\": " + lastTotal.error().message});
  ledger.lastTotal = *lastTotal;
  return ledger;
}

}  // namespace omnira
