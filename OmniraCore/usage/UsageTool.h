#pragma once
// The AI coding tools whose plans Omnira shows. The raw value is also the persisted and
// wire form; `allUsageTools` is the order wherever tools are listed.

#include <array>
#include <optional>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/usage/UsageDecodeFailure.h"

namespace omnira {

enum class UsageTool { claude, codex, copilot, cursor, grok, ollama, antigravity, opencode };

inline constexpr std::array<UsageTool, 8> allUsageTools = {
    UsageTool::claude, UsageTool::codex,  UsageTool::copilot,     UsageTool::cursor,
    UsageTool::grok,   UsageTool::ollama, UsageTool::antigravity, UsageTool::opencode};

std::string_view rawValue(UsageTool tool);                          // "claude"
std::optional<UsageTool> usageToolFromRaw(std::string_view raw);    // nothing for an unknown value
std::string_view displayName(UsageTool tool);                       // "GitHub Copilot"
std::string_view vendor(UsageTool tool);                            // "Anthropic"
// Shown after "no sign-in on this computer.": "Sign in with the codex command."
std::string_view signInHint(UsageTool tool);

// JSON: the raw value as a string.
nlohmann::json toJSON(UsageTool tool);
Result<UsageTool, UsageDecodeFailure> usageToolFromJSON(const nlohmann::json& json);

}  // namespace omnira
