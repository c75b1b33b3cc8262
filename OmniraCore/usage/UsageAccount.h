#pragma once
// One signed-in account of one tool, with its limit windows, as a fetcher read it.
// A plain value (equatable, hashable). JSON keys "id", "tool", "label", "plan", "windows",
// "fetchedAt", "source"; "plan" is written only when present.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/usage/UsageDecodeFailure.h"
#include "OmniraCore/usage/UsageTool.h"
#include "OmniraCore/usage/UsageWindow.h"

namespace omnira {

struct UsageAccount {
  // Where the figures came from: the provider's usage endpoint, or the tool's own files
  // on this computer (the limits a coding tool writes into its logs).
  enum class Source { vendor, toolFiles };

  std::string id;     // unique per account
  UsageTool tool = UsageTool::claude;
  std::string label;  // the e-mail or organization shown for the account
  std::optional<std::string> plan;
  std::vector<UsageWindow> windows;
  Date fetchedAt{};
  Source source = Source::vendor;

  // The window that stands for the account: the first of the highest `leadRank`, a fuller
  // one winning a tie of rank; nothing without windows.
  std::optional<UsageWindow> lead() const;

  nlohmann::json toJSON() const;
  static Result<UsageAccount, UsageDecodeFailure> fromJSON(const nlohmann::json& json);

  friend bool operator==(const UsageAccount&, const UsageAccount&) = default;
};

std::string_view rawValue(UsageAccount::Source source);  // "vendor", "toolFiles"
std::optional<UsageAccount::Source> usageAccountSourceFromRaw(std::string_view raw);

}  // namespace omnira

template <>
struct std::hash<omnira::UsageAccount> {
  size_t operator()(const omnira::UsageAccount& account) const noexcept;
};
