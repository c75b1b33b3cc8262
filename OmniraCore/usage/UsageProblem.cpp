#include "OmniraCore/usage/UsageProblem.h"

#include <fmt/format.h>

#include <functional>

#include "OmniraCore/usage/UsageJSON.h"

namespace omnira {

std::string UsageProblem::line() const {
  const std::string_view name = displayName(tool);
  switch (kind) {
    case Kind::notSignedIn:
      if (tool == UsageTool::claude)
        return "No Claude Code sign-in on this computer. For Claude Code inside the Claude app, turn on "
               "Claude App Sign-In in Settings → Integrations.";
      return fmt::format("{}: no sign-in on this computer. {}", name, signInHint(tool));
    case Kind::signInRejected: return fmt::format("{}: the sign-in has expired. Use the tool once and it renews.", name);
    case Kind::throttled: return fmt::format("{} is throttling the question. The last figures are kept.", name);
    case Kind::unreachable: return fmt::format("{}: couldn’t reach {}", name, vendor(tool));
    case Kind::unreadable: return fmt::format("{}’s answer had a shape Omnira doesn’t know yet.", name);
    case Kind::noPlan: return fmt::format("{}: no plan with limits on this account.", name);
  }
  return std::string(name);
}

nlohmann::json UsageProblem::toJSON() const {
  nlohmann::json json = {{"tool", rawValue(tool)}, {"kind", rawValue(kind)}};
  if (account) json["account"] = *account;
  return json;
}

Result<UsageProblem, UsageDecodeFailure> UsageProblem::fromJSON(const nlohmann::json& json) {
  using namespace usage_json;
  if (!json.is_object()) return fail(UsageDecodeFailure{"a usage problem is not an object"});
  UsageProblem problem;
  std::string kindText;
  for (auto failure : {readString(json, "kind", kindText), readOptionalString(json, "account", problem.account)})
    if (failure) return fail(*failure);
  if (!json.contains("tool")) return fail(wrong("tool", "is missing"));
  auto tool = usageToolFromJSON(json["tool"]);
  if (!tool) return fail(tool.error());
  problem.tool = *tool;
  auto kind = usageProblemKindFromRaw(kindText);
  if (!kind) return fail(UsageDecodeFailure{"\"kind\" is not a known problem kind: " + kindText});
  problem.kind = *kind;
  return problem;
}

std::string_view rawValue(UsageProblem::Kind kind) {
  using Kind = UsageProblem::Kind;
  switch (kind) {
    case Kind::notSignedIn: return "notSignedIn";
    case Kind::signInRejected: return "signInRejected";
    case Kind::throttled: return "throttled";
    case Kind::unreachable: return "unreachable";
    case Kind::unreadable: return "unreadable";
    case Kind::noPlan: return "noPlan";
  }
  return "notSignedIn";
}

std::optional<UsageProblem::Kind> usageProblemKindFromRaw(std::string_view raw) {
  for (UsageProblem::Kind kind : UsageProblem::allKinds)
    if (rawValue(kind) == raw) return kind;
  return std::nullopt;
}

}  // namespace omnira

size_t std::hash<omnira::UsageProblem>::operator()(const omnira::UsageProblem& problem) const noexcept {
  using omnira::usage_json::mix;
  size_t seed = static_cast<size_t>(problem.tool);
  mix(seed, static_cast<size_t>(problem.kind));
  mix(seed, problem.account ? std::hash<std::string>()(*problem.account) : 0);
  return seed;
}
