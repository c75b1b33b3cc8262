#include "OmniraCore/bridge/AgentSessions.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <functional>
#include <set>

#include <nlohmann/json.hpp>

#include "OmniraCore/foundation/Parse.h"
#include "OmniraCore/platform/linux/FileText.h"
#include "OmniraCore/usage/UsageLogins.h"

namespace omnira {

namespace fs = std::filesystem;

namespace {

using json = nlohmann::json;

// What a session log ends with is all that tells its state; 64 KiB holds its last turns.
constexpr size_t kTail = 64 * 1024;
// A session's first line says where it runs; longer than this, it is not one.
constexpr size_t kFirstLine = 1 << 20;
// A tool call with nothing running and no word in the log for this long waits for the
// person's permission.
constexpr double kPermissionWaitSeconds = 15;

std::string tailOf(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) return {};
  in.seekg(0, std::ios::end);
  const auto size = static_cast<size_t>(std::max<std::streamoff>(0, in.tellg()));
  const size_t start = size > kTail ? size - kTail : 0;
  in.seekg(static_cast<std::streamoff>(start));
  std::string text(size - start, '\0');
  in.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<size_t>(in.gcount()));
  // A cut first line is not a line.
  if (start > 0) text.erase(0, text.find('\n') == std::string::npos ? text.size() : text.find('\n') + 1);
  return text;
}

// Each whole JSON line, last first.
void eachLineBackwards(std::string_view text, const std::function<bool(const json&)>& visit) {
  while (!text.empty()) {
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.remove_suffix(1);
    const auto start = text.rfind('\n');
    const std::string_view line = start == std::string_view::npos ? text : text.substr(start + 1);
    text = start == std::string_view::npos ? std::string_view() : text.substr(0, start);
    auto parsed = json::parse(line, nullptr, /*allow_exceptions=*/false);
    if (!parsed.is_object()) continue;
    if (!visit(parsed)) return;
  }
}

std::optional<std::string> textAt(const json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end() || !found->is_string()) return std::nullopt;
  return found->get<std::string>();
}

std::optional<Date> dateOf(const json& entry) {
  if (auto text = textAt(entry, "timestamp")) return parseISO8601(*text);
  return std::nullopt;
}

Date modified(const fs::path& file) {
  struct stat info {};
  if (::stat(file.c_str(), &info) != 0) return Date{};
  return Date(std::chrono::seconds(info.st_mtim.tv_sec) + std::chrono::nanoseconds(info.st_mtim.tv_nsec));
}

bool hasContent(const json& message, std::string_view type) {
  const auto content = message.find("content");
  if (content == message.end() || !content->is_array()) return false;
  return std::any_of(content->begin(), content->end(), [&](const json& block) {
    return block.is_object() && block.value("type", "") == type;
  });
}

bool contains(std::string_view text, std::string_view part) { return text.find(part) != std::string_view::npos; }

bool isBrowser(std::string_view name) {
  constexpr std::array<std::string_view, 8> browsers = {"chrome", "chromium", "firefox", "headless_shell",
                                                        "msedge", "brave",    "webkit",  "playwright"};
  const auto low = lowered(name);
  return std::any_of(browsers.begin(), browsers.end(), [&](std::string_view b) { return contains(low, b); });
}

bool isToolServer(std::string_view name, const std::vector<std::string>& arguments) {
  if (contains(lowered(name), "mcp")) return true;
  return std::any_of(arguments.begin(), arguments.end(), [](const std::string& a) {
    const auto low = lowered(a);
    return low == "mcp" || contains(low, "mcp-server") || contains(low, "server-") || contains(low, "/mcp");
  });
}

bool isShell(std::string_view name) {
  constexpr std::array<std::string_view, 6> shells = {"bash", "sh", "zsh", "fish", "dash", "nu"};
  return std::find(shells.begin(), shells.end(), name) != shells.end();
}

std::string commandLine(const std::vector<std::string>& arguments, std::string_view fallback) {
  std::string line;
  for (const auto& a : arguments) line += (line.empty() ? "" : " ") + a;
  if (line.empty()) line = fallback;
  if (line.size() > 200) line = line.substr(0, 199) + "…";
  return line;
}

}  // namespace

const std::vector<AgentSessions::Agent>& AgentSessions::known() {
  static const std::vector<Agent> agents = {
      {"claude", "Claude Code"}, {"codex", "Codex"},        {"gemini", "Gemini CLI"},   {"aider", "Aider"},
      {"opencode", "OpenCode"},  {"cursor-agent", "Cursor Agent"}, {"goose", "Goose"},  {"amp", "Amp"},
      {"qwen", "Qwen Code"},     {"copilot", "GitHub Copilot CLI"}, {"crush", "Crush"}, {"kiro-cli", "Kiro"},
  };
  return agents;
}

