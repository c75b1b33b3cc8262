#include "Omnira/BridgeHost.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>

#include <spdlog/spdlog.h>

#include "Omnira/MonitorStore.h"
#include "OmniraCore/bridge/Bridge.h"
#include "OmniraCore/bridge/BridgeAnswers.h"
#include "OmniraCore/bridge/BridgeSharing.h"
#include "OmniraCore/containers/QuitCheck.h"
#include "OmniraCore/foundation/AtomicFile.h"
#include "OmniraCore/foundation/JSONText.h"
#include "OmniraCore/foundation/SettingsKeys.h"
#include "OmniraCore/platform/linux/ProcessChain.h"
#include "OmniraCore/platform/linux/SleepBlockers.h"

namespace omnira {

namespace {

constexpr const char* kStateFile = "bridge.json";
// After its last question the bridge keeps the store scanning projects every tick and
// measuring containers for this long, so follow-up questions get fresh figures.
constexpr int kDetailsMilliseconds = 5 * 60 * 1000;

std::optional<std::string> environment(const std::string& name) {
  const char* value = std::getenv(name.c_str());
  return value ? std::optional<std::string>(value) : std::nullopt;
}

}  // namespace

BridgeHost::BridgeHost(Options options, Settings settings, QObject* parent)
    : QObject(parent), options_(std::move(options)), settings_(std::move(settings)),
      agents_(AgentSessions::Config::fromEnvironment(environment)) {
  socketPath_ = options_.socketPath.empty() ? BridgeSocket::path(options_.paths).string() : options_.socketPath;
  if (!options_.clock) options_.clock = [] { return std::chrono::system_clock::now(); };
  detailsWanted_.setSingleShot(true);
  connect(&detailsWanted_, &QTimer::timeout, this, [this] {
    if (!store_) return;
    store_->requestDetails("bridge", {});
    store_->requestContainers("bridge", false);
    if (std::exchange(watching_, false)) store_->viewerDisappeared();
  });
  stateSave_.setSingleShot(true);
  stateSave_.setInterval(5000);
  connect(&stateSave_, &QTimer::timeout, this, &BridgeHost::writeState);
}

BridgeHost::~BridgeHost() { stop(); }

void BridgeHost::applySettings(const Settings& settings) {
  settings_ = settings;
  const bool wanted = settings_.boolean(SettingsKeys::bridgeEnabled);
  if (wanted && !listener_) {
    // The listener's threads hand each request to this thread; the reply goes back from here.
    auto listener = std::make_unique<BridgeListener>(
        socketPath_, [self = QPointer<BridgeHost>(this)](json request, int32_t peer, BridgeListener::Reply reply) {
          QMetaObject::invokeMethod(
              self.data(),
              [self, request = std::move(request), peer, reply = std::move(reply)] {
                if (self) self->answer(request, peer, [reply](json answer) { reply(answer); });
              },
              Qt::QueuedConnection);
        });
    if (auto started = listener->start()) {
      listener_ = std::move(listener);
      failure_.reset();
      spdlog::info("The bridge listens at {}", socketPath_);
    } else {
      failure_ = started.error().message.value_or("The bridge could not start.");
      spdlog::error("The bridge could not start: {}", *failure_);
    }
    writeState();
    emit stateChanged();
  } else if (!wanted && listener_) {
    stop();
    emit stateChanged();
  } else if (!wanted && failure_) {
    failure_.reset();
    writeState();
    emit stateChanged();
  }
}

void BridgeHost::stop() {
  if (listener_) {
    listener_->stop();
    listener_.reset();
    spdlog::info("The bridge stopped listening");
  }
  stateSave_.stop();
  std::error_code ignored;
  std::filesystem::remove(options_.paths.dataFile(kStateFile), ignored);
}

void BridgeHost::writeState() {
  json state;
  state["listening"] = isListening();
  state["socket"] = socketPath_;
  state["failure"] = failure_ ? json(*failure_) : json();
  state["lastAsked"] = lastAsked_ ? json(formatISO8601(*lastAsked_)) : json();
  state["pid"] = ::getpid();
  if (auto written = AtomicFile::write(options_.paths.dataFile(kStateFile), jsonText(state, 2) + "\n"); !written)
    spdlog::warn("Could not save the bridge's state: {}", written.error().message);
}

void BridgeHost::answer(const json& request, int32_t peer, const std::function<void(json reply)>& reply) {
  const Date now = options_.clock();
  if (!store_) return reply(BridgeAnswers::refused(kStarting));
  while (!recent_.empty() && now - recent_.front() > std::chrono::seconds(60)) recent_.pop_front();
  if (recent_.size() >= kPerMinute) return reply(BridgeAnswers::refused(kTooMany));
  recent_.push_back(now);
  lastAsked_ = now;
  if (!stateSave_.isActive()) stateSave_.start();

  const auto tool = request.is_object() && request.contains("tool") && request["tool"].is_string()
                        ? request["tool"].get<std::string>()
                        : std::string();
  const json arguments = request.is_object() && request.contains("arguments") && request["arguments"].is_object()
                             ? request["arguments"]
                             : json::object();
  if (!Bridge::isTool(tool)) return reply(BridgeAnswers::refused("Omnira has no tool called “" + tool + "”."));
  const auto sharing = BridgeSharing::from(settings_);
  if (auto refusal = sharing.refusal(tool, arguments)) return reply(BridgeAnswers::refused(*refusal));

  wantDetails(tool == "containers");
  if (Bridge::isAction(tool)) {
    // The quit handler decides with the person, and logs even what it refuses.
    if (quitHandler_) return quitHandler_(tool, arguments, peer, reply);
    if (!settings_.boolean(SettingsKeys::bridgeActionsEnabled)) return reply(BridgeAnswers::refused(kActionsOff));
    return reply(BridgeAnswers::refused(kCannotQuitYet));
  }
  auto answered = run(tool, arguments, peer, now);
  if (answered.value("ok", false)) answered["result"] = sharing.applied(std::move(answered["result"]));
  reply(std::move(answered));
}

BridgeReadings BridgeHost::readings(const std::string& tool, Date now, int32_t peer) {
  const MonitorStore& store = *store_;
  BridgeReadings r;
  r.system = store.system();
  r.sensors = store.sensors();
  r.groups = store.allGroups();
  r.groupsAt = store.groupsAt();
  r.projects = store.projects();
  r.ports = store.ports();
  r.listening = store.listening();
  r.containers = store.containers();
  r.idleServers = store.idleServers();
  r.insights = store.insights();
  r.strain = store.strainSince();
  r.limits = SettingsKeys::appLimits(settings_);
  r.history = store.history();
  r.systemName = options_.systemName;
  r.personUID = static_cast<uint32_t>(::geteuid());
  r.omniraPIDs = {::getpid()};
  r.historyShared = settings_.boolean(SettingsKeys::bridgeSharesHistory);
  r.hotCelsius = settings_.number(SettingsKeys::insightHotCelsius);
  for (const auto& [pid, name] : platform::processChain(peer)) r.askerChain.push_back(pid);
  if (tool == "agents") r.agents = agents_.sessions(r.groups, now);
  if (tool == "whats_wrong") r.sleepBlockers = platform::readSleepBlockers();
  return r;
}

std::string BridgeHost::askerName(const BridgeReadings& r, int32_t peer, Date now) {
  const auto chain = platform::processChain(peer);
  for (const auto& session : agents_.sessions(r.groups, now))
    for (const auto& [pid, name] : chain)
      if (pid == session.pid) return session.agentName;
  // No agent above it: the program that started the client, by its name.
  for (size_t i = 1; i < chain.size(); ++i)
    if (chain[i].second != "omnira") return chain[i].second;
  return "An assistant";
}

BridgeHost::json BridgeHost::run(const std::string& tool, const json& arguments, int32_t peer, Date now) {
  return BridgeAnswers::respond(tool, arguments, readings(tool, now, peer), peer, now);
}

void BridgeHost::wantDetails(bool containers) {
  // An agent that asks once tends to ask again, often about what it just started: while it
  // does, the store samples as for a window with live figures (processes every tick), scans
  // projects and ports on every tick, and measures containers.
  if (!std::exchange(watching_, true)) store_->viewerAppeared();
  store_->requestDetails("bridge", {.network = true, .projects = true});
  if (containers) store_->requestContainers("bridge", true);
  detailsWanted_.start(kDetailsMilliseconds);
}

}  // namespace omnira
