#include "OmniraCore/containers/QuitCheck.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <map>

namespace omnira {

namespace {

// Servers whose clients lose data or work when they stop, whatever is connected now.
constexpr std::array<std::string_view, 12> kDatabases = {
    "postgres", "mysqld", "mariadbd", "mongod", "redis-server", "valkey-server",
    "memcached", "clickhouse-server", "elasticsearch", "cockroach", "etcd", "rabbitmq-server",
};

std::string label(const ProcessSample& p) { return fmt::format("{} ({})", p.name, p.pid); }

std::string folderName(const std::string& path) { return path.substr(path.find_last_of('/') + 1); }

}  // namespace

std::string_view rawValue(QuitVerdict verdict) {
  switch (verdict) {
    case QuitVerdict::safe: return "safe";
    case QuitVerdict::askFirst: return "ask_first";
    case QuitVerdict::doNot: return "do_not";
  }
  return "do_not";
}

nlohmann::ordered_json QuitJudgement::toJSON() const {
  nlohmann::ordered_json json;
  json["pid"] = pid > 0 ? nlohmann::ordered_json(pid) : nlohmann::ordered_json();
  json["name"] = name;
  json["app"] = appName;
  json["project"] = projectPath ? nlohmann::ordered_json(*projectPath) : nlohmann::ordered_json();
  json["verdict"] = rawValue(verdict);
  json["reason"] = reason;
  if (how) json["how"] = *how;
  auto& stops = json["also_stops"] = nlohmann::ordered_json::array();
  for (const auto& s : alsoStops) stops.push_back({{"pid", s.pid}, {"name", s.name}});
  json["frees_mb"] = static_cast<double>(freesBytes) / 1e6;
  json["ports"] = ports;
  auto& connected = json["connected_from"] = nlohmann::ordered_json::array();
  for (const auto& c : connectedFrom) connected.push_back({{"pid", c.pid}, {"name", c.name}, {"app", c.appName}});
  return json;
}

QuitCheck::QuitCheck(Context context) : context_(std::move(context)) {
  for (const auto& group : context_.groups) {
    for (const auto& p : group.processes) {
      byPID_[p.pid] = {&group, &p};
      children_.emplace(p.parentPID, p.pid);
    }
  }
}

QuitJudgement QuitCheck::judge(const AppGroup& group, const ProcessSample& p) const {
  QuitJudgement j;
  j.pid = p.pid;
  j.name = p.name;
  j.appName = group.name;
  j.projectPath = p.projectPath;
  j.freesBytes = p.memoryBytes;
  // What it started stops with it: its descendants, depth first.
  std::vector<int32_t> pending{p.pid};
  while (!pending.empty()) {
    const int32_t parent = pending.back();
    pending.pop_back();
    for (auto [it, end] = children_.equal_range(parent); it != end; ++it) {
      const auto child = byPID_.find(it->second);
      if (child == byPID_.end() || it->second == p.pid) continue;
      j.alsoStops.push_back({child->second.second->pid, child->second.second->name});
      j.freesBytes += child->second.second->memoryBytes;
      pending.push_back(it->second);
    }
  }
  for (const auto& port : context_.ports) {
    if (!port.process || port.process->pid != p.pid) continue;
    j.ports.push_back(port.port);
    for (const auto& c : port.connectedFrom)
      if (c.pid != p.pid && std::none_of(j.connectedFrom.begin(), j.connectedFrom.end(),
                                         [&](const PortProcess& k) { return k.pid == c.pid; }))
        j.connectedFrom.push_back(c);
  }

  const auto doNot = [&](std::string reason, std::optional<std::string> how = std::nullopt) {
    j.verdict = QuitVerdict::doNot;
    j.reason = std::move(reason);
    j.how = std::move(how);
    return j;
  };
  const bool inChain = std::count(context_.askerChain.begin(), context_.askerChain.end(), p.pid) > 0;
  if (p.pid < 2 || group.kind == GroupKind::system || p.kernelThread)
    return doNot(fmt::format("{} is part of {}. Omnira doesn't quit those.", label(p), context_.systemName));
  if (std::count(context_.omniraPIDs.begin(), context_.omniraPIDs.end(), p.pid) > 0) return doNot(fmt::format("{} is Omnira itself.", label(p)));
  if (inChain)
    return doNot(fmt::format("{} runs the assistant that is asking: quitting it would end the session.", label(p)));
  if (p.uid != context_.personUID)
    return doNot(fmt::format("{} belongs to another user. Omnira only stops your own processes.", label(p)));
  if (p.containerID) {
    // "docker:<id>": the engine's own command stops it, by the name or short id it shows.
    const auto colon = p.containerID->find(':');
    const std::string engine = colon == std::string::npos ? "docker" : p.containerID->substr(0, colon);
    const std::string id = p.containerID->substr(colon == std::string::npos ? 0 : colon + 1);
    if (const auto* container = context_.containers.find(id))
      return doNot(fmt::format("{} runs in the container {}, and Omnira doesn't stop containers.", label(p), container->name),
                   container->stopCommand());
    const std::string command = engine == "podman" ? "podman" : "docker";
    return doNot(fmt::format("{} runs in the container {}, and Omnira doesn't stop containers.", label(p), id.substr(0, 12)),
                 fmt::format("{} stop {}", command, id.substr(0, 12)));
  }
  if (p.sessionService)
    return doNot(fmt::format("{} is part of your desktop session: quitting it may end the session or break it.",
                             label(p)));
  for (const auto& port : context_.ports)
    if (port.container && port.process && port.process->pid == p.pid) return containerPort(port, std::move(j));

  j.verdict = QuitVerdict::askFirst;
  if (!j.connectedFrom.empty()) {
    std::string who;
    for (const auto& c : j.connectedFrom) who += (who.empty() ? "" : ", ") + fmt::format("{} ({})", c.name, c.pid);
    j.reason = fmt::format("Other processes on this computer are connected to it right now: {}.", who);
  } else if (std::count(kDatabases.begin(), kDatabases.end(), p.name) > 0) {
    j.reason = "It is a database: what uses it may lose work or fail when it stops.";
  } else if (group.kind == GroupKind::app) {
    j.reason = fmt::format("{} is an app with windows, which may hold unsaved work.", group.name);
  } else {
    j.verdict = QuitVerdict::safe;
    j.reason = !j.ports.empty() ? (p.projectPath ? fmt::format("A dev server of {} with nothing connected to it.",
                                                               folderName(*p.projectPath))
                                                 : std::string("A server with nothing connected to it."))
                                : std::string("A tool of yours that nothing else uses.");
  }
  return j;
}

std::vector<int32_t> QuitCheck::ancestors(const std::vector<AppGroup>& groups, int32_t pid) {
  std::map<int32_t, int32_t> parentOf;
  for (const auto& group : groups)
    for (const auto& p : group.processes) parentOf[p.pid] = p.parentPID;
  std::vector<int32_t> chain;
  while (pid > 1 && chain.size() < 64 && std::count(chain.begin(), chain.end(), pid) == 0) {
    chain.push_back(pid);
    const auto parent = parentOf.find(pid);
    if (parent == parentOf.end()) break;
    pid = parent->second;
  }
  return chain;
}

std::optional<QuitJudgement> QuitCheck::process(int32_t pid) const {
  const auto found = byPID_.find(pid);
  if (found == byPID_.end()) return std::nullopt;
  return judge(*found->second.first, *found->second.second);
}

std::optional<QuitJudgement> QuitCheck::port(uint16_t number) const {
  for (const auto& p : context_.ports) {
    if (p.port != number) continue;
    if (!p.container) return p.process ? process(p.process->pid) : std::nullopt;
    // A container's port is the container's, whatever holds it here: the engine's proxy,
    // seen or not, or nothing when the engine forwards it from a virtual machine.
    QuitJudgement j;
    if (p.process)
      if (auto holder = process(p.process->pid)) j = std::move(*holder);
    j.name = j.pid > 0 ? j.name : p.container->name;
    j.appName = p.container->name;
    j.projectPath = p.container->projectPath;
    if (const auto* c = context_.containers.find(p.container->id)) {
      j.appName = c->displayName();
      j.projectPath = c->composeFolder;
      j.freesBytes = c->memoryInUseBytes.value_or(j.freesBytes);
    }
    j.ports = {number};
    j.connectedFrom = p.connectedFrom;
    return containerPort(p, std::move(j));
  }
  return std::nullopt;
}

QuitJudgement QuitCheck::containerPort(const Port& port, QuitJudgement j) {
  j.verdict = QuitVerdict::doNot;
  j.reason = fmt::format("Port {} is published by the container {}, and Omnira doesn't stop containers.", port.port,
                         port.container->name);
  j.how = port.container->stopCommand;
  return j;
}

std::vector<QuitJudgement> QuitCheck::project(std::string_view pathOrName) const {
  std::vector<QuitJudgement> judged;
  for (const auto& [pid, entry] : byPID_) {
    const auto& path = entry.second->projectPath;
    if (path && (*path == pathOrName || folderName(*path) == pathOrName)) judged.push_back(judge(*entry.first, *entry.second));
  }
  return judged;
}

std::vector<QuitJudgement> QuitCheck::named(std::string_view executable) const {
  std::vector<QuitJudgement> judged;
  for (const auto& [pid, entry] : byPID_)
    if (entry.second->name == executable) judged.push_back(judge(*entry.first, *entry.second));
  return judged;
}

}  // namespace omnira
