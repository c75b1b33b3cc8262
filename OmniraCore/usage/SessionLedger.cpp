#include "OmniraCore/usage/SessionLedger.h"

#include "OmniraCore/usage/UsageJSON.h"

namespace omnira {

TokenUsage SessionLedger::total() const {
  TokenUsage sum;
  for (const auto& [path, file] : ledger_.files()) sum += file.total();
  return sum;
}

nlohmann::json SessionLedger::toJSON() const {
  nlohmann::json json = ledger_.toJSON();
  json["found"] = found_;
  return json;
}

Result<SessionLedger, UsageDecodeFailure> SessionLedger::fromJSON(const nlohmann::json& json) {
  auto ledger = TokenLedger::fromJSON(json);
  if (!ledger) return fail(ledger.error());
  SessionLedger session;
  if (auto failure = usage_json::readBool(json, "found", session.found_)) return fail(*failure);
  session.ledger_ = std::move(*ledger);
  return session;
}

}  // namespace omnira
