#pragma once
// The plan limits that Codex itself writes into its session logs ("rate_limits" on its
// token-count lines), read without asking anyone.
//
// The newest reading wins: session logs are taken newest first (by modification time, only
// those touched within the last eight days, since an older reading has reset anyway) and
// each is read from its end backwards, so a refresh usually reads a few kilobytes of one
// file. A window is told by its length, not its slot: 300 minutes is the `session` window,
// 10080 the `week`; another length becomes the nearest of session, week and month on a log
// scale (a day is nearer five hours than a week). A reading without a length falls back on
// the slot ("primary" is the session, "secondary" the week). A window whose reset has passed
// is left out; with no window left there is nothing to show.
//
// The account is "codex-local" (one per computer, whatever the sign-in), labelled with the
// e-mail of the Codex sign-in in the same home, else "Codex on this computer"; its
// `fetchedAt` is when Codex wrote the line.
//
// Unreadable files and lines are passed over without a report. Stateless; call from any thread.

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OmniraCore/foundation/AppPaths.h"
#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/usage/UsageAccount.h"
#include "OmniraCore/usage/UsageWindow.h"

namespace omnira {

class CodexLocalLimits {
 public:
  static constexpr const char* accountId = "codex-local";
  static constexpr const char* fallbackLabel = "Codex on this computer";

  // One log line's reading: the windows still current at `now`, the plan, and when it was
  // written (the line's timestamp, else `fileModified`). Nothing for a line without a
  // "rate_limits" object.
  struct Reading {
    std::vector<UsageWindow> windows;
    std::optional<std::string> plan;
    Date written;
  };
  static std::optional<Reading> readLine(std::string_view line, Date fileModified, Date now);

  // Reads the "sessions" folders of the Codex homes that UsageLogins finds.
  static std::optional<UsageAccount> read(const AppPaths::Environment& environment, Date now);
  // The same for given Codex homes (each holding "sessions" and "auth.json").
  static std::optional<UsageAccount> read(const std::vector<std::filesystem::path>& codexHomes, Date now);
};

}  // namespace omnira
