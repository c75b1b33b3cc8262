// End to end through the real bridge socket: an agent asks to quit a child of this test,
// the person's window opens (offscreen) and is answered from the keyboard with yes, and the
// child ends; a second child survives a click on "Don't Quit". The log holds both.

#include <QApplication>
#include <QDialog>
#include <QPushButton>
#include <QTest>

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <fmt/format.h>

#include <filesystem>
#include <fstream>
#include <future>

#include "Omnira/BridgeHost.h"
#include "Omnira/MonitorStore.h"
#include "Omnira/QuitRequestWindow.h"
#include "Omnira/QuitRequests.h"
#include "OmniraCore/bridge/BridgeSocket.h"
#include "tests/Omnira/QtTestApp.h"
#include "tests/platform/linux/TempTree.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;
using json = nlohmann::ordered_json;
using namespace std::chrono_literals;

// A `sleep` started as from a terminal of its own: a tool of the person's, even when the
// tests run as root without one (root's processes without a terminal are the system's).
pid_t sleeper() {
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::setsid();
    const int master = ::posix_openpt(O_RDWR | O_NOCTTY);
    if (master >= 0 && ::grantpt(master) == 0 && ::unlockpt(master) == 0) {
      const int terminal = ::open(::ptsname(master), O_RDWR);  // the session's controlling terminal
      (void)terminal;
    }
    ::execlp("sleep", "sleep", "300", nullptr);
    ::_exit(127);
  }
  return pid;
}

QDialog* openPanel() {
  for (auto* widget : QApplication::topLevelWidgets())
    if (auto* dialog = qobject_cast<QDialog*>(widget); dialog && dialog->isVisible()) return dialog;
  return nullptr;
}

TEST(QuitPanel, AChildQuitsAfterAYesAndAnotherSurvivesANo) {
  testing::qtTestApp();
  const platform::TempTree tree;
  const fs::path root = tree.root();
  fs::create_directories(root / "data" / "Omnira");
  fs::create_directories(root / "config");
  std::ofstream(root / "config" / "settings.json") << R"({"bridgeEnabled": true, "refreshSeconds": 1})";
  const AppPaths paths(root / "data" / "Omnira", root / "config");
  const auto settings = Settings::load(root / "config" / "settings.json");
  const pid_t yes = sleeper(), no = sleeper();

  MonitorStore store({paths, settings});
  store.viewerAppeared();
  store.start();
  BridgeHost host({paths, "Debian GNU/Linux", ""}, settings);
  host.attach(&store);
  host.applySettings(settings);
  QuitRequests::Parts parts;
  parts.readings = [&](int32_t peer) { return host.readings("quit", std::chrono::system_clock::now(), peer); };
  parts.asker = [&](const BridgeReadings& r, int32_t peer) { return host.askerName(r, peer, std::chrono::system_clock::now()); };
  parts.actions = std::make_shared<ProcessActions>();
  parts.panel = [] { return std::make_unique<QuitRequestWindow>(); };
  parts.log = ActionLog(paths.dataFile("requests.json"));
  parts.settings = [&] { return settings; };
  parts.settle = 500ms;
  QuitRequests requests(std::move(parts));
  host.setQuitHandler([&](const std::string& tool, const json& arguments, int32_t peer, auto reply) {
    requests.handle(tool, arguments, peer, std::move(reply));
  });

  // The children must be in a process sample before they can be judged.
  ASSERT_TRUE(testing::pumpUntil([&] {
    int seen = 0;
    for (const auto& g : store.allGroups())
      for (const auto& p : g.processes) seen += p.pid == yes || p.pid == no;
    return seen == 2;
  }));
  const auto ask = [&](pid_t pid) {
    return std::async(std::launch::async, [socket = host.socketPath(), pid] {
      return BridgeSocket::ask({{"tool", "quit"}, {"arguments", {{"pid", pid}}}}, socket, 75s);
    });
  };

  auto first = ask(yes);
  ASSERT_TRUE(testing::pumpUntil([] { return openPanel() != nullptr; })) << "no window came";
  QDialog* panel = openPanel();
  EXPECT_NE(panel->windowFlags() & Qt::WindowStaysOnTopHint, 0);
  EXPECT_EQ(panel->findChild<QPushButton*>(QuitRequestWindow::kQuitButton)->isDefault(), true);
  QTest::keyClick(panel, Qt::Key_Return);  // the keyboard reaches it: Return says yes
  ASSERT_TRUE(testing::pumpUntil([&] { return first.wait_for(0s) == std::future_status::ready; }));
  const auto quitReply = first.get();
  ASSERT_TRUE(quitReply.ok());
  EXPECT_EQ((*quitReply)["result"]["outcome"], "quit") << *quitReply;
  int status = 0;
  ASSERT_EQ(::waitpid(yes, &status, 0), yes);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM);

  auto second = ask(no);
  ASSERT_TRUE(testing::pumpUntil([] { return openPanel() != nullptr; }));
  QTest::mouseClick(openPanel()->findChild<QPushButton*>(QuitRequestWindow::kKeepButton), Qt::LeftButton);
  ASSERT_TRUE(testing::pumpUntil([&] { return second.wait_for(0s) == std::future_status::ready; }));
  const auto noReply = second.get();
  ASSERT_TRUE(noReply.ok());
  EXPECT_EQ((*noReply)["result"]["outcome"], "declined");
  EXPECT_EQ(::kill(no, 0), 0) << "it was quit after a no";

  const auto log = ActionLog(paths.dataFile("requests.json")).read();
  ASSERT_EQ(log->records.size(), 2u);
  EXPECT_EQ(log->records[1].outcome, ActionRecord::Outcome::declined);
  EXPECT_EQ(log->records[1].target, fmt::format("sleep ({})", no));

  ::kill(no, SIGKILL);
  ::waitpid(no, nullptr, 0);
  host.stop();
  store.stop();
}

}  // namespace
}  // namespace omnira
