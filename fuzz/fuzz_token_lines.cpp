// The coding agents' log lines: Claude Code's scanned as bytes for their usage, Codex's
// token events with their running totals and its plan limits, and model names shown.
// Whole texts go through the same reading as appended log bytes, several lines at once.

#include <chrono>
#include <cstdint>
#include <string>

#include <nlohmann/json.hpp>

#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/usage/CodexLocalLimits.h"
#include "OmniraCore/usage/TokenLedger.h"
#include "OmniraCore/usage/TokenLogs.h"
#include "fuzz/FuzzInput.h"
#include "fuzz/RoundTrip.h"

using namespace omnira;

namespace {

// Reads the text as one tool's log, then checks the ledger survives its save.
void readLog(UsageTool tool, std::string_view text) {
  TokenLedger ledger;
  const auto calendar = DayCalendar::fixed(std::chrono::hours(2));
  TokenLogs::readLines(ledger, tool, "/logs/a.jsonl", text, calendar);
  // The same bytes in a second file: replies already booked count once.
  TokenLogs::readLines(ledger, tool, "/logs/b.jsonl", text, calendar);
  fuzz::checkRoundTrip<nlohmann::json>(ledger);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto input = fuzz::split(data, size, 5);
  const auto text = input.text;
  switch (input.selector) {
    case 0: {
      const auto line = TokenLogs::readClaudeLine(text);
      if (!fuzz::within(line.messageID, text) || !fuzz::within(line.requestID, text) || !fuzz::within(line.model, text)) __builtin_trap();
      if (line.hasKey()) fuzz::keep(line.key());
      break;
    }
    case 1: readLog(UsageTool::claude, text); break;
    case 2: readLog(UsageTool::codex, text); break;
    case 3: {
      const Date now = dateFromSecondsSinceEpoch(1'760'000'000);
      if (auto reading = CodexLocalLimits::readLine(text, now - std::chrono::hours(1), now)) {
        for (const auto& window : reading->windows) {
          // A window the reading keeps has not reset yet.
          if (window.resetsAt() && *window.resetsAt() <= now) __builtin_trap();
        }
      }
      break;
    }
    case 4: fuzz::keep(TokenLogs::modelName(text)); break;
  }
  return 0;
}