std::optional<AgentSessions::Agent> AgentSessions::agentOf(std::string_view name, const std::vector<std::string>& arguments) {
  const auto byName = [](std::string_view program) -> std::optional<Agent> {
    for (const auto& agent : known())
      if (program == agent.id) return agent;
    return std::nullopt;
  };
  if (auto agent = byName(name)) return agent;
  // A script run by its interpreter: "node …/bin/gemini", "python3 …/bin/aider".
  const bool interpreter = name == "node" || name == "bun" || name == "deno" || name.starts_with("python");
  if (!interpreter) return std::nullopt;
  // The packages' own folders, for a script run without its bin link.
  constexpr std::array<std::pair<std::string_view, std::string_view>, 6> packages = {{
      {"/@anthropic-ai/claude-code/", "claude"},
      {"/@google/gemini-cli/", "gemini"},
      {"/@openai/codex/", "codex"},
      {"/opencode-ai/", "opencode"},
      {"/@qwen-code/qwen-code/", "qwen"},
      {"/@github/copilot/", "copilot"},
  }};
  for (size_t i = 1; i < arguments.size(); ++i) {
    const std::string_view argument = arguments[i];
    if (argument.starts_with("-")) continue;  // the interpreter's own options
    if (auto agent = byName(argument.substr(argument.find_last_of('/') + 1))) return agent;
    for (const auto& [folder, id] : packages)
      if (contains(argument, folder)) return byName(id);
    return std::nullopt;  // the script it runs is something else
  }
  return std::nullopt;
}

AgentSessions::Config AgentSessions::Config::fromEnvironment(const AppPaths::Environment& environment) {
  Config config;
  config.claudeHomes = UsageLogins::claudeHomes(environment);
  config.codexHomes = UsageLogins::codexHomes(environment);
  return config;
}

AgentSessions::AgentSessions(Config config) : config_(std::move(config)) {}

std::vector<std::string> AgentSessions::arguments(int32_t pid) const {
  std::ifstream in(config_.procRoot / std::to_string(pid) / "cmdline", std::ios::binary);
  std::vector<std::string> list;
  std::string item;
  while (std::getline(in, item, '\0')) list.push_back(item);
  return list;
}

std::optional<std::string> AgentSessions::workingDirectory(int32_t pid) const {
  std::error_code error;
  const auto target = fs::read_symlink(config_.procRoot / std::to_string(pid) / "cwd", error);
  if (error) return std::nullopt;
  return target.string();
}

AgentSessions::LogState AgentSessions::readClaudeLog(std::string_view tail) {
  LogState state;
  bool decided = false;
  eachLineBackwards(tail, [&](const json& entry) {
    const auto type = textAt(entry, "type").value_or("");
    if (!state.sessionID) state.sessionID = textAt(entry, "sessionId");
    if (type == "custom-title" && !state.title) {
      state.title = textAt(entry, "customTitle");
      if (!state.title) state.title = textAt(entry, "title");
    }
    if (!decided && (type == "assistant" || type == "user")) {
      decided = true;
      state.since = dateOf(entry);
      const json& message = entry.contains("message") && entry["message"].is_object() ? entry["message"] : entry;
      if (type == "assistant" && hasContent(message, "tool_use")) {
        state.status = AgentSession::Status::working;
        state.waitsOnATool = true;
      } else if (type == "assistant") {
        state.status = AgentSession::Status::waitingForYou;  // it said its piece: the turn is over
      } else {
        state.status = AgentSession::Status::working;  // a prompt or a tool's result: the model is on
      }
    }
    return !(decided && state.sessionID && state.title);
  });
  return state;
}

AgentSessions::LogState AgentSessions::readCodexLog(std::string_view tail) {
  LogState state;
  eachLineBackwards(tail, [&](const json& entry) {
    const auto type = textAt(entry, "type").value_or("");
    const json& payload = entry.contains("payload") && entry["payload"].is_object() ? entry["payload"] : entry;
    const auto kind = textAt(payload, "type").value_or("");
    if (type == "session_meta") {
      state.sessionID = textAt(payload, "id");
      return false;
    }
    if (state.status || kind == "token_count" || type == "turn_context") return true;
    if (kind == "task_complete" || kind == "turn_aborted" || kind.ends_with("approval_request")) {
      state.status = AgentSession::Status::waitingForYou;
    } else if (type == "event_msg" || type == "response_item") {
      state.status = AgentSession::Status::working;
      state.waitsOnATool = kind == "function_call" || kind == "local_shell_call";
    } else {
      return true;
    }
    state.since = dateOf(entry);
    return true;
  });
  return state;
}

