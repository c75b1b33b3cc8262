#pragma once
// The tokens of one tool (Claude Code or Codex) per log file, day and model, as read by
// TokenLogs::update. A plain value: the usage-limits store owns one per tool, hands it to
// one worker thread at a time for `update`, and keeps it in its cache as JSON {"files": …}.
// The files are keyed by their paths as bytes; a path that is not UTF-8 is saved under the
// key usage_text::pathKey gives it, so that it comes back the same.
//
// Beside the files the ledger keeps an index of the replies counted in any of them, so
// that a reply Claude Code copies into another file (it repeats earlier replies when a
// session is resumed) counts once. The index is not written out: it is rebuilt from the
// files' "counted" entries when a read first needs it, after decoding or copying (a moved
// ledger keeps it).

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/usage/TokenFileLedger.h"
#include "OmniraCore/usage/TokenUsage.h"
#include "OmniraCore/usage/UsageDecodeFailure.h"

namespace omnira {

class TokenLedger {
 public:
  // Log file path → its ledger; hashed, since every refresh looks up each file once.
  using Files = std::unordered_map<std::string, TokenFileLedger, TokenFileLedger::KeyHash, std::equal_to<>>;
  using ModelUsage = std::vector<std::pair<std::string, TokenUsage>>;
  // Reply key → the file ledger that booked it; the keys view that ledger's `counted`.
  using Index = std::unordered_map<std::string_view, TokenFileLedger*, TokenFileLedger::KeyHash, std::equal_to<>>;

  TokenLedger() = default;
  TokenLedger(const TokenLedger& other) : files_(other.files_) {}
  TokenLedger& operator=(const TokenLedger& other);
  TokenLedger(TokenLedger&&) noexcept = default;
  TokenLedger& operator=(TokenLedger&&) noexcept = default;

  const Files& files() const { return files_; }

  // No file holds any day.
  bool isEmpty() const;
  // All files and models on one day key ("2026-11-21").
  TokenUsage usageOn(std::string_view day) const;
  // All files and models over the listed day keys.
  TokenUsage usage(const std::vector<std::string>& days) const;
  // Per model name as logged ("claude-sonnet-4-5-20250929"; TokenLogs::modelName shortens it
  // for display), over the listed days across all files; the largest total first, a tie by name.
  ModelUsage byModel(const std::vector<std::string>& days) const;
  // The same over every day held.
  ModelUsage byModel() const;
  // Replies counted by key over all files.
  size_t replies() const;

  nlohmann::json toJSON() const;
  static Result<TokenLedger, UsageDecodeFailure> fromJSON(const nlohmann::json& json);

  friend bool operator==(const TokenLedger& a, const TokenLedger& b) { return a.files_ == b.files_; }

 private:
  friend struct TokenLogs;
  Files files_;
  Index index_;
  bool indexed_ = false;
};

}  // namespace omnira
