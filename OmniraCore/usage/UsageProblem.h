#pragma once
// Why a tool, or one of its accounts, could not be read, and the line shown for it.
// A plain value (equatable, hashable). JSON keys "tool", "kind", "account"; "account" is
// written only when present.

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/usage/UsageDecodeFailure.h"
#include "OmniraCore/usage/UsageTool.h"

namespace omnira {

struct UsageProblem {
  enum class Kind { notSignedIn, signInRejected, throttled, unreachable, unreadable, noPlan };
  static constexpr std::array<Kind, 6> allKinds = {Kind::notSignedIn, Kind::signInRejected, Kind::throttled,
                                                   Kind::unreachable, Kind::unreadable,     Kind::noPlan};

  UsageTool tool = UsageTool::claude;
  Kind kind = Kind::notSignedIn;
  std::optional<std::string> account;  // the account's label when the problem is tied to one

  // The sentence shown for the problem, e.g. "Codex: no sign-in on this computer. Sign in
  // with the codex command."
  std::string line() const;

  nlohmann::json toJSON() const;
  static Result<UsageProblem, UsageDecodeFailure> fromJSON(const nlohmann::json& json);

  friend bool operator==(const UsageProblem&, const UsageProblem&) = default;
};

std::string_view rawValue(UsageProblem::Kind kind);
std::optional<UsageProblem::Kind> usageProblemKindFromRaw(std::string_view raw);

}  // namespace omnira

template <>
struct std::hash<omnira::UsageProblem> {
  size_t operator()(const omnira::UsageProblem& problem) const noexcept;
};
