#include "OmniraCore/usage/UsageTool.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace omnira {

std::string_view rawValue(UsageTool tool) {
  switch (tool) {
    case UsageTool::claude: return "claude";
    case UsageTool::codex: return "codex";
    case UsageTool::copilot: return "copilot";
    case UsageTool::cursor: return "cursor";
    case UsageTool::grok: return "grok";
    case UsageTool::ollama: return "ollama";
    case UsageTool::antigravity: return "antigravity";
    case UsageTool::opencode: return "opencode";
  }
  return "claude";
}

std::optional<UsageTool> usageToolFromRaw(std::string_view raw) {
  for (UsageTool tool : allUsageTools)
    if (rawValue(tool) == raw) return tool;
  return std::nullopt;
}

std::string_view displayName(UsageTool tool) {
  switch (tool) {
    case UsageTool::claude: return "Claude";
    case UsageTool::codex: return "Codex";
    case UsageTool::copilot: return "GitHub Copilot";
    case UsageTool::cursor: return "Cursor";
    case UsageTool::grok: return "Grok";
    case UsageTool::ollama: return "Ollama";
    case UsageTool::antigravity: return "Antigravity";
    case UsageTool::opencode: return "OpenCode";
  }
  return "Claude";
}

std::string_view vendor(UsageTool tool) {
  switch (tool) {
    case UsageTool::claude: return "Anthropic";
    case UsageTool::codex: return "OpenAI";
    case UsageTool::copilot: return "GitHub";
    case UsageTool::cursor: return "Cursor";
    case UsageTool::grok: return "xAI";
    case UsageTool::ollama: return "Ollama";
    case UsageTool::antigravity: return "Google";
    case UsageTool::opencode: return "OpenCode";
  }
  return "Anthropic";
}

std::string_view signInHint(UsageTool tool) {
  switch (tool) {
    case UsageTool::claude: return "Sign in with Claude Code.";
    case UsageTool::codex: return "Sign in with the codex command.";
    case UsageTool::copilot: return "Sign in with the gh command, or with Copilot in your editor.";
    case UsageTool::cursor: return "Sign in with the Cursor app.";
    case UsageTool::grok: return "Sign in with the grok command.";
    case UsageTool::ollama: return "Sign in with the ollama command.";
    case UsageTool::antigravity: return "Sign in with the Antigravity app.";
    case UsageTool::opencode: return "Sign in to OpenCode Go with the opencode command.";
  }
  return "";
}

nlohmann::json toJSON(UsageTool tool) { return std::string(rawValue(tool)); }

Result<UsageTool, UsageDecodeFailure> usageToolFromJSON(const nlohmann::json& json) {
  if (!json.is_string()) return fail(UsageDecodeFailure{"a tool is not text"});
  auto tool = usageToolFromRaw(json.get_ref<const std::string&>());
  if (!tool) return fail(UsageDecodeFailure{fmt::format("\"{}\" is not a known tool", json.get_ref<const std::string&>())});
  return *tool;
}

}  // namespace omnira
