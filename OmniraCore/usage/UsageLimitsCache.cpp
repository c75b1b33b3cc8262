#include "OmniraCore/usage/UsageLimitsCache.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include "OmniraCore/foundation/AtomicFile.h"
#include "OmniraCore/foundation/JSONText.h"
#include "OmniraCore/foundation/SavedFile.h"
#include "OmniraCore/usage/UsageJSON.h"

namespace omnira {

namespace {

template <class T>
std::optional<UsageDecodeFailure> readList(const nlohmann::json& json, const char* key, std::vector<T>& out) {
  auto it = json.find(key);
  if (it == json.end() || it->is_null()) return std::nullopt;
  if (!it->is_array()) return usage_json::wrong(key, "is not a list");
  for (size_t i = 0; i < it->size(); ++i) {
    auto item = T::fromJSON((*it)[i]);
    if (!item) return UsageDecodeFailure{fmt::format("\"{}\" item {}: {}", key, i + 1, item.error().message)};
    out.push_back(std::move(*item));
  }
  return std::nullopt;
}

}  // namespace

nlohmann::json UsageLimitsCache::toJSON() const {
  nlohmann::json json = nlohmann::json::object();
  json["accounts"] = nlohmann::json::array();
  for (const auto& account : accounts) json["accounts"].push_back(account.toJSON());
  json["problems"] = nlohmann::json::array();
  for (const auto& problem : problems) json["problems"].push_back(problem.toJSON());
  if (refreshedAt) json["refreshedAt"] = formatISO8601(*refreshedAt);
  json["ledgers"] = nlohmann::json::object();
  for (const auto& [tool, ledger] : ledgers) json["ledgers"][std::string(rawValue(tool))] = ledger.toJSON();
  // What is written was read with the rules of this build, whatever was loaded before.
  json["ledgerVersion"] = currentLedgerVersion;
  return json;
}

Result<UsageLimitsCache, UsageDecodeFailure> UsageLimitsCache::fromJSON(const nlohmann::json& json) {
  using namespace usage_json;
  if (!json.is_object()) return fail(UsageDecodeFailure{"the cache is not a JSON object"});
  UsageLimitsCache cache;
  if (auto failure = readList(json, "accounts", cache.accounts)) return fail(*failure);
  if (auto failure = readList(json, "problems", cache.problems)) return fail(*failure);
  if (auto failure = readOptionalDate(json, "refreshedAt", cache.refreshedAt)) return fail(*failure);

  std::optional<int64_t> version;
  if (auto it = json.find("ledgerVersion"); it != json.end() && !it->is_null()) {
    if (!it->is_number_integer()) return fail(wrong("ledgerVersion", "is not a whole number"));
    version = it->get<int64_t>();
  }
  if (version != currentLedgerVersion) {
    // Ledgers of other rules are not continued: every log is read again from the start.
    cache.droppedLedgers = json.contains("ledgers");
    cache.ledgerVersion = currentLedgerVersion;
    return cache;
  }
  auto ledgers = json.find("ledgers");
  if (ledgers == json.end() || ledgers->is_null()) return cache;
  if (!ledgers->is_object()) return fail(wrong("ledgers", "is not an object"));
  for (const auto& [raw, ledgerJSON] : ledgers->items()) {
    auto tool = usageToolFromRaw(raw);
    if (!tool) return fail(UsageDecodeFailure{fmt::format("\"ledgers\": \"{}\" is not a known tool", raw)});
    auto ledger = TokenLedger::fromJSON(ledgerJSON);
    if (!ledger) return fail(UsageDecodeFailure{fmt::format("\"ledgers\" of {}: {}", raw, ledger.error().message)});
    cache.ledgers.emplace(*tool, std::move(*ledger));
  }
  return cache;
}

Result<UsageLimitsCache, UsageLimitsCache::Failure> UsageLimitsCache::load(const std::filesystem::path& file) {
  auto text = SavedFile::read(file);
  if (!text) return fail(Failure{text.error()});
  if (!*text) return UsageLimitsCache{};
  const Date now = std::chrono::system_clock::now();
  auto json = parseJSONText(**text);
  if (!json) return fail(Failure{SavedFile::discard(file, json.error().message, now)});
  auto cache = fromJSON(*json);
  if (!cache) return fail(Failure{SavedFile::discard(file, "does not decode (" + cache.error().message + ")", now)});
  SavedFile::found(file, SavedFile::Found::whole);
  return std::move(cache).value();
}

UsageLimitsCache UsageLimitsCache::loadOrEmpty(const std::filesystem::path& file) {
  auto cache = load(file);
  if (!cache) {
    spdlog::warn("The usage-limits cache is dropped: {}", cache.error().message);
    return {};
  }
  if (cache->droppedLedgers)
    spdlog::info("The token ledgers in {} were read by another version; every log is read again.", file.string());
  return std::move(cache).value();
}

Result<void, UsageLimitsCache::Failure> UsageLimitsCache::save(const std::filesystem::path& file) const {
  if (!SavedFile::mayReplace(file, std::chrono::system_clock::now())) return {};
  auto written = AtomicFile::write(file, jsonText(toJSON()));
  if (!written) return fail(Failure{written.error().message});
  return {};
}

}  // namespace omnira
