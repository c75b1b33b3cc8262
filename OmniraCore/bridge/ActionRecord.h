#pragma once
// One quit request an agent made, as the action log keeps it: who asked, for what, the
// verdict, what came of it and why. Stored as JSON with fixed keys. A plain value.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/history/UUID.h"

namespace omnira {

struct ActionRecord {
  enum class Outcome { quit, declined, unanswered, refused };

  struct Detail {
    std::optional<std::string> reason;
    std::vector<std::string> alsoStops;
    std::vector<uint16_t> ports;
    std::vector<std::string> connectedFrom;
    std::optional<double> memoryMB;
    std::vector<std::string> items;  // a request over several processes: one line each
    friend bool operator==(const Detail&, const Detail&) = default;
  };

  // Retention, applied each time the log is saved.
  static constexpr double kept = 2'592'000;  // seconds: 30 days
  static constexpr size_t most = 500;

  UUID id;
  Date date{};
  std::string asker;
  std::string target;
  std::string verdict;  // "safe", "ask_first" or "do_not"
  Outcome outcome = Outcome::refused;
  bool forced = false;
  std::optional<Detail> detail;

  struct DecodeFailure {
    std::string message;
  };
  nlohmann::ordered_json toJSON() const;
  static Result<ActionRecord, DecodeFailure> fromJSON(const nlohmann::ordered_json& json);

  // The records within 30 days of `now`, the newest 500 at most, oldest first.
  static std::vector<ActionRecord> pruned(std::vector<ActionRecord> records, Date now);

  friend bool operator==(const ActionRecord&, const ActionRecord&) = default;
};

std::string_view rawValue(ActionRecord::Outcome outcome);
std::optional<ActionRecord::Outcome> actionOutcomeFromRaw(std::string_view raw);

}  // namespace omnira
