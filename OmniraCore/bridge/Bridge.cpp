#include "OmniraCore/bridge/Bridge.h"

#include <algorithm>
#include <array>

namespace omnira {

namespace {

using Argument = Bridge::Argument;

// The agents read these as they stand. Where the text names the operating system, this
// computer's name stands in; an app is asked to quit the way a Linux desktop does it.
std::string withSystem(std::string text, std::string_view systemName) {
  const std::string_view mark = "{system}";
  for (auto at = text.find(mark); at != std::string::npos; at = text.find(mark, at + systemName.size()))
    text.replace(at, mark.size(), systemName);
  return text;
}

Argument text(std::string name, std::optional<std::string> description = std::nullopt) {
  return {std::move(name), "string", std::move(description), {}, std::nullopt};
}
Argument integer(std::string name, std::optional<std::string> description = std::nullopt) {
  return {std::move(name), "integer", std::move(description), {}, std::nullopt};
}
Argument integers(std::string name, std::string description) {
  return {std::move(name), "array", std::move(description), {}, "integer"};
}
Argument flag(std::string name, std::optional<std::string> description = std::nullopt) {
  return {std::move(name), "boolean", std::move(description), {}, std::nullopt};
}
Argument choice(std::string name, std::vector<std::string> choices, std::string description) {
  return {std::move(name), "string", std::move(description), std::move(choices), std::nullopt};
}

std::vector<std::string> spans() {
  const auto& all = Bridge::periodNames();
  return {all.begin() + 1, all.end()};
}

constexpr std::array<std::string_view, 11> kReadOnly = {"system_status", "top_apps", "app_details", "history",
                                                        "find_process",  "projects", "whats_wrong", "ports",
                                                        "containers",    "can_quit", "agents"};
constexpr std::array<std::string_view, 3> kActions = {"quit", "quit_app", "stop_process"};

}  // namespace

Bridge::json Bridge::object(const std::vector<Argument>& properties, const std::vector<std::string>& required) {
  json schema;
  schema["type"] = "object";
  json& members = schema["properties"] = json::object();
  for (const auto& argument : properties) {
    json one;
    one["type"] = argument.type;
    if (argument.itemType) one["items"] = {{"type", *argument.itemType}};
    if (argument.description) one["description"] = *argument.description;
    if (!argument.choices.empty()) one["enum"] = argument.choices;
    members[argument.name] = std::move(one);
  }
  if (!required.empty()) schema["required"] = required;
  return schema;
}

std::vector<Bridge::Tool> Bridge::tools(std::string_view systemName) {
  std::vector<Tool> table;
  const auto add = [&](std::string name, const char* description, const std::vector<Argument>& arguments) {
    table.push_back({std::move(name), withSystem(description, systemName), object(arguments)});
  };
  add("system_status",
      "How this computer is doing right now: CPU, memory and memory pressure, disk space and activity, network, GPU, "
      "Neural Engine, battery, temperatures, fans and power draw. Start here for 'why is my computer slow or hot'.",
      {});
  add("top_apps",
      "The apps using the most memory, CPU, power, disk or network. Each app counts all of its helper processes, so a "
      "browser is one row. Right now, or added up over the last hour, day, week or month from Omnira' history, or "
      "longer where the person keeps their history that long.",
      {choice("by", metricNames(), "What to rank by. Default: memory."),
       choice("period", periodNames(), "now (default) for live figures, or a span of history."),
       integer("limit", "How many apps. Default 10, at most 20.")});
  add("app_details",
      "One app in full: its processes, what kind each is (tab, extension, GPU), the ports it listens on, the project "
      "folders it works in, and what it used over the last day, or another period from Omnira' history.",
      {text("name", "The app's name, or part of it: \"Chrome\", \"Xcode\", \"node\"."),
       choice("period", spans(), "The span of history to add up. Default: day.")});
  add("history",
      "How hard this computer was pushed over a period, from readings Omnira keeps every five minutes: the average and "
      "the highest CPU, memory, memory pressure, GPU, temperature, fan speed and power, when each peak was, the "
      "stretches it spent at a limit (CPU at 90%, memory under pressure, hot, slowed down by {system} to cool), and a "
      "timeline. Use it for 'when was my computer at its limits', 'was it hot last night' or 'is it worse than last "
      "week'. For which app was behind it, ask top_apps for the same period.",
      {choice("period", spans(),
              "The span to look at. Default: day. quarter is 90 days, half_year 180; a span longer than the history "
              "kept gives what there is.")});
  add("find_process",
      "Find processes by name, PID or listening port, with the app each belongs to, its project folder and how long "
      "it has run. Use it for 'what is on port 3000' or 'what is this process'.",
      {text("name", "A process name or part of one."), integer("pid"),
       integer("port", "A TCP port something is listening on.")});
  add("projects",
      "Developer project folders with something running in them: the processes, their ports, memory and CPU, and dev "
      "servers left running with nobody using them. Give name for one project, in full.",
      {text("name", "A project folder's name or path, or part of one: just that project, with every process in it.")});
  add("whats_wrong",
      "What Omnira has noticed: apps holding the CPU or growing in memory, memory pressure with how much memory and "
      "swap is in use, what is making the computer hot, what is keeping it awake, and dev servers left behind. Empty "
      "lists mean nothing stands out.",
      {});
  add("ports",
      "Every TCP port one of this person's processes is listening on, lowest first, with the process, its app, its "
      "project folder and the container behind it when there is one. Use it for 'what is on which port' and 'is 3000 "
      "free'. Give port or ports to ask about those alone: each is in ports with what holds it, or in free. Ports "
      "held by other users' processes are not in it.",
      {integer("port", "One TCP port: what is listening on it, or that it is free."),
       integers("ports", "Several TCP ports, each answered. At most 20.")});
  add("containers",
      "Running containers from Docker, OrbStack, Podman or Colima: name, image, status, memory, CPU, published ports "
      "and Compose project. Give name for some of them.",
      {text("name",
            "A container's name, image, service or Compose project, or part of one: just the containers that match.")});
  add("can_quit",
      "Whether something can be quit without costing the person anything. Ask this to decide what to propose, and "
      "before quitting, killing or stopping anything yourself. Give one of: name (an app), pid, pids, port or "
      "project. The verdict is safe, ask_first or do_not, with the reason, what else would stop with it, what it "
      "would free, and connected_from: what on this computer is connected to it right now and might stop working. "
      "do_not means don't quit it, and a \"how\" beside it is the right way instead; ask_first means the person "
      "decides; a project, several pids or a bare name like \"node\" gets a verdict per process.",
      {text("name", "An app's name, or a bare executable's like \"node\": every process called that."),
       integer("pid"), integers("pids", "Several process IDs, each judged. At most 20."),
       integer("port", "A TCP port: whatever is listening on it."),
       text("project", "A project folder's name or path, as the projects tool gives it.")});
  add("agents",
      "Coding agents running right now (Claude Code, Codex, Gemini CLI, Aider and others): each session's project "
      "folder, how long it has run, its memory and CPU with its helpers added in, and what it started: dev servers "
      "with their ports, browsers, tool servers and the command running now. status is working, waiting_for_you (the "
      "turn is over and the person has not typed; Claude Code says so itself) or idle, with status_minutes. title is "
      "the name the person gave the session. session_id is there when the session was started with one. Give name "
      "for one agent's sessions, or one project's.",
      {text("name", "An agent's name (\"claude\", \"codex\") or a project folder's, or part of one: just the sessions "
                    "that match.")});
  return table;
}

std::vector<Bridge::Tool> Bridge::actions(std::string_view systemName) {
  return {{"quit_app", withSystem("Quit an app the way closing its windows does, so it can ask to save; with force, at once.",
                                  systemName),
           object({text("name"), flag("force")})},
          {"stop_process", "Ask one of the person's own processes to exit; with force, end it at once.",
           object({integer("pid"), flag("force")})}};
}

Bridge::Tool Bridge::request(std::string_view systemName) {
  return {"quit",
          withSystem(
              "Ask Omnira to quit something. Omnira checks it as can_quit does, so there is no need to call that first, "
              "then shows the person the request in its own window and waits for their click, up to a minute; the "
              "call returns what they chose. That window is the asking: don't ask in chat as well, but say before "
              "you call that a Omnira window will appear. Give one of: name (an app), pid, pids (several at once, one "
              "window), port or project. do_not is refused, with the reason. A project or a bare name like \"node\" "
              "quits only what is safe in it and says what was left running. An app is asked to quit as closing its "
              "windows does, so it can ask to save; a process gets SIGTERM, with what it started. force ends it at "
              "once, and is only accepted after a quit through Omnira was tried and it is still running.",
              systemName),
          object({text("name", "An app's name, or a bare executable's like \"node\"."), integer("pid"),
                  integers("pids", "Several process IDs, asked about together in one window. At most 20."),
                  integer("port"), text("project"),
                  flag("force", "End it without asking it to exit. Only after quit was tried.")})};
}

bool Bridge::isTool(std::string_view name) {
  return std::find(kReadOnly.begin(), kReadOnly.end(), name) != kReadOnly.end() || isAction(name);
}

bool Bridge::isAction(std::string_view name) {
  return std::find(kActions.begin(), kActions.end(), name) != kActions.end();
}

const std::vector<std::string>& Bridge::metricNames() {
  static const std::vector<std::string> names = {"memory", "cpu", "power", "disk", "network"};
  return names;
}

const std::vector<std::string>& Bridge::periodNames() {
  static const std::vector<std::string> names = {"now", "hour", "day", "week", "month", "quarter", "half_year", "year"};
  return names;
}

std::string_view Bridge::rawValue(Metric metric) { return metricNames()[static_cast<size_t>(metric)]; }

std::optional<Bridge::Metric> Bridge::metric(std::string_view raw) {
  const auto& names = metricNames();
  const auto found = std::find(names.begin(), names.end(), raw);
  if (found == names.end()) return std::nullopt;
  return static_cast<Metric>(found - names.begin());
}

std::string_view Bridge::rawValue(Period period) { return periodNames()[static_cast<size_t>(period)]; }

std::optional<Bridge::Period> Bridge::period(std::string_view raw) {
  const auto& names = periodNames();
  const auto found = std::find(names.begin(), names.end(), raw);
  if (found == names.end()) return std::nullopt;
  return static_cast<Period>(found - names.begin());
}

int64_t Bridge::seconds(Period period) {
  constexpr std::array<int64_t, 8> spans = {0, 3'600, 86'400, 604'800, 2'592'000, 7'776'000, 15'552'000, 31'536'000};
  return spans[static_cast<size_t>(period)];
}

}  // namespace omnira
