// Starting Omnira while it runs: the real `omnira run`, on an X server and a session bus of
// the test's own, against an Omnira that this test process plays (it holds the lock and, once
// it listens, answers Show with its desktop).

#include "Omnira/presentation/ShowService.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QPointer>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <fmt/format.h>

#include "Omnira/InstanceLock.h"
#include "Omnira/presentation/Desktop.h"
#include "Omnira/presentation/QmlWindow.h"
#include "tests/Omnira/NotificationBus.h"
#include "tests/Omnira/RunningOmnira.h"
#include "tests/Omnira/presentation/RunningStore.h"

extern char** environ;

namespace omnira::presentation {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

// An X server of the test's own; it picks a free display number and writes it to a pipe.
class PrivateDisplay {
 public:
  PrivateDisplay() {
    int numbers[2];
    if (::pipe(numbers) != 0) return;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addclose(&actions, numbers[0]);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    const std::string fd = std::to_string(numbers[1]);
    const char* argv[] = {"Xvfb", "-displayfd", fd.c_str(), "-nolisten", "tcp", "-noreset", "-screen", "0", "800x600x24", nullptr};
    if (::posix_spawnp(&pid_, "Xvfb", &actions, nullptr, const_cast<char**>(argv), environ) != 0) pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
    ::close(numbers[1]);
    // It writes the number once it accepts clients; 10 s is a guard against a hang only.
    pollfd readable{numbers[0], POLLIN, 0};
    char c;
    while (pid_ > 0 && ::poll(&readable, 1, 10'000) == 1 && ::read(numbers[0], &c, 1) == 1 && c != '\n') number_ += c;
    ::close(numbers[0]);
  }
  ~PrivateDisplay() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGTERM);
    ::waitpid(pid_, nullptr, 0);
  }
  std::string name() const { return number_.empty() ? std::string() : ":" + number_; }

 private:
  pid_t pid_ = -1;
  std::string number_;
};

struct Ended {
  int status = -1;
  std::string out, err;
};

class SecondStartTest : public testing::RunningStore {
 protected:
  std::filesystem::path xdgData() const { return root_ / "xdg-data"; }

  // `omnira run` as a person starts it from the desktop, waiting while this process's event
  // loop answers what it asks.
  Ended secondStart(const std::string& display, const QString& bus, std::vector<std::string> arguments) {
    const auto out = root_ / "stdout", err = root_ / "stderr";
    std::filesystem::remove(out);
    std::filesystem::remove(err);
    // Qt complains on standard error about a missing or open runtime folder.
    const auto runtime = root_ / "runtime";
    std::filesystem::create_directories(runtime);
    std::filesystem::permissions(runtime, std::filesystem::perms::owner_all);
    std::vector<std::string> environment{"HOME=" + (root_ / "home").string(), "XDG_DATA_HOME=" + xdgData().string(),
                                         "XDG_CONFIG_HOME=" + (root_ / "xdg-config").string(), "DISPLAY=" + display,
                                         "DBUS_SESSION_BUS_ADDRESS=" + bus.toStdString(),
                                         "XDG_RUNTIME_DIR=" + runtime.string()};
    // The rest as this process has it (the sanitizers' options among it), less what would
    // point the child at another display or bus.
    for (char** variable = environ; *variable; ++variable) {
      const std::string_view name = std::string_view(*variable).substr(0, std::string_view(*variable).find('='));
      if (name != "WAYLAND_DISPLAY" && name != "QT_QPA_PLATFORM" && name != "DISPLAY" && name != "HOME" &&
          name != "DBUS_SESSION_BUS_ADDRESS" && !name.starts_with("XDG_"))
        environment.emplace_back(*variable);
    }
    arguments.insert(arguments.begin(), {OMNIRA_CLI_PATH, "run"});
    std::vector<char*> argv, envp;
    for (auto& argument : arguments) argv.push_back(argument.data());
    for (auto& variable : environment) envp.push_back(variable.data());
    argv.push_back(nullptr);
    envp.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    pid_t pid = -1;
    const int spawned = ::posix_spawn(&pid, OMNIRA_CLI_PATH, &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    Ended ended;
    if (spawned != 0) return ended;
    int status = 0;
    bool reaped = false;  // runUntil asks once more after the loop ends
    if (!runUntil([&] { return reaped || (reaped = ::waitpid(pid, &status, WNOHANG) == pid); })) {
      ::kill(pid, SIGKILL);
      ::waitpid(pid, nullptr, 0);
      return ended;
    }
    ended.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    ended.out = testing::slurp(out);
    ended.err = testing::slurp(err);
    return ended;
  }
};

TEST_F(SecondStartTest, ShowsTheRunningWindowOnlyWhenBothHaveADisplay) {
  PrivateBus bus;
  ASSERT_FALSE(bus.address().isEmpty()) << bus.failure();
  PrivateDisplay display;
  ASSERT_FALSE(display.name().empty()) << "Xvfb did not start";
  auto lock = InstanceLock::acquire(xdgData() / "Omnira" / InstanceLock::fileName);
  ASSERT_TRUE(lock) << lock.error().message;
  auto& store = start();
  Desktop desktop(&store, paths(), Settings::load(settingsFile()));
  const std::string refusal = fmt::format("Omnira is already running (process {}).\n", ::getpid());

  // The running Omnira has no display (nobody owns the name): the refusal as before.
  Ended ended = secondStart(display.name(), bus.address(), {});
  EXPECT_EQ(ended.status, 1);
  EXPECT_THAT(ended.err, HasSubstr(refusal));
  EXPECT_FALSE(desktop.mainWindow().isOpen());

  ShowService service(&desktop, QDBusConnection::connectToBus(bus.address(), "omnira-test-running"));
  auto listening = service.listen();
  ASSERT_TRUE(listening) << listening.error().message;

  // A headless second start still refuses, and leaves the window alone.
  ended = secondStart(display.name(), bus.address(), {"--headless"});
  EXPECT_EQ(ended.status, 1);
  EXPECT_THAT(ended.err, HasSubstr(refusal));
  EXPECT_FALSE(desktop.mainWindow().isOpen());

  // With a display, the running one's window is made, on the page it was left at.
  desktop.setPage("apps");
  ended = secondStart(display.name(), bus.address(), {});
  EXPECT_EQ(ended.status, 0) << ended.err;
  EXPECT_EQ(ended.out, "Omnira is already running; its window is shown.\n");
  EXPECT_THAT(ended.err, Not(HasSubstr("Omnira")));  // news, not a complaint
  ASSERT_TRUE(desktop.mainWindow().isOpen());
  EXPECT_EQ(desktop.page(), "apps");
  QPointer<QQuickWindow> window = desktop.mainWindow().window();

  // Again: the same window, raised, not a second one.
  ended = secondStart(display.name(), bus.address(), {});
  EXPECT_EQ(ended.status, 0) << ended.err;
  EXPECT_EQ(desktop.mainWindow().window(), window.data());
  EXPECT_TRUE(window && window->isVisible());

  // Another program holding the name (a second listener) is told so, not silently ignored.
  ShowService rival(&desktop, QDBusConnection::connectToBus(bus.address(), "omnira-test-rival"));
  EXPECT_FALSE(rival.listen());
}

}  // namespace
}  // namespace omnira::presentation
