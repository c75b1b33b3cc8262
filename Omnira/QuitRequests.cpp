#include "Omnira/QuitRequests.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>
#include <set>

#include <spdlog/spdlog.h>

#include "OmniraCore/containers/QuitCheck.h"
#include "OmniraCore/foundation/Parse.h"
#include "OmniraCore/foundation/SettingsKeys.h"

namespace omnira {

namespace {

using json = nlohmann::ordered_json;
using Outcome = ActionRecord::Outcome;

json refusal(const std::string& sentence) { return json{{"ok", false}, {"error", sentence}}; }
json result(json value) { return json{{"ok", true}, {"result", std::move(value)}}; }

std::string label(const QuitJudgement& j) { return fmt::format("{} ({})", j.name, j.pid); }

int rank(std::string_view verdict) { return verdict == "do_not" ? 2 : verdict == "ask_first" ? 1 : 0; }

std::string doNotSentence(const QuitJudgement& j) { return j.how ? j.reason + " Stop it with: " + *j.how : j.reason; }

std::optional<int64_t> whole(const json& value) {
  if (value.is_number_integer()) return value.get<int64_t>();
  if (value.is_number_float() && std::trunc(value.get<double>()) == value.get<double>() && std::fabs(value.get<double>()) < 9e15)
    return static_cast<int64_t>(value.get<double>());
  return std::nullopt;
}

// An app by its name, as can_quit finds one: its own name in any case, else the only one
// holding the name.
const AppGroup* appNamed(const std::vector<AppGroup>& groups, const std::string& name, bool exactOnly) {
  const auto wanted = lowered(name);
  for (const auto& g : groups)
    if (lowered(g.name) == wanted) return &g;
  if (exactOnly) return nullptr;
  const AppGroup* found = nullptr;
  for (const auto& g : groups)
    if (lowered(g.name).find(wanted) != std::string::npos) {
      if (found) return nullptr;
      found = &g;
    }
  return found;
}

}  // namespace

struct QuitRequests::Target {
  std::string key;   // what the person's answers are remembered by
  std::string text;  // "node (4242)", "Firefox", "2 processes in shop"
  std::string verdict = "safe";
  bool isApp = false;
  std::optional<std::string> appID;
  std::vector<QuitJudgement> judged;       // what is to be quit
  std::vector<QuitJudgement> leftRunning;  // of a project or a name: what is not safe
  std::vector<int32_t> others;             // an app's processes that stop with its main ones
  std::optional<std::string> folder;       // the one project folder they all work in
};

struct QuitRequests::Asking {
  std::shared_ptr<Target> target;
  std::string asker;
  bool force = false;
  Reply reply;
  Date startedAt{};
};

QuitRequests::QuitRequests(Parts parts, QObject* parent) : QObject(parent), parts_(std::move(parts)) {
  if (!parts_.clock) parts_.clock = [] { return std::chrono::system_clock::now(); };
  timeout_.setSingleShot(true);
  connect(&timeout_, &QTimer::timeout, this, [this] { answered(QuitAnswer::none); });
}

QuitRequests::~QuitRequests() {
  timeout_.stop();
  if (panel_) panel_->close();
}

void QuitRequests::finish(const Target& target, const std::string& asker, Outcome outcome, bool forced,
                          const Reply& reply, json answer) {
  ActionRecord record;
  record.id = UUID::random();
  record.date = parts_.clock();
  record.asker = asker;
  record.target = target.text;
  record.verdict = target.verdict;
  record.outcome = outcome;
  record.forced = forced;
  ActionRecord::Detail detail;
  double memory = 0;
  for (const auto& j : target.judged) {
    if (!detail.reason) detail.reason = j.reason;
    for (const auto& s : j.alsoStops) detail.alsoStops.push_back(fmt::format("{} ({})", s.name, s.pid));
    detail.ports.insert(detail.ports.end(), j.ports.begin(), j.ports.end());
    for (const auto& c : j.connectedFrom) detail.connectedFrom.push_back(fmt::format("{} ({})", c.name, c.pid));
    memory += static_cast<double>(j.freesBytes) / 1e6;
    if (target.judged.size() > 1) detail.items.push_back(label(j) + ": " + std::string(rawValue(j.verdict)) + ", " + j.reason);
  }
  // A refusal's own sentence is its reason.
  if (answer.value("ok", true) == false) detail.reason = answer.value("error", std::string());
  if (memory > 0) detail.memoryMB = std::round(memory * 10) / 10;
  record.detail = std::move(detail);
  if (auto added = parts_.log.add(record, record.date); !added)
    spdlog::error("The quit request could not be logged: {}", added.error().message);
  reply(std::move(answer));
}

std::optional<std::string> QuitRequests::resolve(const std::string& tool, const json& arguments,
                                                 const BridgeReadings& r, int32_t peer, Target& target) const {
  const auto has = [&](const char* key) { return arguments.contains(key) && !arguments[key].is_null(); };
  const auto text = [&](const char* key) -> std::optional<std::string> {
    return has(key) && arguments[key].is_string() ? std::optional(std::string(trim(arguments[key].get<std::string>())))
                                                  : std::nullopt;
  };
  for (const char* key : {"name", "project"})
    if (has(key) && !arguments[key].is_string()) return fmt::format("Give {} as a text.", key);
  for (const char* key : {"pid", "port"})
    if (has(key) && !whole(arguments[key])) return fmt::format("Give {} as a whole number.", key);
  if (has("pids") && (!arguments["pids"].is_array() ||
                      std::any_of(arguments["pids"].begin(), arguments["pids"].end(), [](const json& p) { return !whole(p); })))
    return "Give pids as a list of whole numbers.";

  const QuitCheck check(r.quitContext(peer));

  const auto single = [&](std::optional<QuitJudgement> j, const std::string& missing) -> std::optional<std::string> {
    if (!j) return missing;
    target.text = label(*j);
    target.key = fmt::format("pid:{}", j->pid);
    target.judged = {std::move(*j)};
    return std::nullopt;
  };
  // A project or a bare name: only what is safe goes; the rest stays and is named.
  const auto onlySafe = [&](std::vector<QuitJudgement> all, const std::string& where) -> std::optional<std::string> {
    if (all.empty()) return "Nothing of the person's is running " + where;
    for (auto& j : all) (j.verdict == QuitVerdict::safe ? target.judged : target.leftRunning).push_back(std::move(j));
    if (target.judged.empty()) {
      std::string why;
      for (const auto& j : target.leftRunning) why += (why.empty() ? "" : " ") + label(j) + ": " + j.reason;
      return "Nothing " + where.substr(0, where.size() - 1) + " is safe to quit without asking. " + why +
             " Ask to quit one at a time, by pid, so the person is asked about each.";
    }
    std::vector<int32_t> pids;
    for (const auto& j : target.judged) pids.push_back(j.pid);
    std::sort(pids.begin(), pids.end());
    target.key = "pids:" + fmt::format("{}", fmt::join(pids, ","));
    target.text = target.judged.size() == 1 ? label(target.judged[0])
                                            : fmt::format("{} processes {}", target.judged.size(), where.substr(0, where.size() - 1));
    return std::nullopt;
  };

  if (tool == "stop_process") {
    if (!has("pid")) return "Give the process's PID.";
    const auto pid = *whole(arguments["pid"]);
    return single(check.process(static_cast<int32_t>(pid)), fmt::format("No process Omnira can see has PID {}.", pid));
  }
  const bool app = tool == "quit_app";
  if (app && !text("name")) return "Give the app's name.";
  const int given = (has("name") ? 1 : 0) + (has("pid") ? 1 : 0) + (has("pids") ? 1 : 0) + (has("port") ? 1 : 0) +
                    (has("project") ? 1 : 0);
  if (!app && given != 1) return "Give one of: name (an app), pid, pids, port or project.";

  if (has("pid")) {
    const auto pid = *whole(arguments["pid"]);
    return single(check.process(static_cast<int32_t>(pid)), fmt::format("No process Omnira can see has PID {}.", pid));
  }
  if (has("port")) {
    const auto port = *whole(arguments["port"]);
    auto j = check.port(static_cast<uint16_t>(std::clamp<int64_t>(port, 0, 65535)));
    if (j && j->pid == 0) return doNotSentence(*j);  // a container's, held where Omnira cannot reach
    return single(std::move(j), fmt::format("Nothing of the person's is running on port {}.", port));
  }
  if (has("pids")) {
    std::vector<int32_t> pids;
    for (const auto& p : arguments["pids"]) pids.push_back(static_cast<int32_t>(*whole(p)));
    if (pids.empty()) return "Give one of: name (an app), pid, pids, port or project.";
    if (pids.size() > 20) return "Give at most 20 pids.";
    for (const int32_t pid : pids) {
      auto j = check.process(pid);
      if (!j) return fmt::format("No process Omnira can see has PID {}.", pid);
      target.judged.push_back(std::move(*j));
    }
    std::sort(pids.begin(), pids.end());
    target.key = "pids:" + fmt::format("{}", fmt::join(pids, ","));
    target.text = target.judged.size() == 1 ? label(target.judged[0])
                                            : label(target.judged[0]) + fmt::format(" and {} more", target.judged.size() - 1);
    return std::nullopt;
  }
  if (has("project")) {
    std::string wanted = *text("project");
    auto judged = check.project(wanted);
    if (judged.empty())
      for (const auto& p : r.projects)
        if (p.matches(wanted)) {
          judged = check.project(p.path);
          wanted = p.name;
          break;
        }
    return onlySafe(std::move(judged), "in a project folder called “" + wanted + "”.");
  }
  const std::string name = *text("name");
  const AppGroup* group = appNamed(r.groups, name, /*exactOnly=*/!app);
  if (!group && !app) {
    if (auto named = check.named(name); !named.empty()) return onlySafe(std::move(named), "called “" + name + "”.");
    group = appNamed(r.groups, name, false);
  }
  if (!group) return "No running app matches “" + name + "”. Use top_apps to see what is running.";
  // An app goes the way it would quit for the person: its main processes, the rest with them.
  std::set<int32_t> inApp;
  for (const auto& p : group->processes) inApp.insert(p.pid);
  for (const auto& p : group->processes) {
    if (!inApp.contains(p.parentPID)) {
      if (auto j = check.process(p.pid)) target.judged.push_back(std::move(*j));
    } else {
      target.others.push_back(p.pid);
    }
  }
  if (target.judged.empty()) return "No running app matches “" + name + "”. Use top_apps to see what is running.";
  target.isApp = group->kind == GroupKind::app;
  if (group->bundlePath) {
    auto file = group->bundlePath->substr(group->bundlePath->find_last_of('/') + 1);
    if (file.ends_with(".desktop")) file.resize(file.size() - 8);
    target.appID = file;
  }
  target.text = group->name;
  target.key = "app:" + group->id;
  return std::nullopt;
}

void QuitRequests::handle(const std::string& tool, const json& arguments, int32_t peer, Reply reply) {
  const BridgeReadings readings = parts_.readings(peer);
  const std::string asker = parts_.asker ? parts_.asker(readings, peer) : std::string("An assistant");
  auto target = std::make_shared<Target>();
  const json args = arguments.is_object() ? arguments : json::object();
  target->text = args.contains("name") && args["name"].is_string() ? args["name"].get<std::string>() : args.dump();
  const auto refuse = [&](const std::string& sentence, bool forced) {
    finish(*target, asker, Outcome::refused, forced, reply, refusal(sentence));
  };
  if (args.contains("force") && !args["force"].is_null() && !args["force"].is_boolean())
    return refuse("Give force as true or false.", false);
  const bool force = args.value("force", false);

  const Settings settings = parts_.settings ? parts_.settings() : Settings();
  if (!settings.boolean(SettingsKeys::bridgeActionsEnabled)) return refuse(kActionsOff, force);
  if (readings.groups.empty()) return refuse("Omnira has no reading yet. Try again in a moment.", force);
  if (auto mistake = resolve(tool, args, readings, peer, *target)) return refuse(*mistake, force);

  // The verdict of the whole is its worst part; do_not is refused with the right way instead.
  for (const auto& j : target->judged) {
    if (rank(rawValue(j.verdict)) > rank(target->verdict)) target->verdict = std::string(rawValue(j.verdict));
    if (j.verdict == QuitVerdict::doNot) return refuse(doNotSentence(j), force);
  }
  if (target->judged.size() > 1 && target->verdict != "safe" && args.contains("pids")) return refuse(kNotAllSafe, force);
  std::set<std::string> folders;
  for (const auto& j : target->judged) folders.insert(j.projectPath.value_or(""));
  if (folders.size() == 1 && !folders.begin()->empty()) target->folder = *folders.begin();

  json extra;
  if (!target->leftRunning.empty()) {
    std::string left;
    for (const auto& j : target->leftRunning) left += (left.empty() ? "" : ", ") + label(j);
    extra["left_running_note"] = "Left running, because they are not safe to quit: " + left + ".";
  }

  // Force: only for what the person said yes to and that outlived the yes; never past a no.
  if (force) {
    const auto said = said_.find(target->key);
    if (said != said_.end() && !said->second.yes)
      return refuse("The person said no to quitting " + target->text +
                        ", and force is not a way round a no. Leave it running unless they bring it up again.",
                    true);
    const bool running = std::any_of(target->judged.begin(), target->judged.end(),
                                     [&](const QuitJudgement& j) { return parts_.actions->isRunning(j.pid); });
    if (said == said_.end() || !running || parts_.clock() - said->second.at < parts_.forceAfter)
      return refuse(kForceFirst, true);
  }
  if (asking_) return refuse(kAlreadyAsking, force);

  if (!force && target->verdict == "safe" && target->folder) {
    const auto allowed = settings.json(SettingsKeys::bridgeAllowedProjects);
    if (allowed.is_array() && std::count(allowed.begin(), allowed.end(), *target->folder) > 0) {
      extra["asked_person_note"] = kAllowedNote;
      return act(target, asker, false, std::move(reply), std::move(extra));
    }
  }

  panel_ = parts_.panel ? parts_.panel() : nullptr;
  if (!panel_) {
    finish(*target, asker, Outcome::unanswered, force, reply, refusal(kNobodyToAsk));
    return;
  }
  QuitPlan plan;
  plan.asker = asker;
  plan.target = target->text;
  plan.safe = target->verdict == "safe";
  plan.reason = target->judged.size() == 1 ? target->judged[0].reason : std::string();
  double memory = 0;
  for (const auto& j : target->judged) {
    memory += static_cast<double>(j.freesBytes) / 1e6;
    for (const auto& s : j.alsoStops) plan.alsoStops.push_back(fmt::format("{} ({})", s.name, s.pid));
  }
  plan.freesMB = memory;
  plan.leftRunning = target->leftRunning.size();
  plan.folder = target->folder;
  plan.force = force;
  asking_ = std::make_shared<Asking>(Asking{target, asker, force, std::move(reply), parts_.clock()});
  (*asking_)->target = target;
  pendingExtra_ = std::move(extra);
  timeout_.start(parts_.wait);
  panel_->ask(plan, [this](QuitAnswer answer) { answered(answer); });
}

void QuitRequests::answered(QuitAnswer answer) {
  if (!asking_) return;
  timeout_.stop();
  auto asking = *asking_;
  asking_.reset();
  // The panel goes after this call returns: it may be what is calling.
  if (panel_) {
    panel_->close();
    QTimer::singleShot(0, this, [panel = std::shared_ptr<QuitRequestPanel>(std::move(panel_))] {});
  }
  json extra = std::move(pendingExtra_);
  pendingExtra_ = json();
  const Target& target = *asking->target;
  const double seconds = std::chrono::duration<double>(parts_.clock() - asking->startedAt).count();
  if (answer == QuitAnswer::none) {
    json value{{"outcome", "unanswered"}, {"target", target.text}, {"verdict", target.verdict}, {"note", kUnanswered}};
    return finish(target, asking->asker, Outcome::unanswered, asking->force, asking->reply, result(std::move(value)));
  }
  extra["person_answered_after_seconds"] = std::round(seconds * 10) / 10;
  if (answer == QuitAnswer::no) {
    said_[target.key] = Said{false, parts_.clock()};
    json value{{"outcome", "declined"},
               {"target", target.text},
               {"verdict", target.verdict},
               {"note", "The person said no, so " + target.text + " keeps running. Don't quit " + target.text +
                            " another way, and don't ask again unless they bring it up in a new message."}};
    value.update(extra);
    return finish(target, asking->asker, Outcome::declined, asking->force, asking->reply, result(std::move(value)));
  }
  said_[target.key] = Said{true, parts_.clock()};
  if (answer == QuitAnswer::quitAndAllowFolder && target.folder && parts_.allowFolder) {
    if (auto failed = parts_.allowFolder(*target.folder)) extra["allow_folder_note"] = *failed;
    else extra["asked_person_note"] = "The person said yes, and not to ask again for safe requests in this project folder.";
  }
  act(asking->target, asking->asker, asking->force, std::move(asking->reply), std::move(extra));
}

void QuitRequests::act(std::shared_ptr<Target> target, std::string asker, bool forced, Reply reply, json extra) {
  std::vector<std::string> problems;
  std::vector<int32_t> asked;
  if (target->isApp) {
    std::vector<int32_t> mains;
    for (const auto& j : target->judged) mains.push_back(j.pid);
    const auto how = parts_.actions->quitApp(mains, target->others, target->appID, forced);
    if (how == ProcessActions::AppQuit::refused || how == ProcessActions::AppQuit::failed)
      problems.push_back(fmt::format("{} ({}) could not be stopped.", target->text, mains.front()));
    else
      asked = mains;
  } else {
    for (const auto& j : target->judged) {
      std::vector<int32_t> below;
      for (const auto& s : j.alsoStops) below.push_back(s.pid);
      const auto sent = parts_.actions->signal(j.pid, below, forced);
      if (sent == ProcessActions::Sent::sent) asked.push_back(j.pid);
      else if (!parts_.actions->isRunning(j.pid)) problems.push_back(label(j) + " is no longer running.");
      else problems.push_back(label(j) + " could not be stopped.");
    }
  }
  if (asked.empty()) {
    const std::string sentence = problems.empty() ? std::string("Nothing could be stopped.") : problems.front();
    return finish(*target, asker, Outcome::refused, forced, reply, refusal(sentence));
  }
  // A moment for it to go; an app may be asking the person to save.
  QTimer::singleShot(parts_.settle, this, [this, target, asker = std::move(asker), forced, reply = std::move(reply),
                                           extra = std::move(extra), asked, problems] {
    const bool gone = std::none_of(asked.begin(), asked.end(), [&](int32_t pid) { return parts_.actions->isRunning(pid); });
    json value{{"outcome", "quit"}, {"target", target->text}, {"verdict", target->verdict}};
    value["quit"] = asked;
    value["forced"] = forced;
    value["still_running"] = !gone;
    value["note"] = gone ? (target->isApp ? target->text + " quit." : target->text + " ended, with what it started.")
                         : (target->isApp ? kAppNotGone : kProcessNotGone);
    if (!problems.empty()) value["problems"] = problems;
    value.update(extra);
    finish(*target, asker, Outcome::quit, forced, reply, result(std::move(value)));
  });
}

}  // namespace omnira
