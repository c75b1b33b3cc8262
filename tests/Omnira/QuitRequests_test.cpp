// The quit request flow, step by step, with a panel and process actions of the test's own,
// a minute of 50 ms and a clock the test moves; every request lands in a real log file.

#include "Omnira/QuitRequests.h"

#include <fmt/format.h>

#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "tests/Omnira/QtTestApp.h"
#include "tests/platform/linux/TempTree.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;
using json = nlohmann::ordered_json;
using namespace std::chrono_literals;

constexpr uint32_t kPerson = 1000;

class FakeActions : public ProcessActions {
 public:
  std::set<int32_t> running;
  bool obeys = true;  // processes go when signalled
  std::vector<std::string> calls;
  Sent signal(int32_t pid, const std::vector<int32_t>& alsoStops, bool force) override {
    calls.push_back(fmt::format("{} {} +{}", force ? "kill" : "term", pid, alsoStops.size()));
    if (!running.contains(pid)) return Sent::refused;
    if (obeys) running.erase(pid);
    return Sent::sent;
  }
  AppQuit quitApp(const std::vector<int32_t>& mains, const std::vector<int32_t>& others,
                  const std::optional<std::string>& appID, bool force) override {
    calls.push_back(fmt::format("app {} main {} others {} {}", appID.value_or("-"), mains.front(), others.size(),
                                force ? "force" : ""));
    if (obeys)
      for (const int32_t pid : mains) running.erase(pid);
    return AppQuit::closedWindows;
  }
  bool isRunning(int32_t pid) const override { return running.contains(pid); }
};

class FakePanel : public QuitRequestPanel {
 public:
  struct Shared {
    std::vector<QuitPlan> plans;
    std::optional<QuitAnswer> answer;  // nothing: the person does not click
    std::function<void(QuitAnswer)> pending;
  };
  explicit FakePanel(std::shared_ptr<Shared> shared) : shared_(std::move(shared)) {}
  void ask(const QuitPlan& plan, std::function<void(QuitAnswer)> answered) override {
    shared_->plans.push_back(plan);
    if (shared_->answer) answered(*shared_->answer);
    else shared_->pending = std::move(answered);
  }
  void close() override { shared_->pending = nullptr; }

 private:
  std::shared_ptr<Shared> shared_;
};

ProcessSample proc(int32_t pid, const char* name, int32_t parent = 1, uint32_t uid = kPerson) {
  ProcessSample p;
  p.pid = pid;
  p.parentPID = parent;
  p.name = name;
  p.uid = uid;
  p.memoryBytes = 50'000'000;
  return p;
}

class QuitRequestsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    testing::qtTestApp();
    auto server = proc(50, "node");
    server.projectPath = "/home/ada/src/shop";
    auto watcher = proc(51, "esbuild", 50);
    watcher.projectPath = server.projectPath;
    auto db = proc(70, "postgres");
    db.projectPath = server.projectPath;
    auto proxy = proc(99, "docker-proxy");
    readings_.groups = {
        AppGroup("system", "Debian GNU/Linux", GroupKind::system, std::nullopt, {proc(1, "systemd", 0, 0)}),
        AppGroup("firefox.desktop", "Firefox", GroupKind::app, "/usr/share/applications/firefox.desktop",
                 {proc(20, "firefox"), proc(21, "Isolated Web Co", 20)}),
        AppGroup("exec:/usr/bin/node", "node", GroupKind::other, std::nullopt, {server, watcher, proc(60, "node")}),
        AppGroup("exec:/usr/bin/postgres", "postgres", GroupKind::other, std::nullopt, {db}),
        AppGroup("exec:/usr/bin/docker-proxy", "docker-proxy", GroupKind::other, std::nullopt, {proxy}),
    };
    Port published{.port = 8080, .process = PortProcess{99, "docker-proxy", "", "docker-proxy", std::nullopt}};
    published.container = PortContainer{"d0", "shop-db-1", "docker stop shop-db-1", std::nullopt};
    readings_.ports = {published};
    readings_.personUID = kPerson;
    readings_.systemName = "Debian GNU/Linux";
    actions_ = std::make_shared<FakeActions>();
    actions_->running = {20, 21, 50, 51, 60, 70, 99};
    shared_ = std::make_shared<FakePanel::Shared>();

    QuitRequests::Parts parts;
    parts.readings = [this](int32_t) { return readings_; };
    parts.asker = [](const BridgeReadings&, int32_t) { return std::string("Claude Code"); };
    parts.actions = actions_;
    parts.panel = [this]() -> std::unique_ptr<QuitRequestPanel> {
      if (nobody_) return nullptr;
      return std::make_unique<FakePanel>(shared_);
    };
    parts.log = ActionLog(folder_ / "requests.json");
    parts.settings = [this] { return Settings::load(folder_ / "settings.json"); };
    parts.allowFolder = [this](const std::string& folder) -> std::optional<std::string> {
      allowed_.push_back(folder);
      return std::nullopt;
    };
    parts.clock = [this] { return now_; };
    parts.wait = 50ms;
    parts.settle = 0ms;
    parts.forceAfter = 3s;
    requests_ = std::make_unique<QuitRequests>(std::move(parts));
  }

  // The reply, once it comes (the event loop runs meanwhile).
  json ask(const std::string& tool, const json& arguments) {
    std::optional<json> got;
    requests_->handle(tool, arguments, 4242, [&](json reply) { got = std::move(reply); });
    testing::pumpUntil([&] { return got.has_value(); }, 5000);
    return got.value_or(json("no reply"));
  }
  std::vector<std::string> outcomes() {
    std::vector<std::string> list;
    const auto read = ActionLog(folder_ / "requests.json").read();  // the records live in it
    for (const auto& r : read->records)
      list.push_back(std::string(rawValue(r.outcome)) + (r.forced ? " forced" : ""));
    return list;
  }

  platform::TempTree tree_;
  const fs::path folder_ = tree_.root();
  BridgeReadings readings_;
  std::shared_ptr<FakeActions> actions_;
  std::shared_ptr<FakePanel::Shared> shared_;
  std::unique_ptr<QuitRequests> requests_;
  std::vector<std::string> allowed_;
  bool nobody_ = false;
  Date now_ = Date(std::chrono::seconds(1'795'600'000));
};

TEST_F(QuitRequestsTest, RefusalsComeBeforeAnyoneIsAsked) {
  struct Row {
    const char* tool;
    json arguments;
    const char* error;
  };
  const Row rows[] = {
      {"stop_process", json::object(), "Give the process's PID."},
      {"quit", {{"pid", 50}, {"port", 5173}}, "Give one of: name (an app), pid, pids, port or project."},
      {"quit", {{"pid", 1}}, "systemd (1) is part of Debian GNU/Linux. Omnira doesn't quit those."},
      {"quit", {{"port", 8080}},
       "Port 8080 is published by the container shop-db-1, and Omnira doesn't stop containers. Stop it with: docker "
       "stop shop-db-1"},
      {"quit", {{"pids", {51, 70}}}, QuitRequests::kNotAllSafe},
      {"quit", {{"pid", 51}, {"force", true}}, QuitRequests::kForceFirst},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.arguments.dump());
    EXPECT_EQ(ask(row.tool, row.arguments)["error"], row.error);
  }
  EXPECT_TRUE(shared_->plans.empty());
  EXPECT_TRUE(actions_->calls.empty());
  auto expected = std::vector<std::string>(std::size(rows), "refused");
  expected.back() = "refused forced";  // a refused force is on record as one
  EXPECT_EQ(outcomes(), expected);

  std::ofstream(folder_ / "settings.json") << R"({"bridgeActionsEnabled": false})";
  EXPECT_EQ(ask("quit", {{"pid", 51}})["error"], QuitRequests::kActionsOff);
  nobody_ = true;
  std::ofstream(folder_ / "settings.json") << "{}";
  EXPECT_EQ(ask("quit", {{"pid", 51}})["error"], QuitRequests::kNobodyToAsk);
  EXPECT_EQ(outcomes().back(), "unanswered");
}

