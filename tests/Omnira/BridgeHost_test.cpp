// The bridge in the application: the order of its checks and the sliding minute, on a
// clock the test moves; then the real `omnira run` answering `omnira ask` and raw sockets,
// following its settings file, and taking its socket away when told.

#include "Omnira/BridgeHost.h"

#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <future>

#include "Omnira/MonitorStore.h"
#include "OmniraCore/bridge/BridgeSocket.h"
#include "tests/Omnira/QtTestApp.h"
#include "tests/Omnira/RunningOmnira.h"
#include "tests/cli/CommandRun.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;
using json = nlohmann::ordered_json;
using namespace std::chrono_literals;

class BridgeHostTest : public ::testing::Test {
 protected:
  void SetUp() override {
    testing::qtTestApp();
    root_ = fs::temp_directory_path() / ("omnira-host-" + std::to_string(::getpid()));
    fs::remove_all(root_);
    fs::create_directories(root_ / "data" / "Omnira");
    fs::create_directories(root_ / "config");
  }
  void TearDown() override { fs::remove_all(root_); }

  Settings settings(const std::string& text) {
    std::ofstream(root_ / "config" / "settings.json") << text;
    return Settings::load(root_ / "config" / "settings.json");
  }
  // The reply of a request answered at once.
  json answer(BridgeHost& host, const json& request) {
    json got = "no reply";
    host.answer(request, ::getpid(), [&](json reply) { got = std::move(reply); });
    return got;
  }

  fs::path root_;
};

