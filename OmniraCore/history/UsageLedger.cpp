#include "OmniraCore/history/UsageLedger.h"

#include "OmniraCore/foundation/AtomicFile.h"
#include "OmniraCore/foundation/JSONText.h"
#include "OmniraCore/foundation/SavedFile.h"

#include <fmt/format.h>

#include <ctime>

namespace omnira {

namespace {

const UsageLedger::Day emptyDay{};

}  // namespace

std::string UsageLedger::dayKey(Date at) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(at);
  std::tm local{};
  localtime_r(&seconds, &local);
  return fmt::format("{:04d}-{:02d}-{:02d}", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday);
}

UsageLedger::Day& UsageLedger::dayFor(Date at) {
  const std::string key = dayKey(at);
  auto [found, inserted] = days_.try_emplace(key);
  if (inserted) {
    // Day keys sort as dates, so the oldest are at the front.
    while (days_.size() > static_cast<size_t>(keptDays)) days_.erase(days_.begin());
  }
  return days_.at(key);
}

void UsageLedger::record(double interval, Date at) {
  if (!(interval > 0)) return;
  dayFor(at).seconds += interval;
}

void UsageLedger::record(const std::vector<AppGroup>& groups, TickGroups freshness, double interval, Date at) {
  if (!(interval > 0) || groups.empty()) return;
  Day& day = dayFor(at);
  for (const auto& group : groups) {
    AppDay& app = day.apps[group.id];
    app.name = group.name;
    app.seconds += interval;
    app.cpuSeconds += group.cpuPercent() / 100.0 * interval;
    // An amount over the process sample's interval: once per sample, not once per tick.
    if (freshness == TickGroups::fresh) app.energyJoules += group.energyJoules();
    app.peakMemoryBytes = std::max(app.peakMemoryBytes, group.memoryBytes());
  }
}

const UsageLedger::Day& UsageLedger::day(const std::string& key) const {
  auto found = days_.find(key);
  return found == days_.end() ? emptyDay : found->second;
}

nlohmann::ordered_json UsageLedger::toJSON() const {
  nlohmann::ordered_json days = nlohmann::ordered_json::object();
  for (const auto& [key, day] : days_) {
    nlohmann::ordered_json apps = nlohmann::ordered_json::object();
    for (const auto& [id, app] : day.apps) {
      apps[id] = {{"name", app.name},
                  {"seconds", app.seconds},
                  {"cpuSeconds", app.cpuSeconds},
                  {"energyJoules", app.energyJoules},
                  {"peakMemoryBytes", app.peakMemoryBytes}};
    }
    days[key] = {{"seconds", day.seconds}, {"apps", std::move(apps)}};
  }
  return {{"version", 1}, {"days", std::move(days)}};
}

Result<UsageLedger, UsageLedger::Failure> UsageLedger::fromJSON(const nlohmann::ordered_json& json,
                                                                std::vector<std::string>* dropped) {
  const auto number = [](const nlohmann::ordered_json& object, const char* key) -> std::optional<double> {
    auto found = object.find(key);
    if (found == object.end() || !found->is_number()) return std::nullopt;
    return found->get<double>();
  };
  const auto drop = [&](std::string why) {
    if (dropped) dropped->push_back(std::move(why));
  };
  if (!json.is_object() || !json.contains("days") || !json["days"].is_object()) {
    return fail(Failure{"the usage ledger has no \"days\" object"});
  }
  UsageLedger ledger;
  for (const auto& [key, dayJSON] : json["days"].items()) {
    // A day or an app that does not decode costs only itself.
    if (!dayJSON.is_object() || !dayJSON.contains("apps") || !dayJSON["apps"].is_object()) {
      drop(fmt::format("the day {} has no \"apps\" object", key));
      continue;
    }
    Day day;
    day.seconds = number(dayJSON, "seconds").value_or(0);
    for (const auto& [id, appJSON] : dayJSON["apps"].items()) {
      auto seconds = appJSON.is_object() ? number(appJSON, "seconds") : std::nullopt;
      auto cpu = appJSON.is_object() ? number(appJSON, "cpuSeconds") : std::nullopt;
      auto energy = appJSON.is_object() ? number(appJSON, "energyJoules") : std::nullopt;
      auto peak = appJSON.is_object() ? appJSON.find("peakMemoryBytes") : appJSON.end();
      auto name = appJSON.is_object() ? appJSON.find("name") : appJSON.end();
      if (!seconds || !cpu || !energy || peak == appJSON.end() || !peak->is_number_unsigned() ||
          name == appJSON.end() || !name->is_string()) {
        drop(fmt::format("the entry for {} on {} is incomplete", id, key));
        continue;
      }
      day.apps[id] = {name->get<std::string>(), *seconds, *cpu, *energy, peak->get<uint64_t>()};
    }
    ledger.days_[key] = std::move(day);
  }
  // A hand-made file may hold more days than are kept; the oldest go, as when recording.
  while (ledger.days_.size() > static_cast<size_t>(keptDays)) ledger.days_.erase(ledger.days_.begin());
  return ledger;
}

Result<UsageLedger, UsageLedger::Failure> UsageLedger::load(const std::filesystem::path& file) {
  auto text = SavedFile::read(file);
  if (!text) return fail(Failure{text.error()});
  if (!*text) return UsageLedger();
  const Date now = std::chrono::system_clock::now();
  auto json = parseOrderedJSONText(**text);
  if (!json) return fail(Failure{SavedFile::discard(file, json.error().message, now)});
  std::vector<std::string> dropped;
  auto ledger = fromJSON(*json, &dropped);
  if (!ledger) return fail(Failure{SavedFile::discard(file, "is not a usage ledger (" + ledger.error().message + ")", now)});
  SavedFile::foundDropping(file, dropped.size(), "usage entries", dropped.empty() ? "" : dropped.front());
  return ledger;
}

Result<void, UsageLedger::Failure> UsageLedger::save(const std::filesystem::path& file) const {
  if (!SavedFile::mayReplace(file, std::chrono::system_clock::now())) return {};
  auto written = AtomicFile::write(file, jsonText(toJSON()));
  if (!written) return fail(Failure{written.error().message});
  return {};
}

}  // namespace omnira
