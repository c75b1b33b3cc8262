#pragma once
// The work of one usage-limits refresh, without Qt, so that the application's store and the
// command line run the same steps:
//   1. the sign-ins of the turned-on tools (UsageLogin::find; the fetcher asks only with the
//      ones usable now and reports expired ones as signInRejected),
//   2. the providers' answers (UsageFetcher::fetch),
//   3. Codex's own limits from its logs (CodexLocalLimits),
//   4. the token ledgers of Claude Code and Codex, brought up to date from the start of the
//      day `daysBack` days back (TokenLogs::update).
// A `throttled` problem keeps the throttled account's last figures: the provider said
// nothing new, and the old figures are still the best there are.
//
// Failures of single tools become UsageProblems and never stop the others; sign-in files
// that cannot be read are logged (never what they hold).
// Threads: run() blocks on files and the network; call it off the main thread. It touches
// only what it is given, and the fetcher must not be used by anyone else meanwhile.

#include <functional>
#include <optional>
#include <string_view>
#include <vector>

#include "OmniraCore/foundation/AppPaths.h"
#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/foundation/Settings.h"
#include "OmniraCore/usage/DayCalendar.h"
#include "OmniraCore/usage/TokenSummary.h"
#include "OmniraCore/usage/UsageAccount.h"
#include "OmniraCore/usage/UsageFetcher.h"
#include "OmniraCore/usage/UsageLimitsCache.h"
#include "OmniraCore/usage/UsageProblem.h"
#include "OmniraCore/usage/UsageTool.h"

namespace omnira {

struct UsageRefresh {
  struct Request {
    std::vector<UsageTool> tools;                // turned on, in UsageTool order
    std::vector<UsageAccount> lastAccounts;      // what the throttled rule keeps
    UsageLimitsCache::Ledgers ledgers;           // brought up to date and handed back
    Date now{};  // when the refresh starts: the moment the sign-ins and days are judged at
    int daysBack = TokenSummary::weekDays;
    // Dates the outcome when the work is done; the system clock when empty. Called on the
    // refresh's own thread.
    std::function<Date()> clock;
  };

  struct Outcome {
    std::vector<UsageAccount> accounts;
    std::vector<UsageProblem> problems;
    UsageLimitsCache::Ledgers ledgers;
    Date refreshedAt{};  // when the work was done
  };

  static Outcome run(Request request, UsageFetcher& fetcher, const AppPaths::Environment& environment,
                     const DayCalendar& calendar = DayCalendar::local());

  // Brings the ledgers of the listed tools that keep logs (claude, codex) up to date from the
  // start of the day `daysBack` days back; ledgers of other tools are left as they are.
  static void updateLedgers(UsageLimitsCache::Ledgers& ledgers, const std::vector<UsageTool>& tools,
                            const AppPaths::Environment& environment, Date now, int daysBack,
                            const DayCalendar& calendar = DayCalendar::local());

  // The throttled rule on its own: last accounts of a tool (of the named account, when the
  // problem names one) that the new answer lacks are carried over.
  static void keepThrottled(std::vector<UsageAccount>& accounts, const std::vector<UsageProblem>& problems,
                            const std::vector<UsageAccount>& lastAccounts);

  // Whether the feature is on at all ("usageLimitsEnabled").
  static bool enabled(const Settings& settings);
  // The tools turned on in the settings, in UsageTool order; none while the feature is off.
  static std::vector<UsageTool> tools(const Settings& settings);
  // The setting that turns one tool on ("usageLimitsCodex").
  static std::string_view settingKey(UsageTool tool);
  // Tools whose token logs are read.
  static bool keepsLogs(UsageTool tool) { return tool == UsageTool::claude || tool == UsageTool::codex; }

  // This process's environment, for UsageLogins and CodexLocalLimits.
  static AppPaths::Environment processEnvironment();
};

}  // namespace omnira