TEST_F(QuitRequestsTest, EachAnswerOfThePerson) {
  // Yes: the process and what it started get SIGTERM, and it has gone.
  shared_->answer = QuitAnswer::quit;
  auto yes = ask("quit", {{"pid", 50}});
  ASSERT_TRUE(yes["ok"]) << yes;
  EXPECT_EQ(yes["result"]["note"], "node (50) ended, with what it started.");
  EXPECT_EQ(actions_->calls.back(), "term 50 +1");
  EXPECT_EQ(QuitRequestPanel::headline(shared_->plans.back()), "Claude Code asks to quit node (50)");

  // Yes, but it stays: said so, and how to go on.
  actions_->obeys = false;
  yes = ask("quit", {{"pid", 60}});
  EXPECT_EQ(yes["result"]["note"], QuitRequests::kProcessNotGone);
  // An app is asked to quit as the desktop asks it, its helpers with it.
  yes = ask("quit_app", {{"name", "firefox"}});
  EXPECT_EQ(actions_->calls.back(), "app firefox main 20 others 1 ");
  EXPECT_EQ(yes["result"]["note"], QuitRequests::kAppNotGone);

  shared_->answer = QuitAnswer::no;
  const auto no = ask("quit", {{"pid", 70}});
  EXPECT_EQ(no["result"]["note"],
            "The person said no, so postgres (70) keeps running. Don't quit postgres (70) another way, and don't ask "
            "again unless they bring it up in a new message.");
  EXPECT_EQ(ask("quit", {{"pid", 70}, {"force", true}})["error"],
            "The person said no to quitting postgres (70), and force is not a way round a no. Leave it running unless "
            "they bring it up again.");

  // Nobody clicks: after the minute, the asker hears so.
  shared_->answer.reset();
  const auto none = ask("quit", {{"pid", 51}});
  EXPECT_EQ(none["result"]["note"], QuitRequests::kUnanswered);

  EXPECT_EQ(outcomes(), (std::vector<std::string>{"quit", "quit", "quit", "declined", "refused forced", "unanswered"}));
}

TEST_F(QuitRequestsTest, OneAtATimeAndForceOnlyAfterAYes) {
  // While the person looks at one request, another is turned away at once.
  std::optional<json> first;
  requests_->handle("quit", {{"pid", 60}}, 4242, [&](json reply) { first = std::move(reply); });
  ASSERT_TRUE(requests_->isAsking());
  EXPECT_EQ(ask("quit", {{"pid", 51}})["error"], QuitRequests::kAlreadyAsking);
  ASSERT_TRUE(shared_->pending);
  shared_->pending(QuitAnswer::quit);
  ASSERT_TRUE(testing::pumpUntil([&] { return first.has_value(); }, 5000));

  // Said yes, asked to exit, still there: force needs a few seconds more, then asks again.
  actions_->obeys = false;
  shared_->answer = QuitAnswer::quit;
  ask("quit", {{"pid", 50}});
  now_ += 1s;
  EXPECT_EQ(ask("quit", {{"pid", 50}, {"force", true}})["error"], QuitRequests::kForceFirst);
  now_ += 5s;
  const auto forced = ask("quit", {{"pid", 50}, {"force", true}});
  ASSERT_TRUE(forced["ok"]) << forced;
  EXPECT_EQ(QuitRequestPanel::headline(shared_->plans.back()), "Claude Code wants to force quit node (50)");
  EXPECT_EQ(actions_->calls.back(), "kill 50 +1");
  EXPECT_EQ(outcomes().back(), "quit forced");
}

TEST_F(QuitRequestsTest, SafeWorkInAFolderThePersonAllowedAndWhatIsLeftRunning) {
  // In a project only what is safe goes: the database stays, and the agent hears so.
  shared_->answer = QuitAnswer::quitAndAllowFolder;
  const auto project = ask("quit", {{"project", "shop"}});
  ASSERT_TRUE(project["ok"]) << project;
  EXPECT_EQ(project["result"]["target"], "2 processes in a project folder called “shop”");
  EXPECT_EQ(project["result"]["left_running_note"], "Left running, because they are not safe to quit: postgres (70).");
  EXPECT_EQ(allowed_, std::vector<std::string>{"/home/ada/src/shop"});

  // Once allowed, a safe request there is done without a panel.
  actions_->running = {51, 60};
  std::ofstream(folder_ / "settings.json") << R"({"bridgeAllowedProjects": ["/home/ada/src/shop"]})";
  const size_t asked = shared_->plans.size();
  const auto done = ask("stop_process", {{"pid", 51}});
  EXPECT_EQ(done["result"]["asked_person_note"], QuitRequests::kAllowedNote);
  EXPECT_EQ(shared_->plans.size(), asked);
  // Elsewhere the person is still asked.
  ask("stop_process", {{"pid", 60}});
  EXPECT_EQ(shared_->plans.size(), asked + 1);
}

}  // namespace
}  // namespace omnira
