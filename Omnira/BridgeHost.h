#pragma once
// The bridge in the running application: listens while "bridgeEnabled" is on, answers each
// request on the main thread, one at a time, from the store's readings, and keeps the
// person's rate limit: at most 120 answered requests in any sliding minute.
//
// A request passes, in order: still starting (no store yet), the rate limit (a refused
// request does not count), `lastAsked`, the tool's name, the person's sharing settings,
// then the tool. The quit tools go to the quit handler, which decides with the person;
// without one they are refused with a sentence.
//
// Its state (listening, why it could not start, when it was last asked) is kept in
// "Omnira/bridge.json" for `omnira settings` to show; the file is removed when it stops.
//
// Threads: a QObject of the main thread; every member is touched there only. The listener's
// threads reach it through queued calls, and replies go back through the listener.

#include <QObject>
#include <QPointer>
#include <QTimer>

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "OmniraCore/bridge/AgentSessions.h"
#include "OmniraCore/bridge/BridgeAnswers.h"
#include "OmniraCore/bridge/BridgeListener.h"
#include "OmniraCore/bridge/BridgeReadings.h"
#include "OmniraCore/foundation/AppPaths.h"
#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/foundation/Settings.h"

namespace omnira {

class MonitorStore;

class BridgeHost : public QObject {
  Q_OBJECT

 public:
  using json = nlohmann::ordered_json;
  // Answers a quit tool, now or later, through `reply`, on the main thread.
  using QuitHandler = std::function<void(const std::string& tool, const json& arguments, int32_t peer,
                                         std::function<void(json reply)> reply)>;

  static constexpr size_t kPerMinute = 120;
  static constexpr const char* kStarting = "Omnira is still starting. Try again in a moment.";
  static constexpr const char* kTooMany =
      "Too many questions in a minute. The figures change every few seconds at most; wait a little.";
  static constexpr const char* kActionsOff = BridgeAnswers::kActionsOff;
  static constexpr const char* kCannotQuitYet =
      "Omnira cannot ask the person about quitting here. Tell them what you would quit and why, and let them do it.";

  struct Options {
    AppPaths paths;
    std::string systemName = "Linux";
    std::string socketPath;  // empty: BridgeSocket::path(paths)
    std::function<Date()> clock;  // empty: the system clock
  };

  BridgeHost(Options options, Settings settings, QObject* parent = nullptr);
  ~BridgeHost() override;

  // The store whose readings the tools answer from; until then requests are "still starting".
  void attach(MonitorStore* store) { store_ = store; }
  // Starts or stops listening as "bridgeEnabled" says, and takes the sharing settings.
  void applySettings(const Settings& settings);
  void stop();
  void setQuitHandler(QuitHandler handler) { quitHandler_ = std::move(handler); }

  bool isListening() const { return listener_ && listener_->isListening(); }
  const std::optional<std::string>& failure() const { return failure_; }
  std::optional<Date> lastAsked() const { return lastAsked_; }
  const std::string& socketPath() const { return socketPath_; }

  // One request, as the socket brings it; `reply` gets the answer, now or (quit) later.
  void answer(const json& request, int32_t peer, const std::function<void(json reply)>& reply);

  // The store's readings as the tools see them; `tool` adds what only it needs (agent
  // sessions, sleep blockers), `peer` the asking process's chain. Needs an attached store.
  BridgeReadings readings(const std::string& tool, Date now, int32_t peer);
  // Who is asking: the agent whose session holds the peer, else the program above it.
  std::string askerName(const BridgeReadings& readings, int32_t peer, Date now);

 signals:
  void stateChanged();

 private:
  json run(const std::string& tool, const json& arguments, int32_t peer, Date now);
  void writeState();
  void wantDetails(bool containers);

  Options options_;
  Settings settings_;
  std::string socketPath_;
  std::unique_ptr<BridgeListener> listener_;
  std::optional<std::string> failure_;
  std::optional<Date> lastAsked_;
  std::deque<Date> recent_;
  MonitorStore* store_ = nullptr;
  QuitHandler quitHandler_;
  AgentSessions agents_;
  QTimer detailsWanted_;  // withdraws the details the bridge asked the store for
  bool watching_ = false;  // counted among the store's viewers
  QTimer stateSave_;      // lastAsked reaches the state file at most every few seconds
};

}  // namespace omnira
