#pragma once
// What one log file has given so far: how far it was read, its tokens per day and model,
// and what is needed to read on from there without counting anything twice.
// A plain value, owned by a TokenLedger (or SessionLedger) and changed only by TokenLogs.
//
// JSON keys "size", "offset", "days", "counted", "copies", "lastTotal", "model" ("copies"
// only when there are any, "model" only when present):
//   {"size": 5120, "offset": 4990,
//    "days": {"2026-11-21": {"claude-sonnet-4-5-20250929": {"input": 3, "output": 410, ...}}},
//    "counted": {"msg_01A…:req_01B…": ["2026-11-21", "claude-sonnet-4-5-20250929", 3, 410, 0, 1200]},
//    "copies": {"msg_01C…:req_01D…": ["2026-11-20", "claude-opus-4-1-20250805", 5, 42, 0, 300]},
//    "lastTotal": {"input": 0, ...}, "model": "gpt-5-codex"}
// A "counted" entry is [day, model, input, output, cacheRead, cacheWrite]: the figures
// already booked for that reply and where they were booked. A "copies" entry has the same
// shape: a reply this file repeats while another file has it booked, with the fullest
// figures this file gives for it.
//
// Model names and reply keys are UTF-8 (TokenLogs replaces what is not); only the paths
// that key these ledgers keep bytes of any kind.

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include <nlohmann/json.hpp>

#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/usage/TokenUsage.h"
#include "OmniraCore/usage/UsageDecodeFailure.h"

namespace omnira {

struct TokenFileLedger {
  // One reply (message id + request id) as booked so far. Claude Code writes a reply
  // several times while it streams, the early lines with only part of the output; a later,
  // more complete line adds only what it holds beyond `usage`, to the same day and model.
  struct Booked {
    TokenUsage usage;
    std::string day;
    std::string model;
    friend bool operator==(const Booked&, const Booked&) = default;
  };

  struct KeyHash {
    using is_transparent = void;
    size_t operator()(std::string_view key) const noexcept { return std::hash<std::string_view>()(key); }
  };
  using Models = std::map<std::string, TokenUsage, std::less<>>;  // model name → usage
  using Days = std::map<std::string, Models, std::less<>>;        // day key → models
  using Counted = std::unordered_map<std::string, Booked, KeyHash, std::equal_to<>>;

  uint64_t size = 0;    // the file's size at the last read
  uint64_t offset = 0;  // lines were taken up to here (just after a newline)
  Days days;
  // Replies booked in this file by key: "<message id>:<request id>", or the message id
  // alone where the line has no request id.
  Counted counted;
  // Replies this file repeats that another file has booked. Should that file lose them
  // (rewritten without them, or gone), one of their copies is booked instead.
  Counted copies;
  TokenUsage lastTotal; // Codex: the running totals as last written (input including the cached part)
  std::optional<std::string> model;  // Codex: the model named most recently in the file

  void add(const TokenUsage& usage, std::string_view model, std::string_view day);
  // The sum of all its days and models.
  TokenUsage total() const;

  nlohmann::json toJSON() const;
  static Result<TokenFileLedger, UsageDecodeFailure> fromJSON(const nlohmann::json& json);

  friend bool operator==(const TokenFileLedger&, const TokenFileLedger&) = default;
};

}  // namespace omnira
