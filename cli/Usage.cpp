#include "cli/Usage.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <map>
#include <vector>

#include "OmniraCore/foundation/JSONText.h"
#include "OmniraCore/foundation/Parse.h"
#include "OmniraCore/foundation/SafeText.h"
#include "OmniraCore/foundation/Settings.h"
#include "OmniraCore/usage/CodexLocalLimits.h"
#include "OmniraCore/usage/TokenLogs.h"
#include "OmniraCore/usage/TokenSummary.h"
#include "OmniraCore/usage/UsageFetcher.h"
#include "OmniraCore/usage/UsageLimitsCache.h"
#include "OmniraCore/usage/UsageLogin.h"
#include "OmniraCore/usage/UsageLogins.h"
#include "OmniraCore/usage/UsageRefresh.h"
#include "cli/UsageFormat.h"

namespace omnira::cli {

namespace {

constexpr int kUsageError = 2;
constexpr int kMaxDays = 365;
constexpr size_t kBarWidth = 32;

using Json = nlohmann::ordered_json;

// The application's settings window is where the feature is turned on; without one the
// settings command does the same.
void printDisabled(bool json, std::FILE* out, std::FILE* err) {
  constexpr const char* sentence =
      "Turn on Usage Limits in Integrations.\n"
      "Without a settings window: omnira settings set usageLimitsEnabled true\n";
  if (json) {
    fmt::print(out, "{}\n", jsonText(Json{{"enabled", false}}, 2));
    fmt::print(err, "{}", sentence);
  } else {
    fmt::print(out, "{}", sentence);
  }
}

void printTurnedOff(UsageTool tool, std::FILE* out) {
  fmt::print(out, "{} is turned off in the usage-limits settings. To turn it on: omnira settings set {} true\n",
             displayName(tool), UsageRefresh::settingKey(tool));
}

// The cache a running Omnira keeps; without one (or with one this build cannot use) the
// command starts from nothing and reads every log.
UsageLimitsCache readCache(const AppPaths& paths) {
  auto cache = UsageLimitsCache::load(paths.dataFile(UsageLimitsCache::fileName));
  if (!cache) {
    spdlog::debug("The usage-limits cache is not used: {}", cache.error().message);
    return {};
  }
  return std::move(cache).value();
}

std::string_view logsName(UsageTool tool) { return tool == UsageTool::claude ? "Claude Code" : "Codex"; }

std::vector<std::string> logFolders(const std::vector<UsageTool>& tools, const AppPaths::Environment& environment) {
  std::vector<std::string> folders;
  for (const UsageTool tool : tools) {
    if (tool == UsageTool::claude) {
      for (const auto& home : UsageLogins::claudeHomes(environment)) folders.push_back((home / "projects").string());
    } else if (tool == UsageTool::codex) {
      for (const auto& home : UsageLogins::codexHomes(environment)) {
        folders.push_back((home / "sessions").string());
        folders.push_back((home / "archived_sessions").string());
      }
    }
  }
  return folders;
}

std::string periodName(int days) {
  if (days == 1) return "Today";
  if (days == TokenSummary::weekDays) return "This week";
  return fmt::format("Last {} days", days);
}

Json usageJSON(const TokenUsage& usage) {
  return Json{{"input", usage.input},
              {"output", usage.output},
              {"cacheRead", usage.cacheRead},
              {"cacheWrite", usage.cacheWrite},
              {"total", usage.total()}};
}

// Each day's tokens by model as logged, across the ledger's files.
std::vector<std::map<std::string, TokenUsage>> dayModels(const TokenLedger& ledger,
                                                         const std::vector<std::string>& days) {
  std::vector<std::map<std::string, TokenUsage>> table(days.size());
  for (const auto& [path, file] : ledger.files()) {
    for (size_t i = 0; i < days.size(); ++i) {
      auto found = file.days.find(days[i]);
      if (found == file.days.end()) continue;
      for (const auto& [model, usage] : found->second) table[i][model] += usage;
    }
  }
  return table;
}

struct ToolTokens {
  UsageTool tool;
  TokenSummary summary;
  const TokenLedger* ledger;
};

Json tokensJSON(const std::vector<ToolTokens>& tools, int days, const std::vector<std::string>& keys) {
  Json list = Json::array();
  for (const auto& [tool, summary, ledger] : tools) {
    Json dayList = Json::array();
    const auto table = dayModels(*ledger, summary.days);
    for (size_t i = 0; i < summary.days.size(); ++i) {
      Json models = Json::object();
      for (const auto& [model, usage] : table[i]) {
        Json entry = usageJSON(usage);
        entry.erase("total");
        models[model] = std::move(entry);
      }
      dayList.push_back(Json{{"day", summary.days[i]}, {"total", summary.daily[i]}, {"models", std::move(models)}});
    }
    Json byModel = Json::array();
    for (const auto& [model, usage] : summary.byModel) {
      Json entry{{"model", model}, {"name", TokenLogs::modelName(model)}};
      entry.update(usageJSON(usage));
      byModel.push_back(std::move(entry));
    }
    list.push_back(Json{{"tool", rawValue(tool)},
                        {"name", logsName(tool)},
                        {"today", usageJSON(summary.today)},
                        {"week", usageJSON(summary.week)},
                        {"byModel", std::move(byModel)},
                        {"daily", summary.daily},
                        {"days", std::move(dayList)}});
  }
  return Json{{"enabled", true},
              {"period", {{"days", days}, {"from", keys.front()}, {"to", keys.back()}}},
              {"tools", std::move(list)}};
}

std::string weekdayOf(const std::string& key) {
  static constexpr const char* names[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  if (key.size() != 10) return "";
  const auto y = parseNumber<int>(std::string_view(key).substr(0, 4));
  const auto m = parseNumber<unsigned>(std::string_view(key).substr(5, 2));
  const auto d = parseNumber<unsigned>(std::string_view(key).substr(8, 2));
  if (!y || !m || !d) return "";
  const std::chrono::year_month_day date{std::chrono::year(*y), std::chrono::month(*m), std::chrono::day(*d)};
  if (!date.ok()) return "";
  return names[std::chrono::weekday(std::chrono::sys_days(date)).c_encoding()];
}

void printTokens(const ToolTokens& entry, int days, std::FILE* out) {
  const TokenSummary& summary = entry.summary;
  const std::string period = periodName(days);

  struct Row {
    std::string label;
    TokenUsage usage;
  };
  std::vector<Row> totals;
  if (days > 1) totals.push_back({"Today", summary.today});
  totals.push_back({period, summary.week});
  // Logged names that shorten alike ("claude-sonnet-4-5" and its dated form) are one row.
  std::vector<Row> models;
  for (const auto& [model, usage] : summary.byModel) {
    const std::string name = terminalText(TokenLogs::modelName(model));
    auto same = std::find_if(models.begin(), models.end(), [&](const Row& row) { return row.label == name; });
    if (same == models.end()) {
      models.push_back({name, usage});
    } else {
      same->usage += usage;
    }
  }
  std::stable_sort(models.begin(), models.end(),
                   [](const Row& a, const Row& b) { return a.usage.total() > b.usage.total(); });

  static constexpr const char* headers[] = {"Input", "Output", "Cache read", "Cache write", "Total"};
  size_t labelWidth = 0;
  size_t widths[5];
  for (size_t i = 0; i < 5; ++i) widths[i] = cells(headers[i]);
  const auto measure = [&](const Row& row) {
    labelWidth = std::max(labelWidth, cells(row.label));
    const int64_t values[] = {row.usage.input, row.usage.output, row.usage.cacheRead, row.usage.cacheWrite,
                              row.usage.total()};
    for (size_t i = 0; i < 5; ++i) widths[i] = std::max(widths[i], grouped(values[i]).size());
  };
  for (const auto& row : totals) measure(row);
  for (const auto& row : models) measure(row);

  const auto line = [&](const std::string& label, const std::string* texts) {
    std::string text = "  " + label + std::string(labelWidth - cells(label), ' ');
    for (size_t i = 0; i < 5; ++i) text += fmt::format("  {:>{}}", texts[i], widths[i]);
    fmt::print(out, "{}\n", text);
  };
  const auto row = [&](const Row& r) {
    const std::string texts[] = {grouped(r.usage.input), grouped(r.usage.output), grouped(r.usage.cacheRead),
                                 grouped(r.usage.cacheWrite), grouped(r.usage.total())};
    line(r.label, texts);
  };

  fmt::print(out, "{}\n", logsName(entry.tool));
  const std::string headerTexts[] = {headers[0], headers[1], headers[2], headers[3], headers[4]};
  line("", headerTexts);
  for (const auto& r : totals) row(r);
  if (!models.empty()) {
    fmt::print(out, "\n  {} by model\n", period);
    for (const auto& r : models) row(r);
  }

  fmt::print(out, "\n");
  const int64_t largest = summary.daily.empty() ? 0 : *std::max_element(summary.daily.begin(), summary.daily.end());
  for (size_t i = 0; i < summary.days.size(); ++i) {
    fmt::print(out, "  {} {}  {}  {:>6}\n", weekdayOf(summary.days[i]), summary.days[i],
               bar(summary.daily[i], largest, kBarWidth), compactCount(summary.daily[i]));
  }
}

// Sign-ins and Codex's own limits as they are on this computer now, with what the providers
// last answered (from the cache) for the tools that are still signed in.
struct Limits {
  std::vector<UsageAccount> accounts;
  std::vector<UsageProblem> problems;
};

Limits currentLimits(const std::vector<UsageTool>& tools, const UsageLimitsCache& cache,
                     const AppPaths::Environment& environment, Date now) {
  Limits limits;
  UsageLogin::Found found = UsageLogin::find(tools, environment);
  for (const auto& failure : found.failures) spdlog::warn("{}", failure.message);
  // No transport: the command asks no provider, it only checks the sign-ins.
  UsageFetcher signIns(nullptr);
  auto answer = signIns.fetch(tools, found.logins, now);
  const auto isOn = [&](UsageTool tool) { return std::find(tools.begin(), tools.end(), tool) != tools.end(); };
  std::vector<UsageTool> signedOut;  // what the providers said of these no longer applies
  for (const auto& problem : answer.problems)
    if (problem.kind == UsageProblem::Kind::notSignedIn) signedOut.push_back(problem.tool);
  const auto signInProblem = [&](UsageTool tool) {
    return std::find(signedOut.begin(), signedOut.end(), tool) != signedOut.end();
  };

  for (const auto& account : cache.accounts)
    if (account.source == UsageAccount::Source::vendor && isOn(account.tool) && !signInProblem(account.tool))
      limits.accounts.push_back(account);
  if (isOn(UsageTool::codex))
    if (auto local = CodexLocalLimits::read(environment, now)) limits.accounts.push_back(std::move(*local));
  limits.problems = std::move(answer.problems);
  for (const auto& problem : cache.problems) {
    const bool signIn =
        problem.kind == UsageProblem::Kind::notSignedIn || problem.kind == UsageProblem::Kind::signInRejected;
    if (!signIn && isOn(problem.tool) && !signInProblem(problem.tool)) limits.problems.push_back(problem);
  }
  const auto order = [](UsageTool tool) { return std::find(allUsageTools.begin(), allUsageTools.end(), tool); };
  std::stable_sort(limits.accounts.begin(), limits.accounts.end(),
                   [&](const auto& a, const auto& b) { return order(a.tool) < order(b.tool); });
  std::stable_sort(limits.problems.begin(), limits.problems.end(),
                   [&](const auto& a, const auto& b) { return order(a.tool) < order(b.tool); });
  return limits;
}

Json limitsJSON(const Limits& limits, const UsageLimitsCache& cache, Date now) {
  Json accounts = Json::array();
  for (const auto& account : limits.accounts) {
    Json entry = Json(account.toJSON());
    Json windows = Json::array();
    for (const auto& window : account.windows) {
      Json w = Json(window.toJSON());
      w["id"] = window.id();
      w["left"] = window.left();
      if (auto pace = window.pace(now)) {
        w["pace"] = pace->isOnPace() ? Json{{"onPace", true}, {"spareAtReset", pace->spareAtReset}}
                                     : Json{{"onPace", false}, {"runsOutAt", formatISO8601(pace->runsOutAt)}};
      }
      windows.push_back(std::move(w));
    }
    entry["windows"] = std::move(windows);
    if (auto lead = account.lead()) entry["lead"] = lead->id();
    accounts.push_back(std::move(entry));
  }
  Json problems = Json::array();
  for (const auto& problem : limits.problems) {
    Json entry = Json(problem.toJSON());
    entry["line"] = problem.line();
    problems.push_back(std::move(entry));
  }
  Json json{{"enabled", true}, {"accounts", std::move(accounts)}, {"problems", std::move(problems)}};
  json["refreshedAt"] = cache.refreshedAt ? Json(formatISO8601(*cache.refreshedAt)) : Json(nullptr);
  return json;
}

std::string ago(Date then, Date now) {
  const std::string text = spanText(std::chrono::duration<double>(now - then).count());
  return text.empty() ? "just now" : text + " ago";
}

void printLimits(const Limits& limits, Date now, std::FILE* out) {
  size_t labelWidth = 0, leftWidth = 0, resetWidth = 0;
  for (const auto& account : limits.accounts) {
    for (const auto& window : account.windows) {
      labelWidth = std::max(labelWidth, cells(terminalText(windowLabel(window))));
      leftWidth = std::max(leftWidth, cells(leftText(window)));
      resetWidth = std::max(resetWidth, cells(resetText(window, now)));
    }
  }
  const auto pad = [](const std::string& text, size_t width) {
    return text + std::string(width > cells(text) ? width - cells(text) : 0, ' ');
  };
  for (const auto& account : limits.accounts) {
    std::string heading = fmt::format("{} · {}", displayName(account.tool), terminalText(account.label));
    if (account.plan) heading += " · " + terminalText(*account.plan);
    const std::string source = account.source == UsageAccount::Source::toolFiles
                                   ? fmt::format("from {}'s own logs", displayName(account.tool))
                                   : std::string("as last asked");
    fmt::print(out, "{}  ({}, {})\n", heading, source, ago(account.fetchedAt, now));
    for (const auto& window : account.windows) {
      std::string text = "  " + pad(terminalText(windowLabel(window)), labelWidth) + "  " + pad(leftText(window), leftWidth);
      const std::string reset = resetText(window, now), pace = paceText(window, now);
      if (!reset.empty() || !pace.empty()) text += "  " + pad(reset, resetWidth);
      if (!pace.empty()) text += "  " + pace;
      while (!text.empty() && text.back() == ' ') text.pop_back();
      fmt::print(out, "{}\n", text);
    }
    fmt::print(out, "\n");
  }
  for (const auto& problem : limits.problems) fmt::print(out, "{}\n", terminalText(problem.line()));
}

}  // namespace

int runTokens(const TokensRequest& request, const AppPaths& paths, const AppPaths::Environment& environment, Date now,
              std::FILE* out, std::FILE* err) {
  ::tzset();  // day keys follow TZ
  std::vector<UsageTool> asked;
  if (request.tool.empty()) {
    asked = {UsageTool::claude, UsageTool::codex};
  } else if (auto tool = usageToolFromRaw(request.tool); tool && UsageRefresh::keepsLogs(*tool)) {
    asked = {*tool};
  } else {
    fmt::print(err, "omnira: --tool takes claude or codex, not \"{}\".\n", terminalText(request.tool));
    return kUsageError;
  }
  const auto days = parseNumber<int>(request.days);
  if (!days || *days < 1 || *days > kMaxDays) {
    fmt::print(err, "omnira: --days takes a whole number from 1 to {}, not \"{}\".\n", kMaxDays, terminalText(request.days));
    return kUsageError;
  }

  const Settings settings = Settings::load(paths.settingsFile());
  if (!UsageRefresh::enabled(settings)) {
    printDisabled(request.json, out, err);
    return 0;
  }
  const auto on = UsageRefresh::tools(settings);
  std::vector<UsageTool> tools;
  for (const UsageTool tool : asked) {
    if (std::find(on.begin(), on.end(), tool) != on.end()) {
      tools.push_back(tool);
    } else if (!request.tool.empty()) {
      if (request.json) fmt::print(out, "{}\n", jsonText(tokensJSON({}, *days, TokenLogs::days(*days, now)), 2));
      printTurnedOff(tool, request.json ? err : out);
      return 0;
    }
  }

  UsageLimitsCache cache = readCache(paths);
  UsageRefresh::updateLedgers(cache.ledgers, tools, environment, now, *days);

  std::vector<ToolTokens> shown;
  for (const UsageTool tool : tools) {
    auto ledger = cache.ledgers.find(tool);
    if (ledger == cache.ledgers.end()) continue;
    auto summary = TokenSummary::of(ledger->second, now, *days);
    // A ledger may hold a recently touched file whose tokens are all older than the period.
    if (!summary || summary->week.isZero()) continue;
    shown.push_back({tool, std::move(*summary), &ledger->second});
  }

  const std::vector<std::string> keys = TokenLogs::days(*days, now);
  if (request.json) fmt::print(out, "{}\n", jsonText(tokensJSON(shown, *days, keys), 2));
  if (shown.empty()) {
    std::string names;
    for (const UsageTool tool : tools) names += (names.empty() ? "" : " or ") + std::string(logsName(tool));
    const std::string period = *days == 1 ? "today" : fmt::format("in the last {} days", *days);
    std::string folders;
    for (const auto& folder : logFolders(tools, environment)) folders += (folders.empty() ? "" : ", ") + terminalText(folder);
    const std::string sentence =
        tools.empty() ? "Claude and Codex are turned off in the usage-limits settings; omnira settings list shows them."
                      : fmt::format("No tokens from {} {}: no logs with tokens in {}.", names, period, folders);
    fmt::print(request.json ? err : out, "{}\n", sentence);
    return 0;
  }
  if (request.json) return 0;
  for (size_t i = 0; i < shown.size(); ++i) {
    if (i > 0) fmt::print(out, "\n");
    printTokens(shown[i], *days, out);
  }
  return 0;
}

int runLimits(const LimitsRequest& request, const AppPaths& paths, const AppPaths::Environment& environment, Date now,
              std::FILE* out, std::FILE* err) {
  const Settings settings = Settings::load(paths.settingsFile());
  if (!UsageRefresh::enabled(settings)) {
    printDisabled(request.json, out, err);
    return 0;
  }
  const auto tools = UsageRefresh::tools(settings);
  const UsageLimitsCache cache = readCache(paths);
  const Limits limits = currentLimits(tools, cache, environment, now);

  if (request.json) {
    fmt::print(out, "{}\n", jsonText(limitsJSON(limits, cache, now), 2));
    return 0;
  }
  if (limits.accounts.empty() && limits.problems.empty()) {
    fmt::print(out, "{}\n",
               tools.empty() ? "Every tool is turned off in the usage-limits settings; omnira settings list shows them."
                             : "No plan limits to show for the turned-on tools.");
    return 0;
  }
  printLimits(limits, now, out);
  return 0;
}

}  // namespace omnira::cli
