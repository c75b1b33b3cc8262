#include "cli/McpSetup.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <regex>
#include <sstream>

#include <nlohmann/json.hpp>

#include "OmniraCore/foundation/AtomicFile.h"
#include "OmniraCore/foundation/JSONText.h"
#include "OmniraCore/foundation/Parse.h"
#include "OmniraCore/foundation/SafeText.h"
#include "OmniraCore/usage/UsageLogins.h"

namespace omnira::cli {

namespace fs = std::filesystem;

namespace {

using json = nlohmann::ordered_json;
using Change = McpSetup::Change;

McpSetup::Failure failure(std::string message) { return McpSetup::Failure{std::move(message)}; }

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::stringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// A TOML basic string: quotes and backslashes escaped, control bytes as \uXXXX.
std::string tomlString(const std::string& text) {
  std::string out = "\"";
  for (const unsigned char c : text) {
    if (c == '"' || c == '\\') out += '\\', out += static_cast<char>(c);
    else if (c < 0x20 || c == 0x7f) out += fmt::format("\\u{:04X}", c);
    else out += static_cast<char>(c);
  }
  return out + "\"";
}

struct Agent {
  std::string id, name;
  fs::path file;
  bool installed = false;
  bool toml = false;
  json entry;  // for the JSON files
};

bool onPath(const std::string& program, const AppPaths::Environment& environment) {
  const auto path = environment("PATH");
  if (!path) return false;
  std::stringstream folders(*path);
  for (std::string folder; std::getline(folders, folder, ':');)
    if (!folder.empty() && ::access((fs::path(folder) / program).c_str(), X_OK) == 0) return true;
  return false;
}

std::string shown(const fs::path& file, const AppPaths::Environment& environment) {
  const auto home = environment("HOME");
  const std::string text = file.string();
  if (!home || home->empty() || !text.starts_with(*home + "/")) return terminalText(text);
  std::string within = text.substr(home->size());
  within.insert(within.begin(), '~');
  return terminalText(within);
}

}  // namespace

Result<std::string, McpSetup::Failure> McpSetup::editJSON(const std::string& text, const std::string& entryText,
                                                         bool remove, Change& change) {
  json config = trim(text).empty() ? json::object() : json::parse(text, nullptr, /*allow_exceptions=*/false);
  if (!config.is_object()) return fail(failure("it is not a JSON object (comments or a cut-off file?)"));
  const json entry = json::parse(entryText);
  if (config.contains("mcpServers") && !config["mcpServers"].is_object())
    return fail(failure("its \"mcpServers\" is not an object"));
  const bool present = config.contains("mcpServers") && config["mcpServers"].contains("omnira");
  if (remove) {
    change = present ? Change::removed : Change::absent;
    if (!present) return text;
    config["mcpServers"].erase("omnira");
  } else {
    if (present && config["mcpServers"]["omnira"] == entry) {
      change = Change::unchanged;
      return text;
    }
    change = present ? Change::updated : Change::added;
    config["mcpServers"]["omnira"] = entry;
  }
  return jsonText(config, 2) + "\n";
}

Result<std::string, McpSetup::Failure> McpSetup::editTOML(const std::string& text, const std::string& command,
                                                         bool remove, Change& change) {
  static const std::regex ours(R"(^\s*\[\s*mcp_servers\s*\.\s*("omnira"|omnira)\s*(\.[^\]]*)?\]\s*(#.*)?$)");
  static const std::regex header(R"(^\s*\[)");
  static const std::regex serversTable(R"(^\s*\[\s*mcp_servers\s*\]\s*(#.*)?$)");
  static const std::regex elsewhere(R"(^\s*(mcp_servers\s*(=|\.\s*("omnira"|omnira)\b)))");
  static const std::regex keyInServers(R"(^\s*("omnira"|omnira)\s*[.=])");

  const auto lines = linesOf(text);
  std::vector<std::string> kept;
  bool inOurs = false, inServers = false, found = false;
  std::vector<std::string> previous;
  for (const auto& line : lines) {
    if (std::regex_search(line, header)) {
      inOurs = std::regex_search(line, ours);
      inServers = std::regex_search(line, serversTable);
    } else if (std::regex_search(line, elsewhere) || (inServers && std::regex_search(line, keyInServers))) {
      return fail(failure("it names omnira in a way this command does not edit: \"" + std::string(trim(line)) +
                          "\"; change it by hand"));
    }
    if (inOurs) {
      found = true;
      previous.push_back(line);
      continue;
    }
    kept.push_back(line);
  }
  const std::vector<std::string> table = {"[mcp_servers.omnira]", "command = " + tomlString(command), "args = [\"mcp\"]"};
  if (remove) {
    change = found ? Change::removed : Change::absent;
    if (!found) return text;
  } else {
    std::vector<std::string> trimmedPrevious = previous;
    while (!trimmedPrevious.empty() && trim(trimmedPrevious.back()).empty()) trimmedPrevious.pop_back();
    if (found && trimmedPrevious == table) {
      change = Change::unchanged;
      return text;
    }
    change = found ? Change::updated : Change::added;
  }
  while (!kept.empty() && trim(kept.back()).empty()) kept.pop_back();
  std::string out;
  for (const auto& line : kept) out += line + "\n";
  if (!remove) {
    if (!out.empty()) out += "\n";
    for (const auto& line : table) out += line + "\n";
  }
  return out;
}

int runMcpSetup(const McpSetupRequest& request, const std::string& command, const AppPaths::Environment& environment,
                std::FILE* out, std::FILE* err) {
  const auto home = environment("HOME").value_or("");
  std::vector<Agent> agents;
  {
    // Claude Code keeps its user settings beside its folder: ~/.claude.json, or inside $CLAUDE_CONFIG_DIR.
    const auto configured = environment("CLAUDE_CONFIG_DIR");
    const fs::path folder = configured && !trim(*configured).empty() ? UsageLogins::claudeHomes(environment).front()
                                                                      : fs::path(home) / ".claude";
    const fs::path file = configured && !trim(*configured).empty() ? folder / ".claude.json" : fs::path(home) / ".claude.json";
    agents.push_back({"claude", "Claude Code", file, fs::exists(folder) || fs::exists(file) || onPath("claude", environment),
                      false, json{{"type", "stdio"}, {"command", command}, {"args", {"mcp"}}, {"env", json::object()}}});
  }
  {
    const fs::path folder = UsageLogins::codexHomes(environment).front();
    agents.push_back({"codex", "Codex", folder / "config.toml", fs::exists(folder) || onPath("codex", environment), true, {}});
  }
  {
    const fs::path folder = fs::path(home) / ".gemini";
    agents.push_back({"gemini", "Gemini CLI", folder / "settings.json", fs::exists(folder) || onPath("gemini", environment),
                      false, json{{"command", command}, {"args", {"mcp"}}}});
  }
  const bool all = request.agent == "all";
  if (!all && std::none_of(agents.begin(), agents.end(), [&](const Agent& a) { return a.id == request.agent; })) {
    fmt::print(err, "omnira: there is no agent \"{}\" to set up: give claude, codex, gemini or all.\n", terminalText(request.agent));
    return 2;
  }

  int status = 0;
  for (const auto& agent : agents) {
    if (!all && agent.id != request.agent) continue;
    if (all && !agent.installed) {
      fmt::print(out, "{}: not installed here, left alone.\n", agent.name);
      continue;
    }
    // Through a link to the file it names: a dotfile kept elsewhere stays a link.
    std::error_code error;
    const bool link = fs::is_symlink(fs::symlink_status(agent.file, error));
    const fs::path file = link ? fs::canonical(agent.file, error) : agent.file;
    if (link && error) {
      fmt::print(err, "{}: {} is a link to nowhere; nothing changed.\n", agent.name, shown(agent.file, environment));
      status = 1;
      continue;
    }
    std::string text;
    if (auto read = AtomicFile::read(file)) text = std::move(*read);
    else if (!read.error().missing) {
      fmt::print(err, "{}: cannot read {}: {}\n", agent.name, shown(agent.file, environment), terminalText(read.error().message));
      status = 1;
      continue;
    }
    Change change = Change::unchanged;
    auto edited = agent.toml ? McpSetup::editTOML(text, command, request.remove, change)
                             : McpSetup::editJSON(text, jsonText(agent.entry), request.remove, change);
    if (!edited) {
      fmt::print(err, "{}: {} was left as it is: {}.\n", agent.name, shown(agent.file, environment),
                 terminalText(edited.error().message));
      status = 1;
      continue;
    }
    const auto where = shown(agent.file, environment);
    if (change == Change::unchanged || change == Change::absent) {
      if (change == Change::unchanged) fmt::print(out, "{}: Omnira is already set up in {}.\n", agent.name, where);
      else fmt::print(out, "{}: Omnira is not in {}.\n", agent.name, where);
      continue;
    }
    struct stat info {};
    const mode_t mode = ::stat(file.c_str(), &info) == 0 ? (info.st_mode & 07777) : 0600;
    if (auto written = AtomicFile::write(file, *edited, mode); !written) {
      fmt::print(err, "{}: {}\n", agent.name, terminalText(written.error().message));
      status = 1;
      continue;
    }
    const char* done = change == Change::added     ? "added Omnira to"
                       : change == Change::updated ? "updated Omnira in"
                                                   : "removed Omnira from";
    fmt::print(out, "{}: {} {}{}.\n", agent.name, done, where,
               agent.installed ? " (it takes effect when the agent next starts)" : " (it is not installed yet)");
  }
  return status;
}

}  // namespace omnira::cli
