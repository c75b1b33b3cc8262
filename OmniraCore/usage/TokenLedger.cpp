#include "OmniraCore/usage/TokenLedger.h"

#include <algorithm>
#include <fmt/format.h>

#include "OmniraCore/usage/UsageText.h"

namespace omnira {

namespace {

TokenLedger::ModelUsage sorted(std::map<std::string, TokenUsage, std::less<>>&& sums) {
  TokenLedger::ModelUsage list(std::make_move_iterator(sums.begin()), std::make_move_iterator(sums.end()));
  std::stable_sort(list.begin(), list.end(),
                   [](const auto& a, const auto& b) { return a.second.total() > b.second.total(); });
  return list;
}

}  // namespace

TokenLedger& TokenLedger::operator=(const TokenLedger& other) {
  if (this != &other) {
    files_ = other.files_;
    index_.clear();
    indexed_ = false;
  }
  return *this;
}

bool TokenLedger::isEmpty() const {
  return std::all_of(files_.begin(), files_.end(), [](const auto& file) { return file.second.days.empty(); });
}

TokenUsage TokenLedger::usageOn(std::string_view day) const {
  TokenUsage sum;
  for (const auto& [path, file] : files_) {
    auto found = file.days.find(day);
    if (found == file.days.end()) continue;
    for (const auto& [model, usage] : found->second) sum += usage;
  }
  return sum;
}

TokenUsage TokenLedger::usage(const std::vector<std::string>& days) const {
  TokenUsage sum;
  for (const auto& day : days) sum += usageOn(day);
  return sum;
}

TokenLedger::ModelUsage TokenLedger::byModel(const std::vector<std::string>& days) const {
  std::map<std::string, TokenUsage, std::less<>> sums;
  for (const auto& [path, file] : files_) {
    for (const auto& day : days) {
      auto found = file.days.find(day);
      if (found == file.days.end()) continue;
      for (const auto& [model, usage] : found->second) sums[model] += usage;
    }
  }
  return sorted(std::move(sums));
}

TokenLedger::ModelUsage TokenLedger::byModel() const {
  std::map<std::string, TokenUsage, std::less<>> sums;
  for (const auto& [path, file] : files_)
    for (const auto& [day, models] : file.days)
      for (const auto& [model, usage] : models) sums[model] += usage;
  return sorted(std::move(sums));
}

size_t TokenLedger::replies() const {
  size_t count = 0;
  for (const auto& [path, file] : files_) count += file.counted.size();
  return count;
}

nlohmann::json TokenLedger::toJSON() const {
  nlohmann::json files = nlohmann::json::object();
  for (const auto& [path, file] : files_) files[usage_text::pathKey(path)] = file.toJSON();
  return {{"files", std::move(files)}};
}

Result<TokenLedger, UsageDecodeFailure> TokenLedger::fromJSON(const nlohmann::json& json) {
  if (!json.is_object()) return fail(UsageDecodeFailure{"a token ledger is not an object"});
  auto files = json.find("files");
  if (files == json.end() || !files->is_object())
    return fail(UsageDecodeFailure{"\"files\" is missing or not an object"});
  TokenLedger ledger;
  for (const auto& [key, fileJSON] : files->items()) {
    auto path = usage_text::pathFromKey(key);
    if (!path) return fail(UsageDecodeFailure{fmt::format("the file key {} is not a path", usage_text::valid(key))});
    auto file = TokenFileLedger::fromJSON(fileJSON);
    if (!file) return fail(UsageDecodeFailure{fmt::format("{}: {}", usage_text::valid(*path), file.error().message)});
    ledger.files_.emplace(std::move(*path), std::move(*file));
  }
  return ledger;
}

}  // namespace omnira
