#include "Omnira/WorthALook.h"

#include <algorithm>

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include "OmniraCore/foundation/AtomicFile.h"
#include "OmniraCore/foundation/JSONText.h"

namespace omnira {

using Json = nlohmann::ordered_json;

bool WorthALook::note(const std::vector<Insight>& fresh) {
  if (fresh.empty()) return false;
  std::vector<Insight> merged(fresh.rbegin(), fresh.rend());  // the engine lists them oldest first
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
  Json j = Json::object();
  j["insights"] = std::move(list);
  j["pinned"] = std::move(pins);
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
  list.trim();
  return list;
}

Result<WorthALook, WorthALook::Failure> WorthALook::load(const std::filesystem::path& file) {
  auto text = AtomicFile::read(file);
  if (!text) {
    if (text.error().missing) return WorthALook{};
    return fail(Failure{text.error().message});
  }
  auto json = Json::parse(*text, nullptr, false);
  if (json.is_discarded()) return fail(Failure{fmt::format("{} is not JSON", file.string())});
  std::vector<std::string> skipped;
  auto list = fromJSON(json, &skipped);
  for (const auto& why : skipped) spdlog::warn("{}: skipped: {}", file.string(), why);
  return list;
}

Result<void, WorthALook::Failure> WorthALook::save(const std::filesystem::path& file) const {
  auto written = AtomicFile::write(file, jsonText(toJSON()));
  if (!written) return fail(Failure{written.error().message});
  return {};
}

}  // namespace omnira
