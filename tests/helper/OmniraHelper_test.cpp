// The real omnira-helper, started by the test on a private socket over a writable copy of a
// fixture sysfs tree (its proc is the machine's own), driven through HelperClient and raw
// sockets as the application and a stranger would.

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "OmniraCore/platform/linux/FileText.h"
#include "OmniraCore/platform/linux/PidIO.h"
#include "OmniraCore/sensors/HelperClient.h"
#include "tests/platform/linux/TempTree.h"

namespace omnira {
namespace {

namespace fs = std::filesystem;

constexpr uid_t kPerson = 4242;

std::string read(const fs::path& file) { return platform::fileText(file); }

// A connection to the helper's socket, as any local process may open one; -1 if refused.
int connectTo(const fs::path& socket) {
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, socket.c_str());
  if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) return fd;
  ::close(fd);
  return -1;
}

class OmniraHelperTest : public ::testing::Test {
 protected:
  platform::TempTree tree;
  const fs::path& folder = tree.root();
  const fs::path sys = folder / "root" / "sys";
  pid_t helper = -1;
  int log = -1;  // the helper's standard error
  std::string logText;

  void SetUp() override {
    fs::permissions(folder, fs::perms(0755));  // the stranger below must reach the socket
    fs::copy(platform::fixturePath("helper-sys"), folder / "root", fs::copy_options::recursive);
    fs::create_directory_symlink("/proc", folder / "root" / "proc");
  }

  void TearDown() override {
    if (helper > 0) {
      ::kill(helper, SIGKILL);
      ::waitpid(helper, nullptr, 0);
    }
    if (log >= 0) ::close(log);
  }

  fs::path socket() const { return folder / "helper.sock"; }
  fs::path state() const { return folder / "state" / "fans.json"; }
  fs::path hwmon(const std::string& relative) const { return sys / "class/hwmon" / relative; }

  // Starts the helper and returns once it listens (or has died, which fails the test).
  void start(std::vector<std::string> extra = {"--allow-uid", std::to_string(kPerson)}) {
    int pipe[2];
    ASSERT_EQ(::pipe2(pipe, O_CLOEXEC), 0);
    std::vector<std::string> arguments{OMNIRA_HELPER_PATH, "--socket", socket().string(), "--root",
                                       (folder / "root").string(), "--state", state().string()};
    arguments.insert(arguments.end(), extra.begin(), extra.end());
    helper = ::fork();
    ASSERT_GE(helper, 0);
    if (helper == 0) {
      ::dup2(pipe[1], STDERR_FILENO);
      std::vector<char*> argv;
      for (auto& argument : arguments) argv.push_back(argument.data());
      argv.push_back(nullptr);
      ::execv(argv[0], argv.data());
      ::_exit(127);
    }
    ::close(pipe[1]);
    log = pipe[0];
    logText.clear();
    while (logText.find("Listening on") == std::string::npos) {
      char buffer[4096];
      const ssize_t n = ::read(log, buffer, sizeof buffer);
      ASSERT_GT(n, 0) << "the helper ended before listening:\n" << logText;
      logText.append(buffer, static_cast<size_t>(n));
    }
  }

  // Sends `signal` and returns the exit status, with the rest of the log read.
  int stop(int signal) {
    ::kill(helper, signal);
    int status = 0;
    ::waitpid(helper, &status, 0);
    helper = -1;
    char buffer[4096];
    ssize_t n;
    while ((n = ::read(log, buffer, sizeof buffer)) > 0) logText.append(buffer, static_cast<size_t>(n));
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  HelperClient client() const {
    HelperClient::Options options;
    options.socket = socket();
    options.config = folder / "helper.conf";
    return HelperClient(options);
  }
};

TEST_F(OmniraHelperTest, AnswersReadingsOnOneConnection) {
  start();
  // A process of the test's own, standing still so its counters do not move.
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    ::pause();
    ::_exit(0);
  }

  HelperClient helperClient = client();
  auto hello = helperClient.hello();
  ASSERT_TRUE(hello) << hello.error().message;
  EXPECT_EQ(hello->uid, kPerson);

  auto rapl = helperClient.rapl();
  ASSERT_TRUE(rapl) << rapl.error().message;
  ASSERT_EQ(rapl->size(), 2u);

  const int32_t gone = 4194305;  // above any pid_max
  const auto ownText = platform::readTextFile("/proc/" + std::to_string(child) + "/io");
  ASSERT_TRUE(ownText);
  const auto own = platform::parsePidIO(*ownText);
  ASSERT_TRUE(own);
  auto processes = helperClient.processes({child, gone});
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
  ASSERT_TRUE(processes) << processes.error().message;
  ASSERT_EQ(processes->size(), 1u);
  const auto& figures = processes->front();
  ASSERT_TRUE(figures.memory);
  ASSERT_TRUE(figures.io);
  EXPECT_EQ(figures.io->readBytes, own->readBytes);

  auto fans = helperClient.fans();
  ASSERT_TRUE(fans) << fans.error().message;
  ASSERT_EQ(fans->size(), 5u);

  // Everything went over one connection.
  EXPECT_TRUE(helperClient.connected());
  EXPECT_EQ(stop(SIGTERM), 0);
}