std::optional<fs::path> AgentSessions::claudeLog(const std::string& folder, Date startedAt) const {
  // Claude Code keeps a folder per working directory, named by it with every other byte a "-".
  std::string key = folder;
  for (char& c : key)
    if (!std::isalnum(static_cast<unsigned char>(c))) c = '-';
  std::optional<fs::path> newest;
  Date newestAt{};
  for (const auto& home : config_.claudeHomes) {
    std::error_code error;
    for (const auto& file : fs::directory_iterator(home / "projects" / key, error)) {
      if (file.path().extension() != ".jsonl") continue;
      const Date at = modified(file.path());
      if (at >= startedAt - std::chrono::seconds(5) && (!newest || at > newestAt)) {
        newest = file.path();
        newestAt = at;
      }
    }
  }
  return newest;
}

std::optional<fs::path> AgentSessions::codexLog(const std::string& folder, Date startedAt, Date now) const {
  std::optional<fs::path> newest;
  Date newestAt{};
  for (const auto& home : config_.codexHomes) {
    // Rollouts are filed by day: the session's days only, not the whole archive.
    for (Date day = startedAt - std::chrono::hours(24); day <= now + std::chrono::hours(24); day += std::chrono::hours(24)) {
      const std::time_t t = std::chrono::system_clock::to_time_t(day);
      std::tm local{};
      localtime_r(&t, &local);
      char path[32];
      std::snprintf(path, sizeof path, "%04d/%02d/%02d", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday);
      std::error_code error;
      for (const auto& file : fs::directory_iterator(home / "sessions" / path, error)) {
        if (file.path().extension() != ".jsonl") continue;
        const Date at = modified(file.path());
        if (at < startedAt - std::chrono::seconds(5) || (newest && at <= newestAt)) continue;
        // Only the first line, and never more than 1 MiB of it: a log may be any size.
        const auto head = platform::readTextFile(file.path(), kFirstLine);
        if (!head) continue;
        const auto meta = json::parse(std::string_view(*head).substr(0, head->find('\n')), nullptr, false);
        if (!meta.is_object() || !meta.contains("payload") || !meta["payload"].is_object()) continue;
        if (textAt(meta["payload"], "cwd") != folder) continue;
        newest = file.path();
        newestAt = at;
      }
    }
  }
  return newest;
}

