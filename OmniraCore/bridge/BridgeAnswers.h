#pragma once
// The read-only tools' answers, from the store's readings: what `system_status`,
// `top_apps`, `app_details`, `history`, `find_process`, `projects`, `whats_wrong`, `ports`,
// `containers`, `can_quit` and `agents` reply. Every result is laid out so that an agent
// can act on it without a second call: figures rounded for reading, lists bounded with a
// count of what was left out, the asked-about thing named back.
//
// The reply is the bridge's object: {"ok": true, "result": …} or {"ok": false, "error":
// "<a sentence for the agent>"}. Sharing is the caller's, before and after.
//
// Runs on the thread that owns the readings (the application's main thread); the history
// reads go through the store's own connection.

#include <cstdint>
#include <string_view>

#include <nlohmann/json.hpp>

#include "OmniraCore/bridge/BridgeReadings.h"
#include "OmniraCore/foundation/Date.h"

namespace omnira {

class BridgeAnswers {
 public:
  using json = nlohmann::ordered_json;

  // The messages the tools share.
  static constexpr const char* kNoReading = "Omnira has no reading yet. Try again in a moment.";
  static constexpr const char* kNameMissing = "Give the app's name.";
  static constexpr const char* kPIDMissing = "Give the process's PID.";
  static constexpr const char* kBadPeriod = "Give a period: hour, day, week, month, quarter, half_year or year.";
  static constexpr const char* kHistoryEmpty =
      "Omnira has no readings for this period yet. It records them while it runs.";
  static constexpr const char* kUnknownTarget = "Omnira could not tell what that is.";
  static constexpr const char* kUnknownProcess = "Omnira could not tell which process that is.";
  static constexpr const char* kActionsOff =
      "The person has turned off quitting through Omnira, in Omnira → Settings → Integrations. Tell them what you "
      "would quit and why, and let them do it.";

  // `asker` is the pid at the other end of the bridge connection (0 when unknown).
  static json respond(std::string_view tool, const json& arguments, const BridgeReadings& readings, int32_t asker,
                      Date now);

  static json ok(json result) { return json{{"ok", true}, {"result", std::move(result)}}; }
  static json refused(std::string sentence) { return json{{"ok", false}, {"error", std::move(sentence)}}; }
};

}  // namespace omnira
