#pragma once
// What the usage-limits store keeps between launches, in AppPaths::dataFile("usage-limits.json"):
// the last accounts and problems, when they were read, and the token ledgers of Claude Code
// and Codex with the version of the reading that built them.
//
//   {"accounts": [...], "problems": [...], "refreshedAt": "2026-11-21T22:10:05.123Z",
//    "ledgers": {"claude": {"files": {...}}, "codex": {...}}, "ledgerVersion": 1}
//
// A cache whose ledgers come from another version of the reading keeps its accounts and
// problems but loses its ledgers, so every log is read again from the start. A cache that
// does not decode at all (an unknown tool, kind or source, a wrong type) is dropped whole:
// half a cache would show figures that no refresh produced.
//
// A plain value. The running application owns the file and is its only writer; the command
// line only reads it. load() and save() may run on any thread, one writer at a time.

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/usage/TokenLedger.h"
#include "OmniraCore/usage/UsageAccount.h"
#include "OmniraCore/usage/UsageDecodeFailure.h"
#include "OmniraCore/usage/UsageProblem.h"
#include "OmniraCore/usage/UsageTool.h"

namespace omnira {

struct UsageLimitsCache {
  // Raise whenever the reading of logs changes what a ledger holds; older ledgers are then
  // read again from the start instead of being continued with different rules.
  static constexpr int64_t currentLedgerVersion = 2;
  static constexpr const char* fileName = "usage-limits.json";

  using Ledgers = std::map<UsageTool, TokenLedger>;  // only claude and codex keep logs

  struct Failure {
    std::string message;  // names the file and what is wrong with it
  };

  std::vector<UsageAccount> accounts;
  std::vector<UsageProblem> problems;
  std::optional<Date> refreshedAt;
  Ledgers ledgers;
  // The version the ledgers were read with. Always current after fromJSON (ledgers of another
  // version are dropped there); kept so that a reader can tell that happened.
  std::optional<int64_t> ledgerVersion = currentLedgerVersion;
  // fromJSON dropped ledgers of another version (or of none).
  bool droppedLedgers = false;

  nlohmann::json toJSON() const;
  static Result<UsageLimitsCache, UsageDecodeFailure> fromJSON(const nlohmann::json& json);

  // A missing file is an empty cache. A file that cannot be read or does not decode is a
  // failure; the caller logs it and starts empty. One that does not decode has been moved
  // aside by then (the failure says where); one that cannot be read is not saved over.
  static Result<UsageLimitsCache, Failure> load(const std::filesystem::path& file);
  // The same, but any failure is logged and gives an empty cache.
  static UsageLimitsCache loadOrEmpty(const std::filesystem::path& file);
  // Written whole with AtomicFile, so a reader sees the old cache or the new. Skipped, and
  // logged once, while the file could not be read.
  Result<void, Failure> save(const std::filesystem::path& file) const;

  friend bool operator==(const UsageLimitsCache& a, const UsageLimitsCache& b) {
    return a.accounts == b.accounts && a.problems == b.problems && a.refreshedAt == b.refreshedAt &&
           a.ledgers == b.ledgers && a.ledgerVersion == b.ledgerVersion;
  }
};

}  // namespace omnira
