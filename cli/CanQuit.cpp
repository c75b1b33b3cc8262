#include "cli/CanQuit.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>

#include "OmniraCore/foundation/JSONText.h"
#include "OmniraCore/foundation/Parse.h"
#include "OmniraCore/foundation/SafeText.h"
#include "cli/Format.h"

namespace omnira::cli {

namespace {

constexpr size_t kStopsNamed = 8;  // the rest are counted; --json lists them all

std::string verdictText(QuitVerdict verdict) {
  switch (verdict) {
    case QuitVerdict::safe: return "safe to quit";
    case QuitVerdict::askFirst: return "ask first";
    case QuitVerdict::doNot: return "do not quit";
  }
  return "do not quit";
}

std::string summary(const std::vector<QuitJudgement>& judged) {
  if (judged.size() < 2) return "";
  const auto all = [&](QuitVerdict v) {
    return std::all_of(judged.begin(), judged.end(), [&](const QuitJudgement& j) { return j.verdict == v; });
  };
  if (all(QuitVerdict::safe)) return "All of them are safe to quit.";
  if (all(QuitVerdict::doNot)) return "None of those can be quit.";
  return "Not all of them are safe to quit: each has its own line.";
}

}  // namespace

std::optional<int32_t> runningOmnira(const AppPaths& paths) {
  // Only a held lock means a running Omnira: the file stays behind after it stops.
  // O_NONBLOCK: a FIFO in its place must not hang the command.
  const int fd = ::open(paths.dataFile("omnira.lock").c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (fd < 0) return std::nullopt;
  std::optional<int32_t> pid;
  if (::flock(fd, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
    char buffer[32] = {};
    const ssize_t got = ::pread(fd, buffer, sizeof buffer - 1, 0);
    if (got > 0) pid = parseNumber<int32_t>(trim(std::string_view(buffer, static_cast<size_t>(got))));
  }
  ::close(fd);
  return pid;
}

std::optional<std::string> CanQuitRequest::mistake() const {
  const int targets = (pid ? 1 : 0) + (pids.empty() ? 0 : 1) + (port ? 1 : 0) + (project ? 1 : 0) + (name ? 1 : 0);
  if (targets == 1) return std::nullopt;
  return targets == 0 ? "Give one of --pid, --pids, --port, --project or an app's or program's name."
                      : "Give only one of --pid, --pids, --port, --project or a name.";
}

int printCanQuit(const QuitCheck& check, const CanQuitRequest& request, std::FILE* out, std::FILE* err) {
  std::vector<QuitJudgement> judged;
  std::optional<std::string> missing;
  if (request.pid || !request.pids.empty()) {
    std::vector<int32_t> pids = request.pids;
    if (request.pid) pids.push_back(*request.pid);
    for (const int32_t pid : pids) {
      if (auto j = check.process(pid)) {
        judged.push_back(std::move(*j));
      } else {
        missing = fmt::format("No process Omnira can see has PID {}.", pid);
      }
    }
  } else if (request.port) {
    if (auto j = check.port(*request.port)) judged.push_back(std::move(*j));
    else if (request.portListened)
      missing = fmt::format("Port {} is held by a process Omnira cannot see or that is not yours.", *request.port);
    else
      missing = fmt::format("Nothing listens on port {}.", *request.port);
  } else if (request.project) {
    judged = check.project(*request.project);
    if (judged.empty()) missing = fmt::format("Nothing is running in a project folder called \"{}\".", terminalText(*request.project));
  } else if (request.name) {
    judged = check.named(*request.name);
    if (judged.empty()) missing = fmt::format("No process called \"{}\" is running.", terminalText(*request.name));
  }
  if (missing && judged.empty()) {
    fmt::print(err, "{}\n", *missing);
    return 1;
  }

  if (request.json) {
    nlohmann::ordered_json json;
    auto& list = json["verdicts"] = nlohmann::ordered_json::array();
    for (const auto& j : judged) list.push_back(j.toJSON());
    if (const auto line = summary(judged); !line.empty()) json["summary"] = line;
    if (missing) json["not_found"] = *missing;
    fmt::print(out, "{}\n", jsonText(json, 2));
    return 0;
  }
  for (const auto& j : judged) {
    fmt::print(out, "{} ({}), {}: {}. {}\n", terminalText(j.name), j.pid, terminalText(j.appName), verdictText(j.verdict),
               terminalText(j.reason));
    std::string details;
    if (!j.alsoStops.empty()) {
      std::string stops;
      const size_t named = std::min(j.alsoStops.size(), kStopsNamed);
      for (size_t i = 0; i < named; ++i)
        stops += (stops.empty() ? "" : ", ") + fmt::format("{} ({})", terminalText(j.alsoStops[i].name), j.alsoStops[i].pid);
      if (named < j.alsoStops.size()) stops += fmt::format(" and {} more", j.alsoStops.size() - named);
      details += "Also stops " + stops + ". ";
    }
    details += "Frees " + bytes(j.freesBytes) + ".";
    if (!j.ports.empty()) {
      std::string ports;
      for (const auto port : j.ports) ports += (ports.empty() ? ":" : ", :") + std::to_string(port);
      details += " Ports " + ports + ".";
    }
    if (j.how) details += " Instead: " + terminalText(*j.how);
    fmt::print(out, "  {}\n", details);
  }
  if (const auto line = summary(judged); !line.empty()) fmt::print(out, "{}\n", line);
  if (missing) fmt::print(err, "{}\n", *missing);
  return 0;
}

}  // namespace omnira::cli
