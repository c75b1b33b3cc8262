#pragma once
// The tokens of one agent session, read from that session's own log files by
// TokenLogs::updateSession. A plain value, owned by whoever watches the session and
// updated from one thread at a time. JSON keys "files" and "found".

#include <cstddef>

#include <nlohmann/json.hpp>

#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/usage/TokenLedger.h"
#include "OmniraCore/usage/TokenUsage.h"
#include "OmniraCore/usage/UsageDecodeFailure.h"

namespace omnira {

class SessionLedger {
 public:
  const TokenLedger::Files& files() const { return ledger_.files(); }
  // A log of the session was found.
  bool found() const { return found_; }

  // Per model, over all days and files; the largest total first.
  TokenLedger::ModelUsage byModel() const { return ledger_.byModel(); }
  TokenUsage total() const;
  // The replies counted by key over all files (Claude Code replies; Codex lines carry no key).
  size_t replies() const { return ledger_.replies(); }

  nlohmann::json toJSON() const;
  static Result<SessionLedger, UsageDecodeFailure> fromJSON(const nlohmann::json& json);

  friend bool operator==(const SessionLedger&, const SessionLedger&) = default;

 private:
  friend struct TokenLogs;
  TokenLedger ledger_;
  bool found_ = false;
};

}  // namespace omnira
