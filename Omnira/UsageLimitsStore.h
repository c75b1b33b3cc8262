#pragma once
// The application's owner of everything shown about AI plans: the accounts with their limit
// windows, the problems, and the token ledgers of Claude Code and Codex. It decides which
// tools are asked (the "usageLimits…" settings), runs refreshes, and keeps the last figures
// in AppPaths::dataFile("usage-limits.json") so that they show at once after a launch.
//
// Threads: a QObject of the main thread; every member is touched there only. A refresh's
// file and network work (UsageRefresh::run) runs on a worker std::thread of its own, with
// copies of what it needs; only its outcome comes back, through a queued call, and is
// applied here. One refresh at a time; the destructor waits for a running one.
//
// Failures: a cache that cannot be read or decoded is logged and the store starts empty; a
// cache that cannot be written is logged and written again after the next refresh. Failures
// of single tools are UsageProblems, never errors of the store.

#include <QObject>
#include <QTimer>

#include <functional>
#include <memory>
#include <optional>
#include <thread>
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
#include "OmniraCore/usage/UsageRefresh.h"
#include "OmniraCore/usage/UsageTool.h"
#include "OmniraCore/usage/UsageWindow.h"

namespace omnira {

using UsageAccounts = std::vector<UsageAccount>;
using UsageProblems = std::vector<UsageProblem>;
using TokenLedgers = UsageLimitsCache::Ledgers;
using OptionalDate = std::optional<Date>;

class UsageLimitsStore : public QObject {
  Q_OBJECT
  Q_PROPERTY(omnira::UsageAccounts accounts READ accounts NOTIFY accountsChanged)
  Q_PROPERTY(omnira::UsageProblems problems READ problems NOTIFY problemsChanged)
  Q_PROPERTY(omnira::TokenLedgers ledgers READ ledgers NOTIFY ledgersChanged)
  Q_PROPERTY(omnira::OptionalDate refreshedAt READ refreshedAt NOTIFY refreshedAtChanged)
  Q_PROPERTY(bool isRefreshing READ isRefreshing NOTIFY isRefreshingChanged)

 public:
  // No refresh starts sooner than this after the last one finished.
  static constexpr double minimumInterval = 60;
  // How often start() looks whether a refresh is due.
  static constexpr int periodMilliseconds = 5 * 60 * 1000;

  struct Options {
    AppPaths paths;
    Settings settings;
    // Where the coding tools' homes are looked up (HOME, CLAUDE_CONFIG_DIR, CODEX_HOME, …);
    // the process's environment when empty.
    AppPaths::Environment environment;
    // Asks the providers; one with a CurlTransport when empty. Used by one refresh at a time.
    std::shared_ptr<UsageFetcher> fetcher;
    // The system clock when empty. Called on the main thread, and on a refresh's worker
    // thread to date the refresh when it ends.
    std::function<Date()> clock;
    DayCalendar calendar = DayCalendar::local();
  };

  // Reads the cache; its figures show until the first refresh finishes.
  explicit UsageLimitsStore(Options options, QObject* parent = nullptr);
  ~UsageLimitsStore() override;

  // refreshIfStale() now and then every periodMilliseconds.
  void start();

  const UsageAccounts& accounts() const { return state_.accounts; }
  const UsageProblems& problems() const { return state_.problems; }
  const TokenLedgers& ledgers() const { return state_.ledgers; }
  const OptionalDate& refreshedAt() const { return state_.refreshedAt; }
  bool isRefreshing() const { return isRefreshing_; }
  const std::filesystem::path& cacheFile() const { return cacheFile_; }
  bool enabled() const { return UsageRefresh::enabled(settings_); }

  // The tools turned on, in UsageTool order; none while the feature is off.
  const std::vector<UsageTool>& tools() const { return tools_; }
  // The turned-on tools that have an account or a problem to show.
  std::vector<UsageTool> toolsShown() const;

  // Starts refresh() unless one runs or the last one finished less than a minute ago.
  // Returns whether it started one.
  bool refreshIfStale();
  // Starts a refresh now; while one runs, another follows it. Nothing while the feature is off.
  void refresh();

  // Today, the last seven days, by model and per day; nothing without a ledger or with an
  // empty one.
  std::optional<TokenSummary> tokens(UsageTool tool, Date now) const;
  // The window that stands for the account (the menu bar's caption).
  std::optional<UsageWindow> lead(const UsageAccount& account) const { return account.lead(); }

  // Settings changed: a tool turned off leaves `tools` at once and is no longer asked; a tool
  // turned on is asked by a refresh that starts now.
  void applySettings(const Settings& settings);

 signals:
  void accountsChanged();
  void problemsChanged();
  void ledgersChanged();
  void refreshedAtChanged();
  void isRefreshingChanged();
  void toolsChanged();
  // A refresh's outcome was applied (and the cache written).
  void refreshed();

 private:
  void apply(UsageRefresh::Outcome outcome);
  void setRefreshing(bool refreshing);
  Date now() const;

  Options options_;
  Settings settings_;
  std::filesystem::path cacheFile_;
  std::vector<UsageTool> tools_;

  UsageLimitsCache state_;  // what is shown, and what the cache file holds
  bool isRefreshing_ = false;
  bool again_ = false;  // refresh() was asked for while one ran

  std::thread worker_;
  QTimer timer_;
};

}  // namespace omnira
