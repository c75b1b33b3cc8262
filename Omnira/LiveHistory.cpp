#include "Omnira/LiveHistory.h"

#include <algorithm>

#include <fmt/format.h>

#include "OmniraCore/foundation/AtomicFile.h"
#include "OmniraCore/foundation/JSONText.h"
#include "OmniraCore/foundation/SavedFile.h"
#include "OmniraCore/history/JSONFields.h"

namespace omnira {

namespace {

using Json = nlohmann::ordered_json;

bool within(Date date, Date now, double seconds) {
  const double age = std::chrono::duration<double>(now - date).count();
  return age >= 0 && age <= seconds;
}

Json pointJSON(const GroupPoint& point) {
  Json j = Json::object();
  j["date"] = formatISO8601(point.date);
  j["cpu"] = point.cpu;
  j["memory"] = point.memory;
  j["power"] = point.power;
  j["disk"] = point.disk;
  j["network"] = point.network;
  return j;
}

bool readPoint(const Json& json, GroupPoint& point, std::string& error) {
  using namespace json_fields;
  if (!json.is_object()) {
    error = "a chart point is not an object";
    return false;
  }
  double memory = 0;
  if (!readDate(json, "date", point.date, error) || !readNumber(json, "cpu", point.cpu, error) ||
      !readNumber(json, "memory", memory, error) || !readNumber(json, "power", point.power, error) ||
      !readNumber(json, "disk", point.disk, error) || !readNumber(json, "network", point.network, error))
    return false;
  if (memory < 0) {
    error = "\"memory\" is negative";
    return false;
  }
  point.memory = static_cast<uint64_t>(memory);
  return true;
}

}  // namespace

void LiveHistory::trim(Date now, double seconds) {
  std::erase_if(systemHistory, [&](const SystemSample& s) { return !within(s.timestamp, now, seconds); });
  for (auto it = groupHistory.begin(); it != groupHistory.end();) {
    std::erase_if(it->second, [&](const GroupPoint& p) { return !within(p.date, now, seconds); });
    it = it->second.empty() ? groupHistory.erase(it) : std::next(it);
  }
}

Json LiveHistory::toJSON() const {
  Json j = Json::object();
  j["savedAt"] = formatISO8601(savedAt);
  Json system = Json::array();
  for (const auto& sample : systemHistory) system.push_back(sample.toJSON());
  j["systemHistory"] = std::move(system);
  Json groups = Json::object();
  for (const auto& [id, points] : groupHistory) {
    Json list = Json::array();
    for (const auto& point : points) list.push_back(pointJSON(point));
    groups[id] = std::move(list);
  }
  j["groupHistory"] = std::move(groups);
  return j;
}

Result<LiveHistory, LiveHistory::Failure> LiveHistory::fromJSON(const Json& json, size_t* dropped) {
  if (!json.is_object()) return fail(Failure{"the live history is not an object"});
  LiveHistory history;
  std::string error;
  if (!json_fields::readDate(json, "savedAt", history.savedAt, error)) return fail(Failure{error});
  auto system = json.find("systemHistory");
  if (system == json.end() || !system->is_array()) return fail(Failure{"\"systemHistory\" is missing or not a list"});
  auto groups = json.find("groupHistory");
  if (groups == json.end() || !groups->is_object()) return fail(Failure{"\"groupHistory\" is missing or not an object"});
  // Past the shape, a sample or a point that does not decode costs only itself.
  size_t left = 0;
  for (const auto& item : *system) {
    auto sample = SystemSample::fromJSON(item);
    if (sample) history.systemHistory.push_back(std::move(*sample));
    else ++left;
  }
  for (const auto& [id, points] : groups->items()) {
    if (!points.is_array()) {
      ++left;
      continue;
    }
    std::vector<GroupPoint> list;
    for (const auto& item : points) {
      GroupPoint point;
      if (readPoint(item, point, error)) list.push_back(point);
      else ++left;
    }
    if (!list.empty() || points.empty()) history.groupHistory[id] = std::move(list);
  }
  if (dropped) *dropped = left;
  return history;
}

Result<LiveHistory, LiveHistory::Failure> LiveHistory::load(const std::filesystem::path& file) {
  auto text = SavedFile::read(file);
  if (!text) return fail(Failure{text.error()});
  if (!*text) return LiveHistory{};
  const Date now = std::chrono::system_clock::now();
  auto json = parseOrderedJSONText(**text);
  if (!json) return fail(Failure{SavedFile::discard(file, json.error().message, now)});
  size_t dropped = 0;
  auto history = fromJSON(*json, &dropped);
  if (!history) return fail(Failure{SavedFile::discard(file, "is no live history (" + history.error().message + ")", now)});
  SavedFile::foundDropping(file, dropped, "chart points");
  return history;
}

Result<void, LiveHistory::Failure> LiveHistory::save(const std::filesystem::path& file) const {
  if (!SavedFile::mayReplace(file, std::chrono::system_clock::now())) return {};
  auto written = AtomicFile::write(file, jsonText(toJSON()));
  if (!written) return fail(Failure{written.error().message});
  return {};
}

}  // namespace omnira
