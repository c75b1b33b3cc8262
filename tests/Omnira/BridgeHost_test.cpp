// The bridge in the application: the order of its checks and the sliding minute, on a
// clock the test moves. The running application's socket is walked through in OmniraRun.

#include "Omnira/BridgeHost.h"

#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "Omnira/MonitorStore.h"
#include "tests/Omnira/QtTestApp.h"
#include "tests/platform/linux/TempTree.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;
using json = nlohmann::ordered_json;
using namespace std::chrono_literals;

TEST(BridgeHost, ChecksInTheirOrderAndASlidingMinute) {
  testing::qtTestApp();
  const platform::TempTree tree;
  const fs::path root = tree.root();
  fs::create_directories(root / "config");
  const AppPaths paths(root / "data" / "Omnira", root / "config");
  const auto settings = [&](const std::string& text) {
    std::ofstream(root / "config" / "settings.json") << text;
    return Settings::load(root / "config" / "settings.json");
  };
  // The reply of a request answered at once.
  const auto answer = [](BridgeHost& host, const json& request) {
    json got = "no reply";
    host.answer(request, ::getpid(), [&](json reply) { got = std::move(reply); });
    return got;
  };
  Date now = Date(std::chrono::seconds(1'795'600'000));
  BridgeHost host({paths, "Debian GNU/Linux", "", [&] { return now; }}, settings("{}"));
  EXPECT_FALSE(host.isListening());  // off unless the person turns it on
  const json ports{{"tool", "ports"}};
  EXPECT_EQ(answer(host, ports)["error"], "Omnira is still starting. Try again in a moment.");

  MonitorStore store({paths, Settings()});
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
  now = first + 60s;  // the first is exactly a minute old: it still counts
  EXPECT_FALSE(answer(host, ports)["ok"]);
  now = first + 60001ms;
  EXPECT_TRUE(answer(host, ports)["ok"]);

  now += 1h;
  EXPECT_EQ(answer(host, json{{"arguments", json::object()}})["error"], "Omnira has no tool called “”.");

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
}

}  // namespace
}  // namespace omnira
