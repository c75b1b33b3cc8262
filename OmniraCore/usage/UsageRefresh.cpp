#include "OmniraCore/usage/UsageRefresh.h"

#include <spdlog/spdlog.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>

#include "OmniraCore/usage/CodexLocalLimits.h"
#include "OmniraCore/usage/TokenLogs.h"
#include "OmniraCore/usage/UsageLogin.h"

namespace omnira {

UsageRefresh::Outcome UsageRefresh::run(Request request, UsageFetcher& fetcher,
                                        const AppPaths::Environment& environment, const DayCalendar& calendar) {
  Outcome outcome;
  const Date now = request.now;

  UsageLogin::Found found = UsageLogin::find(request.tools, environment);
  for (const auto& failure : found.failures) spdlog::warn("{}", failure.message);

  auto answer = fetcher.fetch(request.tools, found.logins, now);
  outcome.accounts = std::move(answer.accounts);
  outcome.problems = std::move(answer.problems);

  const bool codexOn = std::find(request.tools.begin(), request.tools.end(), UsageTool::codex) != request.tools.end();
  if (codexOn) {
    if (auto local = CodexLocalLimits::read(environment, now)) outcome.accounts.push_back(std::move(*local));
  }

  keepThrottled(outcome.accounts, outcome.problems, request.lastAccounts);

  updateLedgers(request.ledgers, request.tools, environment, now, request.daysBack, calendar);
  outcome.ledgers = std::move(request.ledgers);
  // The next refresh is due a minute after this one ended, however long it took.
  outcome.refreshedAt = request.clock ? request.clock() : std::chrono::system_clock::now();
  return outcome;
}

void UsageRefresh::updateLedgers(UsageLimitsCache::Ledgers& ledgers, const std::vector<UsageTool>& tools,
                                 const AppPaths::Environment& environment, Date now, int daysBack,
                                 const DayCalendar& calendar) {
  const Date since = TokenLogs::start(std::max(daysBack, 1), now, calendar);
  for (const UsageTool tool : tools) {
    if (!keepsLogs(tool)) continue;
    const auto update = TokenLogs::update(ledgers[tool], tool, environment, since, calendar);
    spdlog::debug("{} logs: {} files, {} read, {} bytes", rawValue(tool), update.seen.size(), update.filesRead,
                  update.bytesRead);
  }
}

void UsageRefresh::keepThrottled(std::vector<UsageAccount>& accounts, const std::vector<UsageProblem>& problems,
                                 const std::vector<UsageAccount>& lastAccounts) {
  for (const auto& problem : problems) {
    if (problem.kind != UsageProblem::Kind::throttled) continue;
    for (const auto& last : lastAccounts) {
      if (last.tool != problem.tool) continue;
      if (problem.account && last.label != *problem.account) continue;
      const bool answered = std::any_of(accounts.begin(), accounts.end(),
                                        [&](const UsageAccount& account) { return account.id == last.id; });
      if (!answered) accounts.push_back(last);
    }
  }
}

std::string_view UsageRefresh::settingKey(UsageTool tool) {
  switch (tool) {
    case UsageTool::claude: return SettingsKeys::usageLimitsClaude.name;
    case UsageTool::codex: return SettingsKeys::usageLimitsCodex.name;
    case UsageTool::copilot: return SettingsKeys::usageLimitsCopilot.name;
    case UsageTool::cursor: return SettingsKeys::usageLimitsCursor.name;
    case UsageTool::grok: return SettingsKeys::usageLimitsGrok.name;
    case UsageTool::ollama: return SettingsKeys::usageLimitsOllama.name;
    case UsageTool::antigravity: return SettingsKeys::usageLimitsAntigravity.name;
    case UsageTool::opencode: return SettingsKeys::usageLimitsOpenCode.name;
  }
  return SettingsKeys::usageLimitsClaude.name;
}

bool UsageRefresh::enabled(const Settings& settings) { return settings.boolean(SettingsKeys::usageLimitsEnabled); }

std::vector<UsageTool> UsageRefresh::tools(const Settings& settings) {
  std::vector<UsageTool> on;
  if (!enabled(settings)) return on;
  for (const UsageTool tool : allUsageTools)
    if (settings.boolean(SettingKey<bool>{settingKey(tool)})) on.push_back(tool);
  return on;
}

AppPaths::Environment UsageRefresh::processEnvironment() {
  return [](const std::string& name) -> std::optional<std::string> {
    if (const char* value = std::getenv(name.c_str())) return std::string(value);
    return std::nullopt;
  };
}

}  // namespace omnira
