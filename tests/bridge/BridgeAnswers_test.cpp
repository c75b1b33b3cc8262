// The read-only tools' answers from a tick's readings, with the history in a real SQLite
// file: the shared messages, the cases an agent must be told apart, and the figures that
// come from the history.

#include "OmniraCore/bridge/BridgeAnswers.h"

#include <unistd.h>

#include <gtest/gtest.h>
#include "tests/platform/linux/TempTree.h"

#include <filesystem>

#include "OmniraCore/history/HistoryDatabase.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;
using json = nlohmann::ordered_json;
using namespace std::chrono_literals;

constexpr uint32_t kPerson = 1000;
const Date kNow = Date(std::chrono::seconds(1'795'600'000));

ProcessSample proc(int32_t pid, const char* name, uint64_t memory, double cpu, int32_t parent = 1, uint32_t uid = kPerson) {
  ProcessSample p;
  p.pid = pid;
  p.parentPID = parent;
  p.name = name;
  p.memoryBytes = memory;
  p.cpuPercent = cpu;
  p.uid = uid;
  p.startedAt = kNow - 30min;
  return p;
}

BridgeReadings readings() {
  BridgeReadings r;
  SystemSample s;
  s.timestamp = kNow - 2s;
  s.cpuUser = 0.2;
  s.cpuSystem = 0.05;
  s.cpuPerCore = {0.4, 0.1};
  s.memoryTotal = 16'000'000'000;
  s.memoryApp = 6'000'000'000;
  s.diskTotal = 500'000'000'000;
  s.diskAvailable = 100'000'000'000;
  r.system = s;
  auto server = proc(50, "node", 300'000'000, 3.0);
  server.projectPath = "/home/ada/src/shop";
  server.listeningPorts = {5173};
  auto watcher = proc(51, "esbuild", 50'000'000, 0.0, 50);
  watcher.projectPath = server.projectPath;
  r.groups = {
      AppGroup("system", "Debian GNU/Linux", GroupKind::system, std::nullopt, {proc(1, "systemd", 10'000'000, 0.1, 0, 0)}),
      AppGroup("firefox.desktop", "Firefox", GroupKind::app, "/usr/share/applications/firefox.desktop",
               {proc(20, "firefox", 900'000'000, 12.0), proc(21, "Isolated Web Co", 400'000'000, 30.0, 20)}),
      AppGroup("org.mozilla.thunderbird.desktop", "Thunderbird", GroupKind::app, std::nullopt, {proc(30, "thunderbird", 500'000'000, 0.5)}),
      AppGroup("exec:/usr/bin/node", "node", GroupKind::other, std::nullopt, {server, watcher}),
  };
  r.groupsAt = kNow - 3s;
  Port shop{.port = 5173, .process = PortProcess{50, "node", "exec:/usr/bin/node", "node", "/home/ada/src/shop"}};
  shop.connectedFrom = {PortProcess{20, "firefox", "firefox.desktop", "Firefox", std::nullopt}};
  r.ports = {shop};
  r.listening = {22, 5173};
  r.projects = Project::of(r.groups, kPerson);
  r.personUID = kPerson;
  r.systemName = "Debian GNU/Linux";
  return r;
}

json ask(const char* tool, const json& arguments, const BridgeReadings& r = readings(), int32_t asker = 0) {
  return BridgeAnswers::respond(tool, arguments, r, asker, kNow);
}

TEST(BridgeAnswers, SharedMessagesAndWrongArguments) {
  const BridgeReadings none;
  for (const char* tool : {"system_status", "top_apps", "whats_wrong", "find_process", "projects"})
    EXPECT_EQ(ask(tool, {{"name", "x"}}, none)["error"], "Omnira has no reading yet. Try again in a moment.") << tool;
  EXPECT_EQ(ask("app_details", json::object())["error"], "Give the app's name.");
  EXPECT_EQ(ask("app_details", {{"name", "Firefox"}, {"period", "now"}})["error"],
            "Give a period: hour, day, week, month, quarter, half_year or year.");
  EXPECT_EQ(ask("top_apps", {{"period", "week"}})["error"],
            "Omnira has no readings for this period yet. It records them while it runs.");
  EXPECT_EQ(ask("app_details", {{"name", "Xcode"}})["error"],
            "No running app matches “Xcode”. Use top_apps to see what is running.");
  EXPECT_EQ(ask("find_process", {{"pid", 4242}})["error"], "No process Omnira can see has PID 4242.");
  EXPECT_EQ(ask("find_process", {{"pid", "12"}})["error"], "Give pid as a whole number.");

  // Several apps hold the name: the agent is told which, and none is guessed.
  const auto several = ask("app_details", {{"name", "i"}});
  EXPECT_FALSE(several["ok"]);
  EXPECT_EQ(several["error"], "More than one app matches “i”: Debian GNU/Linux, Firefox, Thunderbird. Give the full name.");
  EXPECT_TRUE(ask("app_details", {{"name", "thunderbird"}})["ok"]);  // a full name, in any case, is that app
}

TEST(BridgeAnswers, LiveFiguresAnAgentCanActOn) {
  const auto top = ask("top_apps", {{"by", "cpu"}, {"limit", 99}});
  ASSERT_TRUE(top["ok"]) << top;
  EXPECT_EQ(top["result"]["apps"][0]["app"], "Firefox");
  EXPECT_EQ(top["result"]["apps"][0]["cpu_percent_with_helpers"], 42.0);
  EXPECT_EQ(top["result"]["apps"].size(), 4u);  // a limit past 20 is 20, and there are four
  EXPECT_EQ(ask("top_apps", {{"limit", 1}})["result"]["more_apps"], 3);

  const auto details = ask("app_details", {{"name", "fire"}})["result"];
  EXPECT_EQ(details["app"], "Firefox");
  EXPECT_EQ(details["used"]["note"], "Omnira has no readings of this app for this period yet. It records them while it runs.");

  const auto onPort = ask("find_process", {{"port", 5173}})["result"];
  EXPECT_EQ(onPort["processes"][0]["project"], "/home/ada/src/shop");
  EXPECT_EQ(ask("find_process", {{"port", 22}})["result"]["note"],
            "Port 22 is held by another user's process, which Omnira does not show.");
  EXPECT_EQ(ask("find_process", {{"port", 8080}})["result"]["note"], "Nothing is listening on port 8080: it is free.");

  const auto ports = ask("ports", {{"ports", {5173, 22, 8080}}})["result"];
  EXPECT_EQ(ports["free"], json{8080});
  EXPECT_EQ(ask("ports", {{"ports", std::vector<int>(21, 80)}})["error"], "Give at most 20 ports.");

  const auto system = ask("system_status", json::object())["result"];
  EXPECT_EQ(system["cpu"]["percent"], 25.0);
  EXPECT_EQ(system["not_measured_note"],
            "This computer gives Omnira no GPU, Neural Engine, temperatures, fans or power draw readings.");

  const auto shop = ask("projects", {{"name", "shop"}})["result"]["projects"][0];
  EXPECT_EQ(ask("projects", {{"name", "nothing"}})["error"],
            "No project folder with something running in it matches “nothing”.");
}

TEST(BridgeAnswers, SensorsTellHeatFansAndDrawAndWhatIsMakingItHot) {
  auto r = readings();
  SensorSample sensors;
  sensors.temperatures.push_back({.name = "Package id 0", .chip = "coretemp", .kind = SensorKind::cpu, .celsius = 88});
  sensors.cpuCelsius = 88;
  sensors.hottestCelsius = 91;
  sensors.hottestName = "Composite (nvme)";
  sensors.fans.push_back({.index = 0, .chip = "thinkpad", .label = "Fan 1", .rpm = 4200, .mode = FanStatus::Mode::automatic});
  sensors.powers.push_back({PowerReading::Kind::cpuPackage, "CPU package 0", 21.5, "class/powercap/intel-rapl:0"});
  sensors.cpuWatts = 21.5;
  sensors.systemWatts = 34.04;
  sensors.throttledCPUs = 2;
  r.sensors = sensors;

  const auto system = ask("system_status", json::object(), r)["result"];
  EXPECT_EQ(system["temperatures"]["cpu_celsius"], 88.0);
  EXPECT_EQ(system["temperatures"]["cpus_slowed_to_cool"], 2);
  EXPECT_EQ(system["power_watts"], 34.0);
  EXPECT_EQ(system["not_measured_note"], "This computer gives Omnira no GPU or Neural Engine readings.");

  // 88 °C is within 5 degrees of the 90 °C limit: the apps at work are named.
  const auto wrong = ask("whats_wrong", json::object(), r)["result"];
  ASSERT_FALSE(wrong["making_it_hot"].empty());
  EXPECT_EQ(wrong["making_it_hot"][0]["app"], "Firefox");
}

TEST(BridgeAnswers, CanQuitSaysWhatToDoWithTheVerdicts) {
  // The dev server has a browser connected: ask first, and whoever asks is told why.
  const auto server = ask("can_quit", {{"port", 5173}})["result"];
  EXPECT_EQ(server["verdicts"][0]["verdict"], "ask_first");
  EXPECT_EQ(server["can_be_asked_about"], json{50});
  // An app is judged by its main process; its helpers stop with it.
  const auto firefox = ask("can_quit", {{"name", "Firefox"}})["result"];
  ASSERT_EQ(firefox["verdicts"].size(), 1u);
  // A bare program name judges each process of it.
  const auto esbuild = ask("can_quit", {{"name", "esbuild"}})["result"];
  EXPECT_EQ(esbuild["summary"],
            "esbuild (51) is safe to quit without asking. That needs the person's yes too: tell them, don't just run it.");
  const auto several = ask("can_quit", {{"pids", {1, 51}}})["result"];
  EXPECT_EQ(several["summary"],
            "Not all of them are safe to quit: each has its own line. Ask to quit one at a time, by pid, so the person "
            "is asked about each.");
  // The asking assistant's own chain is never to be quit, found through the sample or, for a
  // client newer than it, as read when the question came.
  EXPECT_EQ(ask("can_quit", {{"pid", 20}}, readings(), 21)["result"]["verdicts"][0]["verdict"], "do_not");
  auto r = readings();
  r.askerChain = {9999, 30};
  EXPECT_EQ(ask("can_quit", {{"pid", 30}}, r, 9999)["result"]["verdicts"][0]["reason"],
            "thunderbird (30) runs the assistant that is asking: quitting it would end the session.");
}

TEST(BridgeAnswers, HistoryFromTheReadingsAndTheAppRows) {
  const platform::TempTree tree;
  const fs::path file = tree.root() / "history.sqlite";
  auto db = HistoryDatabase::open(file);
  ASSERT_TRUE(db.ok());
  const int64_t now = 1'795'600'000 / 300 * 300;
  for (int i = 0; i < 12; ++i) {  // the last hour
    HistoryDatabase::ReadingRow row;
    row.start = now - 3600 + i * 300;
    row.seconds = 300;
    row.cpuPercentAverage = i == 5 || i == 6 ? 80 : 20;
    row.cpuPercentPeak = i == 5 || i == 6 ? 97 : 30;
    row.memoryUsedBytesAverage = 4'000'000'000;
    row.memoryUsedBytesPeak = 5'000'000'000;
    row.memoryPressurePercentAverage = 10;
    row.memoryPressurePercentPeak = i == 9 ? 60 : 12;
    row.memoryPressureLevelPeak = i == 9 ? "warning" : "normal";
    ASSERT_TRUE((*db)->writeReading(row).ok());
  }
  HistoryDatabase::AppRow app{.start = HistoryDatabase::periodStart(HistoryDatabase::AppTable::hours, kNow - 30min),
                              .appId = "firefox.desktop",
                              .name = "Firefox",
                              .kind = "app",
                              .seconds = 1800,
                              .cpuSeconds = 900,
                              .memoryByteSeconds = 1800.0 * 1e9,
                              .peakMemoryBytes = 1'500'000'000};
  ASSERT_TRUE((*db)->write({}, {{HistoryDatabase::AppTable::hours, app}}).ok());

  auto r = readings();
  r.history = db->get();
  const auto day = ask("history", json::object(), r)["result"];
  EXPECT_EQ(day["minutes_measured"], 60.0);
  EXPECT_EQ(day["cpu_average_percent"], 30.0);
  EXPECT_EQ(day["minutes_at_90_percent_or_more"], 10.0);
  EXPECT_EQ(day["minutes_under_pressure"], 5.0);
  ASSERT_EQ(day["stretches_at_a_limit"].size(), 2u);

  const auto week = ask("top_apps", {{"period", "hour"}, {"by", "cpu"}}, r)["result"];
  EXPECT_EQ(week["apps"][0]["app"], "Firefox");
  EXPECT_EQ(ask("app_details", {{"name", "Firefox"}, {"period", "hour"}}, r)["result"]["used"]["cpu_minutes"], 15.0);
  r.historyShared = false;
  EXPECT_EQ(ask("app_details", {{"name", "Firefox"}}, r)["result"]["used"]["note"],
            "The person does not share their history with assistants.");
  db->reset();
}

}  // namespace
}  // namespace omnira
