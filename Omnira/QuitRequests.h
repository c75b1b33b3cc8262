#pragma once
// Agents' quit requests (the tools quit, quit_app and stop_process): nothing is quit on an
// agent's word alone. In order: quitting switched off; the target judged as can_quit
// judges it; do_not refused with the right way instead; of a project or a bare name only
// what is safe, the rest left running and said so; several pids only when all are safe;
// one request at a time; safe requests in a folder the person allowed done without asking;
// otherwise the person's panel, a minute at most, and the answer: yes (or yes and don't ask
// again for that folder), no, or none. Force only after a yes, for something still running a
// few seconds later, and never after a no; it asks again. Every request and what came of it
// goes into the action log.
//
// Main thread only: a QObject whose waits are the event loop's timers. The parts are given
// so that tests drive the flow with a panel and actions of their own and a short minute.

#include <QObject>
#include <QTimer>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "Omnira/ProcessActions.h"
#include "Omnira/QuitRequestPanel.h"
#include "OmniraCore/bridge/ActionLog.h"
#include "OmniraCore/bridge/BridgeAnswers.h"
#include "OmniraCore/bridge/BridgeReadings.h"
#include "OmniraCore/foundation/Settings.h"

namespace omnira {

class QuitRequests : public QObject {
  Q_OBJECT

 public:
  using json = nlohmann::ordered_json;
  using Reply = std::function<void(json reply)>;

  static constexpr const char* kActionsOff = BridgeAnswers::kActionsOff;
  static constexpr const char* kAlreadyAsking =
      "Omnira is already asking the person about another request. Wait for their answer, then ask again.";
  static constexpr const char* kNotAllSafe =
      "Those are not safe to quit without asking. Ask to quit one at a time, by pid, so the person is asked about "
      "each.";
  static constexpr const char* kAllowedNote =
      "The person allows safe requests in this project folder without being asked.";
  static constexpr const char* kAppNotGone =
      "It was asked to quit and has not gone yet. It may be asking the person to save something. Check again with "
      "can_quit before trying anything else.";
  static constexpr const char* kProcessNotGone =
      "It was asked to exit and has not gone yet. Give it a few seconds; if it is still there, quit with force asks "
      "the person again.";
  static constexpr const char* kUnanswered =
      "Nobody answered Omnira within a minute, so nothing was quit. They may be away. Tell them what you wanted to "
      "quit and why, and ask again when they are back.";
  static constexpr const char* kForceFirst =
      "Force is only for something the person already said yes to quitting through Omnira, and that is still "
      "running a few seconds later. Call quit without force first.";
  static constexpr const char* kNobodyToAsk =
      "Nobody can be asked on this computer: Omnira has no window to show the request in and no desktop "
      "notifications to ask with. Tell the person what you would quit and why, and let them do it.";

  struct Parts {
    // The store's readings when a request comes; `peer` is the asking connection's pid.
    std::function<BridgeReadings(int32_t peer)> readings;
    // Who asks, by name, from the peer's process chain ("Claude Code").
    std::function<std::string(const BridgeReadings&, int32_t peer)> asker;
    std::shared_ptr<ProcessActions> actions;
    // A panel for one request; null when nobody can be asked.
    std::function<std::unique_ptr<QuitRequestPanel>()> panel;
    ActionLog log{"requests.json"};
    std::function<Settings()> settings;
    // Adds a folder to "bridgeAllowedProjects"; a failure is a sentence.
    std::function<std::optional<std::string>(const std::string& folder)> allowFolder;
    std::function<Date()> clock;
    std::chrono::milliseconds wait{60'000};     // how long the person has
    std::chrono::milliseconds settle{2'000};    // before "has it gone?" is looked at
    std::chrono::milliseconds forceAfter{3'000};  // a yes's target must outlive this for force
  };

  explicit QuitRequests(Parts parts, QObject* parent = nullptr);
  ~QuitRequests() override;

  // The bridge's quit handler: answers through `reply`, now or when the person has.
  void handle(const std::string& tool, const json& arguments, int32_t peer, Reply reply);
  bool isAsking() const { return asking_.has_value(); }
  // The open panel, for tests.
  QuitRequestPanel* panel() const { return panel_.get(); }

 private:
  struct Target;
  struct Asking;
  // Logs the request's outcome, then answers the asker.
  void finish(const Target& target, const std::string& asker, ActionRecord::Outcome outcome, bool forced,
              const Reply& reply, json answer);
  // Quits the target, and answers once it has had a moment to go.
  void act(std::shared_ptr<Target> target, std::string asker, bool forced, Reply reply, json result);
  void answered(QuitAnswer answer);
  std::optional<std::string> resolve(const std::string& tool, const json& arguments, const BridgeReadings& readings,
                                     int32_t peer, Target& target) const;

  Parts parts_;
  std::optional<std::shared_ptr<Asking>> asking_;
  std::unique_ptr<QuitRequestPanel> panel_;
  json pendingExtra_;  // notes for the reply of the request being asked about
  QTimer timeout_;
  // What the person said per target this session: a yes with its time, or a no.
  struct Said {
    bool yes = false;
    Date at{};
  };
  std::map<std::string, Said> said_;
};

}  // namespace omnira
