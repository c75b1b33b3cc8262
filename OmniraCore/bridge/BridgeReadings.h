#pragma once
// What the bridge's tools answer from: the running store's last readings, gathered on the
// main thread just before a tool runs. Tools never sample.
//
// A plain value, except `history`, which the store owns and which is touched on the main
// thread only, like the tools themselves; absent when the history could not be opened.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "OmniraCore/bridge/AgentSession.h"
#include "OmniraCore/containers/ContainerSnapshot.h"
#include "OmniraCore/containers/Ports.h"
#include "OmniraCore/containers/Projects.h"
#include "OmniraCore/containers/QuitCheck.h"
#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/history/AppLimit.h"
#include "OmniraCore/history/IdleServer.h"
#include "OmniraCore/history/Insight.h"
#include "OmniraCore/history/WorthALook.h"
#include "OmniraCore/sampling/AppGroup.h"
#include "OmniraCore/sampling/SleepBlocker.h"
#include "OmniraCore/sampling/SystemSample.h"
#include "OmniraCore/sensors/SensorSample.h"

namespace omnira {

class HistoryDatabase;

struct BridgeReadings {
  std::optional<SystemSample> system;  // absent until the first tick
  std::optional<SensorSample> sensors;  // the same tick's sensors; absent without any source
  std::vector<AppGroup> groups;        // every group of the last process sample, the system's too
  std::optional<Date> groupsAt;        // when that sample was taken
  std::vector<Project> projects;
  std::vector<Port> ports;
  std::vector<uint16_t> listening;  // every port any process listens on, of any user
  ContainerSnapshot containers;
  std::vector<IdleServer> idleServers;
  std::vector<Insight> insights;
  StrainSince strain;
  std::vector<AppLimit> limits;
  std::vector<AgentSession> agents;
  std::vector<SleepBlocker> sleepBlockers;
  HistoryDatabase* history = nullptr;
  std::string systemName = "Linux";
  uint32_t personUID = 0;
  std::vector<int32_t> omniraPIDs;
  // The asking process and its parents, read when the question came: never to be quit.
  std::vector<int32_t> askerChain;
  bool historyShared = true;  // app_details leaves its history part out otherwise
  double hotCelsius = 90;     // the person's hot limit

  // What the quit check judges by, with `asker`'s process chain (the bridge peer's) spared.
  QuitCheck::Context quitContext(int32_t asker) const {
    QuitCheck::Context context;
    context.groups = groups;
    context.ports = ports;
    context.personUID = personUID;
    context.omniraPIDs = omniraPIDs;
    context.askerChain = askerChain.empty() ? QuitCheck::ancestors(groups, asker) : askerChain;
    context.containers = containers;
    context.systemName = systemName;
    return context;
  }
};

}  // namespace omnira