std::vector<AgentSession> AgentSessions::sessions(const std::vector<AppGroup>& groups, Date now) {
  std::map<int32_t, const ProcessSample*> byPID;
  std::multimap<int32_t, int32_t> children;
  for (const auto& g : groups)
    for (const auto& p : g.processes) {
      byPID[p.pid] = &p;
      children.emplace(p.parentPID, p.pid);
    }
  // Agents by pid; command lines are read only for interpreters, which are few.
  std::map<int32_t, Agent> agents;
  for (const auto& [pid, p] : byPID) {
    const bool interpreter = p->name == "node" || p->name == "bun" || p->name == "deno" || p->name.starts_with("python");
    if (auto agent = agentOf(p->name, interpreter ? arguments(pid) : std::vector<std::string>{})) agents.emplace(pid, *agent);
  }

  std::vector<AgentSession> found;
  std::set<std::pair<int32_t, Date>> seen;
  for (const auto& [pid, agent] : agents) {
    const ProcessSample& root = *byPID.at(pid);
    // A wrapper's child of the same agent belongs to the wrapper's session.
    if (auto parent = agents.find(root.parentPID); parent != agents.end() && parent->second.id == agent.id) continue;

    AgentSession s;
    s.agent = agent.id;
    s.agentName = agent.name;
    s.pid = pid;
    s.startedAt = root.startedAt;
    const auto cwd = workingDirectory(pid);
    s.project = root.projectPath ? root.projectPath : cwd;

    // Everything below it, depth first.
    std::vector<const ProcessSample*> below;
    std::vector<int32_t> pending{pid};
    while (!pending.empty()) {
      const int32_t at = pending.back();
      pending.pop_back();
      for (auto [it, end] = children.equal_range(at); it != end; ++it)
        if (auto child = byPID.find(it->second); child != byPID.end() && it->second != pid) {
          below.push_back(child->second);
          pending.push_back(it->second);
        }
    }
    s.processCount = 1 + below.size();
    s.memoryBytes = root.memoryBytes;
    s.cpuPercent = root.cpuPercent;
    const ProcessSample* command = nullptr;
    for (const ProcessSample* p : below) {
      s.memoryBytes += p->memoryBytes;
      s.cpuPercent += p->cpuPercent;
      const auto args = p->name == "node" || p->name.starts_with("python") || p->name == "npx" || p->name == "uvx"
                            ? arguments(p->pid)
                            : std::vector<std::string>{};
      using Kind = AgentSession::Started::Kind;
      std::optional<Kind> kind;
      if (!p->listeningPorts.empty()) kind = Kind::devServer;
      else if (isBrowser(p->name)) kind = Kind::browser;
      else if (isToolServer(p->name, args)) kind = Kind::toolServer;
      if (kind) {
        if (s.started.size() < 20) s.started.push_back({p->pid, p->name, *kind, p->listeningPorts});
      } else if (!isShell(p->name) && (!command || p->startedAt > command->startedAt)) {
        command = p;  // the newest thing it runs is what it is doing now
      }
    }
    if (command) s.runningNow = commandLine(arguments(command->pid), command->name);

    // Its state, from its own log where it writes one.
    std::optional<LogState> log;
    if (s.agent == "claude" && cwd) {
      if (auto file = claudeLog(*cwd, s.startedAt)) {
        log = readClaudeLog(tailOf(*file));
        if (!log->since) log->since = modified(*file);
      }
    } else if (s.agent == "codex" && cwd) {
      if (auto file = codexLog(*cwd, s.startedAt, now)) {
        log = readCodexLog(tailOf(*file));
        if (!log->since) log->since = modified(*file);
      }
    }
    const auto key = std::make_pair(pid, s.startedAt);
    seen.insert(key);
    const bool busy = s.cpuPercent >= kWorkingCPUPercent;
    if (busy || !lastBusy_.contains(key)) lastBusy_[key] = now;
    if (log && log->status) {
      s.status = *log->status;
      s.title = log->title;
      s.sessionID = log->sessionID;
      const Date since = log->since.value_or(now);
      // A tool call that runs nothing and has not moved for a while waits for a yes.
      if (log->waitsOnATool && !command && !busy && std::chrono::duration<double>(now - since).count() > kPermissionWaitSeconds)
        s.status = AgentSession::Status::waitingForYou;
      s.statusMinutes = std::max(0.0, std::chrono::duration<double>(now - since).count() / 60);
    } else {
      s.status = busy || command ? AgentSession::Status::working : AgentSession::Status::idle;
      s.statusMinutes = busy ? 0 : std::chrono::duration<double>(now - lastBusy_[key]).count() / 60;
    }
    found.push_back(std::move(s));
  }
  std::erase_if(lastBusy_, [&](const auto& entry) { return !seen.contains(entry.first); });
  std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) { return a.startedAt < b.startedAt; });
  return found;
}

std::string_view rawValue(AgentSession::Status status) {
  switch (status) {
    case AgentSession::Status::working: return "working";
    case AgentSession::Status::waitingForYou: return "waiting_for_you";
    case AgentSession::Status::idle: return "idle";
  }
  return "idle";
}

std::string_view rawValue(AgentSession::Started::Kind kind) {
  switch (kind) {
    case AgentSession::Started::Kind::devServer: return "dev_server";
    case AgentSession::Started::Kind::browser: return "browser";
    case AgentSession::Started::Kind::toolServer: return "tool_server";
    case AgentSession::Started::Kind::command: return "command";
  }
  return "command";
}

nlohmann::ordered_json AgentSession::toJSON(Date now) const {
  nlohmann::ordered_json j;
  j["agent"] = agentName;
  j["pid"] = pid;
  j["project"] = project ? nlohmann::ordered_json(*project) : nlohmann::ordered_json();
  j["running_minutes"] = std::round(std::chrono::duration<double>(now - startedAt).count() / 6) / 10;
  j["status"] = rawValue(status);
  j["status_minutes"] = std::round(statusMinutes * 10) / 10;
  j["title"] = title ? nlohmann::ordered_json(*title) : nlohmann::ordered_json();
  if (sessionID) j["session_id"] = *sessionID;
  j["memory_mb_with_helpers"] = std::round(static_cast<double>(memoryBytes) / 1e5) / 10;
  j["cpu_percent_with_helpers"] = std::round(cpuPercent * 10) / 10;
  j["processes"] = processCount;
  auto& list = j["started"] = nlohmann::ordered_json::array();
  for (const auto& s : started)
    list.push_back({{"pid", s.pid}, {"name", s.name}, {"kind", rawValue(s.kind)}, {"ports", s.ports}});
  j["running_now"] = runningNow ? nlohmann::ordered_json(*runningNow) : nlohmann::ordered_json();
  return j;
}

}  // namespace omnira
