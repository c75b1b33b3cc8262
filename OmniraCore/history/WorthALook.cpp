#include "OmniraCore/history/WorthALook.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <ctime>

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include "OmniraCore/foundation/AtomicFile.h"
#include "OmniraCore/foundation/FileLock.h"
#include "OmniraCore/foundation/JSONText.h"
#include "OmniraCore/foundation/SavedFile.h"

namespace omnira {

using Json = nlohmann::ordered_json;

bool WorthALook::note(const std::vector<Insight>& fresh) {
  std::vector<Insight> merged;
  for (auto it = fresh.rbegin(); it != fresh.rend(); ++it) {  // the engine lists them oldest first
    // Noting one twice (a save retried after a failure) keeps one copy.
    const bool known = std::any_of(insights_.begin(), insights_.end(), [&](const Insight& i) { return i.id == it->id; });
    if (!known) merged.push_back(*it);
  }
  if (merged.empty()) return false;
  merged.insert(merged.end(), insights_.begin(), insights_.end());
  insights_ = std::move(merged);
  trim();
  return true;
}

bool WorthALook::togglePin(const UUID& id) {
  const bool known = std::any_of(insights_.begin(), insights_.end(), [&](const Insight& i) { return i.id == id; });
  if (!known) return false;
  if (!pinned_.erase(id)) pinned_.insert(id);
  return true;
}

bool WorthALook::pin(const UUID& id, bool pinned) {
  const bool known = std::any_of(insights_.begin(), insights_.end(), [&](const Insight& i) { return i.id == id; });
  if (!known) return false;
  if (pinned) pinned_.insert(id);
  else pinned_.erase(id);
  return true;
}

bool WorthALook::dismiss(const UUID& id) {
  const auto removed = std::erase_if(insights_, [&](const Insight& i) { return i.id == id; });
  pinned_.erase(id);
  return removed > 0;
}

std::vector<UUID> WorthALook::matching(std::string_view text) const {
  auto digits = [](std::string_view id) {
    std::string out;
    for (char c : id)
      if (c != '-') out.push_back(static_cast<char>(std::toupper(static_cast<unsigned char>(c))));
    return out;
  };
  const std::string wanted = digits(text);
  std::vector<UUID> found;
  if (wanted.empty()) return found;
  for (const auto& insight : insights_)
    if (digits(insight.id.string()).starts_with(wanted)) found.push_back(insight.id);
  return found;
}

void WorthALook::clear() {
  std::erase_if(insights_, [&](const Insight& insight) { return !pinned_.contains(insight.id); });
}

void WorthALook::trim() {
  size_t unpinned = 0;
  std::erase_if(insights_, [&](const Insight& insight) {
    if (pinned_.contains(insight.id)) return false;
    return ++unpinned > kept;
  });
  // Pins of insights that are gone mean nothing.
  std::erase_if(pinned_, [&](const UUID& id) {
    return std::none_of(insights_.begin(), insights_.end(), [&](const Insight& i) { return i.id == id; });
  });
}

Json WorthALook::toJSON() const {
  Json list = Json::array();
  for (const auto& insight : insights_) list.push_back(insight.toJSON());
  Json pins = Json::array();
  for (const auto& id : pinned_) pins.push_back(id.string());
  Json strain = Json::object();
  for (const auto& [kind, since] : strain_) strain[std::string(rawValue(kind))] = formatISO8601(since);
  Json j = Json::object();
  j["insights"] = std::move(list);
  j["pinned"] = std::move(pins);
  j["strain"] = std::move(strain);
  return j;
}

WorthALook WorthALook::fromJSON(const Json& json, std::vector<std::string>* skipped) {
  WorthALook list;
  auto note = [&](std::string why) {
    if (skipped) skipped->push_back(std::move(why));
  };
  if (!json.is_object()) {
    note("the saved insights are not an object");
    return list;
  }
  if (auto insights = json.find("insights"); insights != json.end() && insights->is_array()) {
    for (const auto& item : *insights) {
      auto insight = Insight::fromJSON(item);
      if (insight) list.insights_.push_back(std::move(*insight));
      else note(insight.error().message);
    }
  } else {
    note("\"insights\" is missing or not a list");
  }
  if (auto pins = json.find("pinned"); pins != json.end() && pins->is_array()) {
    for (const auto& item : *pins) {
      auto id = item.is_string() ? UUID::parse(item.get<std::string>()) : std::nullopt;
      if (id) list.pinned_.insert(*id);
      else note("a pinned id is not a UUID");
    }
  }
  // Older files have no strain; what a file says about it is only ever shown.
  if (auto strain = json.find("strain"); strain != json.end() && strain->is_object()) {
    for (const auto& [raw, since] : strain->items()) {
      const auto kind = strainKindFromRaw(raw);
      const auto date = since.is_string() ? parseISO8601(since.get<std::string>()) : std::nullopt;
      if (kind && date) list.strain_[*kind] = *date;
      else note(fmt::format("strain \"{}\" is not a part with a date", raw));
    }
  }
  list.trim();
  return list;
}

Result<WorthALook, WorthALook::Failure> WorthALook::load(const std::filesystem::path& file) {
  auto text = SavedFile::read(file);
  if (!text) return fail(Failure{text.error(), true});
  if (!*text) return WorthALook{};
  const Date now = std::chrono::system_clock::now();
  auto json = parseOrderedJSONText(**text);
  if (!json) return fail(Failure{SavedFile::discard(file, json.error().message, now)});
  if (auto insights = json->find("insights"); !json->is_object() || insights == json->end() || !insights->is_array())
    return fail(Failure{SavedFile::discard(file, "does not hold a list of insights", now)});
  std::vector<std::string> skipped;
  auto list = fromJSON(*json, &skipped);
  SavedFile::foundDropping(file, skipped.size(), "entries", skipped.empty() ? "" : skipped.front());
  return list;
}

Result<void, WorthALook::Failure> WorthALook::save(const std::filesystem::path& file) const {
  if (!SavedFile::mayReplace(file, std::chrono::system_clock::now())) return {};
  // Names come from the system as bytes: one that is not UTF-8 is shown with
  // replacement characters rather than cost the whole list.
  auto written = AtomicFile::write(file, jsonText(toJSON()));
  if (!written) return fail(Failure{written.error().message});
  return {};
}

Result<WorthALook, WorthALook::Failure> WorthALook::update(const std::filesystem::path& file,
                                                           const std::function<void(WorthALook&)>& change,
                                                           const WorthALook* fallback) {
  FileLock lock(file);
  if (!lock.failure().empty()) return fail(Failure{lock.failure()});
  auto list = load(file);
  if (!list) {
    if (!fallback) return fail(list.error());
    // An unreadable file is not saved over, and the save says so once; anything else was
    // moved aside and is worth its one line.
    if (!list.error().leftAlone) spdlog::warn("{} Writing the insights afresh.", list.error().message);
    list = *fallback;
  }
  change(*list);
  if (auto saved = list->save(file); !saved) return fail(saved.error());
  return std::move(*list);
}

std::string WorthALook::strainLine(const StrainSince& strain, Date now) {
  if (strain.empty()) return {};
  auto local = [](Date date) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(date);
    std::tm tm{};
    localtime_r(&seconds, &tm);
    return tm;
  };
  const std::tm today = local(now);
  // The longest strain first: it is the one a person has been living with.
  std::vector<std::pair<StrainKind, Date>> byAge(strain.begin(), strain.end());
  std::stable_sort(byAge.begin(), byAge.end(), [](const auto& a, const auto& b) { return a.second < b.second; });
  std::string line = "Strain:";
  for (size_t i = 0; i < byAge.size(); ++i) {
    const std::tm since = local(byAge[i].second);
    const bool sameDay = since.tm_year == today.tm_year && since.tm_yday == today.tm_yday;
    line += fmt::format("{} {} since ", i == 0 ? "" : ",", rawValue(byAge[i].first));
    if (!sameDay) line += fmt::format("{:04}-{:02}-{:02} ", since.tm_year + 1900, since.tm_mon + 1, since.tm_mday);
    line += fmt::format("{:02}:{:02}", since.tm_hour, since.tm_min);
  }
  return line;
}

}  // namespace omnira
