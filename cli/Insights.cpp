#include "cli/Insights.h"

#include <ctime>

#include <fmt/format.h>

#include "OmniraCore/foundation/SafeText.h"
#include "OmniraCore/foundation/SettingsKeys.h"
#include "OmniraCore/history/Strain.h"

namespace omnira::cli {

namespace {

constexpr const char* insightsFile = "insights.json";
constexpr size_t shortID = 8;  // what a listing shows and a person types

std::string shortened(const UUID& id) { return id.string().substr(0, shortID); }

std::tm localTime(Date date) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(date);
  std::tm tm{};
  localtime_r(&seconds, &tm);
  return tm;
}

// "14:02" today, "2026-11-22 14:02" on another day.
std::string when(Date date, Date now) {
  const std::tm at = localTime(date), today = localTime(now);
  if (at.tm_year == today.tm_year && at.tm_yday == today.tm_yday) return fmt::format("{:02}:{:02}", at.tm_hour, at.tm_min);
  return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}", at.tm_year + 1900, at.tm_mon + 1, at.tm_mday, at.tm_hour,
                     at.tm_min);
}

void list(const WorthALook& saved, bool json, Date now, std::FILE* out) {
  if (json) {
    auto insights = nlohmann::ordered_json::array();
    for (const auto& insight : saved.insights()) {
      auto item = insight.toJSON();
      item["pinned"] = saved.isPinned(insight.id);
      insights.push_back(std::move(item));
    }
    nlohmann::ordered_json all = nlohmann::ordered_json::object();
    all["strain"] = saved.toJSON()["strain"];
    all["insights"] = std::move(insights);
    fmt::print(out, "{}\n", all.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
    return;
  }
  if (const auto strain = WorthALook::strainLine(saved.strain(), now); !strain.empty()) fmt::print(out, "{}\n\n", strain);
  if (saved.insights().empty()) {
    fmt::print(out, "Nothing is worth a look.\n");
    return;
  }
  // Pinned ones first: the person asked to keep them in sight.
  for (const bool pinned : {true, false}) {
    for (const auto& insight : saved.insights()) {
      if (saved.isPinned(insight.id) != pinned) continue;
      fmt::print(out, "{}  {}  {}{}\n{:{}}{}\n", shortened(insight.id), when(insight.date, now),
                 terminalText(insight.title), pinned ? "  (pinned)" : "", "", shortID + 2, terminalText(insight.detail));
    }
  }
}

// The one insight that `text` names, or a sentence why there is none.
Result<UUID, std::string> resolve(const WorthALook& saved, const std::string& text) {
  const auto found = saved.matching(text);
  if (found.size() == 1) return found.front();
  if (found.empty())
    return fail(fmt::format("No insight has an id that begins with \"{}\"; omnira insights lists them.", terminalText(text)));
  return fail(fmt::format("\"{}\" begins the ids of {} insights; give more of the id.", terminalText(text), found.size()));
}

std::string titleOf(const WorthALook& saved, const UUID& id) {
  for (const auto& insight : saved.insights())
    if (insight.id == id) return terminalText(insight.title);
  return {};
}

}  // namespace

int runInsights(const InsightsRequest& request, const AppPaths& paths, Date now, std::FILE* out, std::FILE* err) {
  using Command = InsightsRequest::Command;
  // Arguments first: a missing id is a usage mistake whatever state the file is in.
  const bool named = request.command != Command::dismiss || !request.all;
  if (request.command != Command::list) {
    if (named && request.id.empty()) {
      fmt::print(err, "omnira: name the insight by its id (omnira insights lists them){}.\n",
                 request.command == Command::dismiss ? ", or dismiss them all with --all" : "");
      return 2;
    }
    if (!named && !request.id.empty()) {
      fmt::print(err, "omnira: dismiss either one insight or --all, not both.\n");
      return 2;
    }
  }
  const auto file = paths.dataFile(insightsFile);
  auto saved = WorthALook::load(file);
  if (!saved) {
    fmt::print(err, "omnira: {}{}\n", saved.error().message,
               request.command == Command::list ? "" : " Nothing was changed.");
    return 1;
  }
  if (request.command == Command::list) {
    list(*saved, request.json, now, out);
    return 0;
  }

  std::optional<UUID> id;
  if (named) {
    auto resolved = resolve(*saved, request.id);
    if (!resolved) {
      fmt::print(err, "omnira: {}\n", resolved.error());
      return 2;
    }
    id = *resolved;
  }

  size_t dismissed = 0, stayed = 0;
  auto updated = WorthALook::update(file, [&](WorthALook& list) {
    switch (request.command) {
      case Command::pin: list.pin(*id, true); break;
      case Command::unpin: list.pin(*id, false); break;
      case Command::dismiss:
        if (id) {
          list.dismiss(*id);
        } else {
          const size_t before = list.insights().size();
          list.clear();
          stayed = list.insights().size();
          dismissed = before - stayed;
        }
        break;
      case Command::list: break;
    }
  });
  if (!updated) {
    fmt::print(err, "omnira: {} Nothing was changed.\n", updated.error().message);
    return 1;
  }
  switch (request.command) {
    case Command::pin: fmt::print(out, "Pinned {}: {}\n", shortened(*id), titleOf(*saved, *id)); break;
    case Command::unpin: fmt::print(out, "Unpinned {}: {}\n", shortened(*id), titleOf(*saved, *id)); break;
    case Command::dismiss:
      if (id) {
        fmt::print(out, "Dismissed {}: {}\n", shortened(*id), titleOf(*saved, *id));
      } else {
        fmt::print(out, "Dismissed {} {}.", dismissed, dismissed == 1 ? "insight" : "insights");
        if (stayed > 0)
          fmt::print(out, " {} pinned {} (omnira insights unpin ID).", stayed,
                     stayed == 1 ? "one stays" : "ones stay");
        fmt::print(out, "\n");
      }
      break;
    case Command::list: break;
  }
  return 0;
}

StrainSince sampleStrain(const SystemSample& sample, const AppPaths& paths, const Settings& settings, Date now) {
  const auto kinds = Strain::kinds(sample, std::nullopt, settings.number(SettingsKeys::insightHotCelsius));
  StrainSince strain;
  if (kinds.empty()) return strain;
  // Only what this sample shows: the file may be older than the last run of Omnira.
  const auto saved = WorthALook::load(paths.dataFile(insightsFile));
  for (const StrainKind kind : kinds) {
    strain[kind] = now;
    if (!saved) continue;
    if (auto seen = saved->strain().find(kind); seen != saved->strain().end() && seen->second <= now)
      strain[kind] = seen->second;
  }
  return strain;
}

}  // namespace omnira::cli
