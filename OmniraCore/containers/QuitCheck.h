#pragma once
// Whether something can be quit without costing the person anything: each process gets
// a verdict, with the reason, what else would stop with it, what it would free, its ports
// and what on this computer is connected to it.
//
// The rules, first match wins:
//   do_not     pid 0 or 1; Omnira itself; the asking assistant's own process chain;
//              another user's process; the system group and kernel threads; the
//              desktop session's own services; a process in a container, or holding a
//              port a container publishes (the container is to be stopped instead,
//              with the command)
//   ask_first  something on this computer is connected to it right now; a database; a
//              desktop app, whose windows may hold unsaved work
//   safe       the rest: a tool or dev server of the person's with nothing connected
//
// Pure: judges one tick's figures; callers find the target. Any thread.

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "OmniraCore/containers/Ports.h"
#include "OmniraCore/sampling/AppGroup.h"

namespace omnira {

enum class QuitVerdict { safe, askFirst, doNot };
std::string_view rawValue(QuitVerdict verdict);  // "safe", "ask_first", "do_not"

struct StoppedProcess {
  int32_t pid = 0;
  std::string name;
  friend bool operator==(const StoppedProcess&, const StoppedProcess&) = default;
};

struct QuitJudgement {
  int32_t pid = 0;  // 0: a container's port whose holder Omnira cannot see
  std::string name;
  std::string appName;
  std::optional<std::string> projectPath;
  QuitVerdict verdict = QuitVerdict::safe;
  std::string reason;
  std::optional<std::string> how;  // the right way instead, for some do_not verdicts
  std::vector<StoppedProcess> alsoStops;  // what it started, which stops with it
  uint64_t freesBytes = 0;                // its memory and that of what stops with it
  std::vector<uint16_t> ports;
  std::vector<PortProcess> connectedFrom;

  nlohmann::ordered_json toJSON() const;
  friend bool operator==(const QuitJudgement&, const QuitJudgement&) = default;
};

class QuitCheck {
 public:
  struct Context {
    std::vector<AppGroup> groups;  // every group of the tick, the system group included
    std::vector<Port> ports;       // the person's (Port::of)
    uint32_t personUID = 0;
    std::vector<int32_t> omniraPIDs;  // the running application and the asking command
    std::vector<int32_t> askerChain;  // the asking assistant's process and its ancestors
    ContainerSnapshot containers;  // names containers and says how to stop them; may be empty
    std::string systemName = "Linux";
  };

  explicit QuitCheck(Context context);

  // `pid` and its parents up to (not including) pid 1: the asking assistant's chain.
  static std::vector<int32_t> ancestors(const std::vector<AppGroup>& groups, int32_t pid);

  // Nothing when no process has the pid.
  std::optional<QuitJudgement> process(int32_t pid) const;
  // What listens on the port; nothing when nothing of the person's does and no container
  // publishes it.
  std::optional<QuitJudgement> port(uint16_t port) const;
  // Every process working in the project folder (by path or folder name), or every process
  // with the executable name; empty when none.
  std::vector<QuitJudgement> project(std::string_view pathOrName) const;
  std::vector<QuitJudgement> named(std::string_view executable) const;

 private:
  QuitJudgement judge(const AppGroup& group, const ProcessSample& process) const;
  static QuitJudgement containerPort(const Port& port, QuitJudgement j);

  Context context_;
  std::map<int32_t, std::pair<const AppGroup*, const ProcessSample*>> byPID_;
  std::multimap<int32_t, int32_t> children_;  // parent pid → child pid
};

}  // namespace omnira