TEST_F(BridgeHostTest, ChecksInTheirOrderAndASlidingMinute) {
  Date now = Date(std::chrono::seconds(1'795'600'000));
  BridgeHost host({AppPaths(root_ / "data" / "Omnira", root_ / "config"), "Debian GNU/Linux", "", [&] { return now; }},
                  settings("{}"));
  EXPECT_FALSE(host.isListening());  // off unless the person turns it on
  const json ports{{"tool", "ports"}};
  EXPECT_EQ(answer(host, ports)["error"], "Omnira is still starting. Try again in a moment.");
  EXPECT_FALSE(host.lastAsked());

  MonitorStore store({AppPaths(root_ / "data" / "Omnira", root_ / "config"), Settings()});
  host.attach(&store);
  const Date first = now;
  for (int i = 0; i < 120; ++i) {
    EXPECT_TRUE(answer(host, ports)["ok"]) << i;
    now += 490ms;
  }
  // The 121st within the minute is refused, and refusals do not count.
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(answer(host, ports)["error"],
              "Too many questions in a minute. The figures change every few seconds at most; wait a little.");
  EXPECT_EQ(host.lastAsked(), first + 119 * 490ms);
  now = first + 60s;  // the first is exactly a minute old: it still counts
  EXPECT_FALSE(answer(host, ports)["ok"]);
  now = first + 60001ms;
  EXPECT_TRUE(answer(host, ports)["ok"]);
  EXPECT_EQ(host.lastAsked(), now);

  now += 1h;
  EXPECT_EQ(answer(host, json{{"arguments", json::object()}})["error"], "Omnira has no tool called “”.");
  EXPECT_EQ(answer(host, json{{"tool", "Ports"}})["error"], "Omnira has no tool called “Ports”.");
  EXPECT_TRUE(answer(host, json{{"tool", "ports"}, {"arguments", "not an object"}})["ok"]);

  // Sharing is checked before the tool; quitting goes to the quit handler, when there is one.
  host.applySettings(settings(R"({"bridgeSharesProjects": false})"));
  EXPECT_EQ(answer(host, ports)["error"],
            "The person has turned off sharing projects and ports with assistants, in Omnira → Settings → "
            "Integrations. Don't work around it; tell them if you need it.");
  EXPECT_EQ(answer(host, json{{"tool", "quit"}, {"arguments", {{"pid", 5}}}})["error"], BridgeHost::kCannotQuitYet);
  host.applySettings(settings(R"({"bridgeActionsEnabled": false})"));
  EXPECT_EQ(answer(host, json{{"tool", "quit"}})["error"], BridgeHost::kActionsOff);
  // With quit requests in place they decide, and log, whatever comes.
  json handed;
  host.setQuitHandler([&](const std::string& tool, const json& arguments, int32_t, auto reply) {
    handed = {{"tool", tool}, {"arguments", arguments}};
    reply(json{{"ok", true}, {"result", "asked"}});
  });
  EXPECT_EQ(answer(host, json{{"tool", "stop_process"}, {"arguments", {{"pid", 5}}}})["result"], "asked");
  EXPECT_EQ(handed["tool"], "stop_process");
}

TEST_F(BridgeHostTest, TheRunningApplicationAnswersAgentsAndFollowsItsSettings) {
  fs::create_directories(root_ / "config" / "Omnira");
  std::ofstream(root_ / "config" / "Omnira" / "settings.json") << R"({"bridgeEnabled": true, "refreshSeconds": 1})";
  testing::RunningOmnira app(root_);
  const fs::path socket = root_ / "data" / "Omnira" / "bridge.sock";
  const auto waitFor = [](auto condition) {
    for (int i = 0; i < 300 && !condition(); ++i) std::this_thread::sleep_for(100ms);
    return condition();
  };
  ASSERT_TRUE(waitFor([&] { return fs::exists(socket); })) << testing::slurp(root_ / "stderr");
  const auto omnira = [&](const std::string& arguments) { return testing::runCommandIn(root_, arguments, true); };

  // 125 questions at once from as many clients: 120 are answered in the minute.
  std::vector<std::future<Result<json, BridgeSocket::Failure>>> asked;
  for (int i = 0; i < 125; ++i)
    asked.push_back(std::async(std::launch::async, [&] { return BridgeSocket::ask({{"tool", "ports"}}, socket.string(), 10s); }));
  int answered = 0, refused = 0;
  for (auto& reply : asked) {
    auto got = reply.get();
    ASSERT_TRUE(got.ok()) << got.error().message.value_or("nothing listens");
    if ((*got)["ok"] == true) ++answered;
    else if ((*got)["error"] == BridgeHost::kTooMany) ++refused;
  }
  EXPECT_EQ(answered, 120);
  EXPECT_EQ(refused, 5);
  EXPECT_EQ(omnira("ask ports").out,
            "Too many questions in a minute. The figures change every few seconds at most; wait a little.\n");
  const auto state = json::parse(testing::slurp(root_ / "data" / "Omnira" / "bridge.json"));
  EXPECT_EQ(state["listening"], true);
  EXPECT_NE(omnira("settings list").out.find("Bridge: listening at " + socket.string() + "; "), std::string::npos);

  // Switched off through the settings: the socket goes, and a client hears nobody is there.
  ASSERT_EQ(omnira("settings set bridgeEnabled false").status, 0);
  ASSERT_TRUE(waitFor([&] { return !fs::exists(socket); }));
  const auto off = omnira("ask ports");
  EXPECT_EQ(off.status, 1);
  EXPECT_NE(off.out.find("omnira settings set bridgeEnabled true"), std::string::npos) << off.out;
  // On again, and stopping the application takes the socket away.
  ASSERT_EQ(omnira("settings set bridgeEnabled true").status, 0);
  ASSERT_TRUE(waitFor([&] { return fs::exists(socket); }));
  EXPECT_EQ(app.stop(), 0);
  EXPECT_FALSE(fs::exists(socket));
  EXPECT_FALSE(fs::exists(root_ / "data" / "Omnira" / "bridge.json"));
  EXPECT_NE(omnira("settings list").out.find("Bridge: on, once Omnira runs (omnira run)."), std::string::npos);
}

}  // namespace
}  // namespace omnira