TEST_F(OmniraHelperTest, HostileLinesGetASentenceOrTheDoorAndStrangersNothing) {
  start();
  const auto line = [](int fd) {
    std::string reply;
    char c;
    while (::read(fd, &c, 1) == 1 && c != '\n') reply += c;
    return reply;
  };
  const auto replyTo = [&](int fd, const std::string& bytes) {
    (void)::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);  // a flood may be cut off halfway
    return line(fd);
  };

  const int fd = connectTo(socket());
  ASSERT_GE(fd, 0);
  EXPECT_EQ(replyTo(fd, "{\"op\":\"read_file\",\"path\":\"/etc/shadow\"}\n"),
            R"({"ok":false,"error":"The helper knows no such request."})");
  // Two requests in one write are both answered, in order.
  EXPECT_EQ(replyTo(fd, "garbage\n{\"op\":\"hello\"}\n"), R"({"ok":false,"error":"The request is not a JSON object."})");
  EXPECT_EQ(line(fd), R"({"ok":true,"version":1,"uid":4242})");
  EXPECT_EQ(replyTo(fd, "{\"op\":\"set_fan\",\"index\":2,\"rpm\":1000}\n").find("\"ok\":false"), 1u);
  ::close(fd);

  // A line past the limit ends the connection without a reply; the helper serves on.
  const int flooded = connectTo(socket());
  EXPECT_EQ(replyTo(flooded, std::string(HelperProtocol::kMaxLineBytes + 16384, 'x')), "");
  ::close(flooded);
  auto hello = client().hello();
  EXPECT_TRUE(hello) << hello.error().message;

  // Another user is closed on without a byte, and the helper says whom it turned away.
  EXPECT_EQ(platform::asNobody([&] {
              const int own = connectTo(socket());
              if (own < 0) return std::string("refused");
              const std::string reply = replyTo(own, "{\"op\":\"hello\"}\n");
              return reply.empty() ? std::string("closed") : reply;
            }),
            "closed");
  EXPECT_EQ(stop(SIGINT), 0);
  EXPECT_NE(logText.find("uid 65534"), std::string::npos) << logText;
}

TEST_F(OmniraHelperTest, FansGoBackWhenTheirConnectionClosesOrTheHelperStops) {
  start();
  {
    HelperClient owner = client();
    auto set = owner.setFan(4, 2500);
    ASSERT_TRUE(set) << set.error().message;
    EXPECT_EQ(read(hwmon("hwmon10/pwm1_enable")), "1");
    auto refused = owner.setFan(2, 1000);  // no fan3_max
    ASSERT_FALSE(refused);
  }
  // A later connection is served after the first one's close was handled.
  HelperClient reader = client();
  auto fans = reader.fans();
  ASSERT_TRUE(fans) << fans.error().message;
  EXPECT_EQ(read(hwmon("hwmon10/pwm1_enable")), "2");
  EXPECT_FALSE(fs::exists(state()));

  // auto from another connection hands back a fan that one still holds.
  HelperClient holder = client();
  ASSERT_TRUE(holder.setFan(3, 3000));
  ASSERT_TRUE(reader.setFanAutomatic(3));
  EXPECT_EQ(read(hwmon("hwmon3/device/fan1_manual")), "0");

  // Stopping puts back every fan still held, and the client learns its session is over.
  ASSERT_TRUE(holder.setFan(0, 1100));
  ASSERT_TRUE(holder.setFan(3, 2000));
  EXPECT_EQ(stop(SIGTERM), 0);
  EXPECT_EQ(read(hwmon("hwmon2/pwm1_enable")), "5");
  EXPECT_FALSE(fs::exists(state()));
  auto after = holder.fans();
  ASSERT_FALSE(after);
  EXPECT_EQ(after.error().kind, HelperClient::Failure::Kind::refused);
}

TEST_F(OmniraHelperTest, AStartAfterACrashPutsFansBackFirst) {
  start();
  {
    HelperClient owner = client();
    ASSERT_TRUE(owner.setFan(4, 1000));
    ASSERT_TRUE(owner.setFan(1, 900));
    EXPECT_EQ(stop(SIGKILL), -1);  // no chance to put anything back
  }
  EXPECT_EQ(read(hwmon("hwmon10/pwm1_enable")), "1");
  ASSERT_TRUE(fs::exists(state()));
  ASSERT_TRUE(fs::exists(socket()));  // left behind, and replaced at start

  // The served user comes from the configuration file this time.
  std::ofstream(folder / "helper.conf") << "# written by --install\nuid=777\n";
  start({"--config", (folder / "helper.conf").string()});
  EXPECT_EQ(read(hwmon("hwmon10/pwm1_enable")), "2");
  EXPECT_FALSE(fs::exists(state()));
  auto hello = client().hello();
  ASSERT_TRUE(hello) << hello.error().message;
  EXPECT_EQ(hello->uid, 777u);
}

TEST_F(OmniraHelperTest, ClientTellsNotInstalledFromNotRunning) {
  auto absent = client().hello();
  ASSERT_FALSE(absent);
  EXPECT_EQ(absent.error().kind, HelperClient::Failure::Kind::notInstalled);
  std::ofstream(folder / "helper.conf") << "uid=1000\n";
  auto stopped = client().hello();
  ASSERT_FALSE(stopped);
  EXPECT_EQ(stopped.error().kind, HelperClient::Failure::Kind::notRunning);
}

}  // namespace
}  // namespace omnira
