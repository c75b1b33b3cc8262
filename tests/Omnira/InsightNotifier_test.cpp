// Notifications go over a real D-Bus: each test starts its own bus daemon, and a small
// notification service on a second connection plays the desktop's notification server.

#include "Omnira/InsightNotifier.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <spdlog/sinks/ringbuffer_sink.h>
#include <spdlog/spdlog.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusVirtualObject>
#include <QEventLoop>
#include <QTimer>

#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#include "tests/Omnira/QtTestApp.h"

extern char** environ;

namespace omnira {
namespace {

// A bus daemon of our own, with no service files, so an installed notification server is
// never activated on it and the tests see only the service they register.
class PrivateBus {
 public:
  PrivateBus() {
    std::string pattern = (std::filesystem::temp_directory_path() / "omnira-bus-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) return;
    folder_ = pattern;
    const auto config = folder_ / "bus.conf";
    std::ofstream(config) << "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-BUS Bus Configuration 1.0//EN\"\n"
                             " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
                             "<busconfig><type>session</type>\n"
                             "<listen>unix:path="
                          << (folder_ / "bus").string()
                          << "</listen><auth>EXTERNAL</auth>\n"
                             "<policy context=\"default\"><allow send_destination=\"*\" eavesdrop=\"true\"/>"
                             "<allow eavesdrop=\"true\"/><allow own=\"*\"/></policy></busconfig>\n";

    int out[2];
    if (::pipe(out) != 0) return;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, out[0]);
    const std::string log = (folder_ / "daemon.log").string();
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const std::string configArgument = "--config-file=" + config.string();
    char* argv[] = {const_cast<char*>("dbus-daemon"), const_cast<char*>(configArgument.c_str()),
                    const_cast<char*>("--nofork"), const_cast<char*>("--print-address=1"), nullptr};
    const int spawned = ::posix_spawnp(&pid_, "dbus-daemon", &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    if (spawned != 0) pid_ = -1;

    // The daemon prints its address once it listens; 5 s is a guard against a hang only.
    pollfd readable{out[0], POLLIN, 0};
    char c;
    while (pid_ > 0 && ::poll(&readable, 1, 5000) == 1 && ::read(out[0], &c, 1) == 1 && c != '\n') address_ += c;
    ::close(out[0]);
    if (address_.empty()) {
      std::ifstream in(log);
      std::ostringstream text;
      text << in.rdbuf();
      failure_ = "dbus-daemon did not start: " + text.str();
    }
  }

  ~PrivateBus() {
    if (pid_ > 0) {
      ::kill(pid_, SIGTERM);
      ::waitpid(pid_, nullptr, 0);
    }
    if (!folder_.empty()) std::filesystem::remove_all(folder_);
  }

  const QString address() const { return QString::fromStdString(address_); }
  const std::string& failure() const { return failure_; }

 private:
  std::filesystem::path folder_;
  pid_t pid_ = -1;
  std::string address_;
  std::string failure_;
};

struct Notification {
  QString signature;
  QString appName;
  uint replacesID = 0;
  QString icon;
  QString summary;
  QString body;
  QStringList actions;
  QVariantMap hints;
  int expireTimeout = 0;
};

// The desktop's side of Notify, answering with ids 1, 2, ... as a notification server does.
// Kept without moc: a virtual object sees the raw message, signature included.
class NotificationService : public QDBusVirtualObject {
 public:
  QString introspect(const QString&) const override { return {}; }

  bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
    if (message.interface() != "org.freedesktop.Notifications" || message.member() != "Notify") return false;
    const QList<QVariant> arguments = message.arguments();
    Notification received;
    received.signature = message.signature();
    if (arguments.size() == 8) {
      received.appName = arguments[0].toString();
      received.replacesID = arguments[1].toUInt();
      received.icon = arguments[2].toString();
      received.summary = arguments[3].toString();
      received.body = arguments[4].toString();
      received.actions = arguments[5].toStringList();
      received.hints = qdbus_cast<QVariantMap>(arguments[6].value<QDBusArgument>());
      received.expireTimeout = arguments[7].toInt();
    }
    uint id;
    {
      std::lock_guard lock(mutex_);
      received_.push_back(received);
      id = static_cast<uint>(received_.size());
    }
    connection.send(message.createReply(QVariant::fromValue(id)));
    return true;
  }

  std::vector<Notification> received() const {
    std::lock_guard lock(mutex_);
    return received_;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<Notification> received_;
};

struct Outcome {
  std::vector<uint> delivered;
  std::vector<QString> failed;
};

// Runs the event loop until `expected` replies came back; the 5 s timer only stops a hang.
Outcome await(InsightNotifier& notifier, size_t expected) {
  Outcome outcome;
  QEventLoop loop;
  const auto check = [&] {
    if (outcome.delivered.size() + outcome.failed.size() >= expected) loop.quit();
  };
  QObject::connect(&notifier, &InsightNotifier::delivered, &loop, [&](uint id) {
    outcome.delivered.push_back(id);
    check();
  });
  QObject::connect(&notifier, &InsightNotifier::failed, &loop, [&](const QString& reason) {
    outcome.failed.push_back(reason);
    check();
  });
  QTimer::singleShot(5000, &loop, &QEventLoop::quit);
  loop.exec();
  return outcome;
}

Insight makeInsight(Insight::Kind kind, std::string title, std::string detail) {
  Insight insight;
  insight.id = UUID::random();
  insight.date = std::chrono::system_clock::now();
  insight.kind = kind;
  insight.title = std::move(title);
  insight.detail = std::move(detail);
  return insight;
}

class InsightNotifierTest : public ::testing::Test {
 protected:
  void SetUp() override { testing::qtTestApp(); }

  void TearDown() override {
    for (const QString& name : connections_) QDBusConnection::disconnectFromBus(name);
  }

  QDBusConnection connect(const QString& address, const QString& name) {
    connections_.push_back(name);
    return QDBusConnection::connectToBus(address, name);
  }

 private:
  std::vector<QString> connections_;
};

TEST_F(InsightNotifierTest, PostsEachInsightToTheNotificationService) {
  PrivateBus bus;
  ASSERT_FALSE(bus.address().isEmpty()) << bus.failure();

  QDBusConnection serviceBus = connect(bus.address(), "omnira-test-notification-service");
  ASSERT_TRUE(serviceBus.isConnected()) << serviceBus.lastError().message().toStdString();
  NotificationService service;
  ASSERT_TRUE(serviceBus.registerVirtualObject("/org/freedesktop/Notifications", &service));
  ASSERT_TRUE(serviceBus.registerService("org.freedesktop.Notifications"));

  InsightNotifier notifier(connect(bus.address(), "omnira-test-notifier"));
  const Insight busy = makeInsight(Insight::Kind::sustainedCPU, "Firefox keeps the CPU busy",
                                   "85 % of a core for 10 min, in the background — “Tabs” included.");
  Insight pressure = makeInsight(Insight::Kind::memoryPressure, "Memory pressure is critical",
                                 "The computer is short of memory.");
  pressure.appID = "critical";
  ASSERT_TRUE(notifier.post(busy));
  ASSERT_TRUE(notifier.post(pressure));

  const Outcome outcome = await(notifier, 2);
  EXPECT_TRUE(outcome.failed.empty()) << outcome.failed.front().toStdString();
  EXPECT_EQ(outcome.delivered, (std::vector<uint>{1, 2}));

  const std::vector<Notification> received = service.received();
  ASSERT_EQ(received.size(), 2u);
  const Notification& first = received[0];
  EXPECT_EQ(first.signature.toStdString(), "susssasa{sv}i");
  EXPECT_EQ(first.appName.toStdString(), "Omnira");
  EXPECT_EQ(first.replacesID, 0u);
  EXPECT_EQ(first.icon.toStdString(), "omnira");
  EXPECT_EQ(first.summary.toStdString(), busy.title);
  EXPECT_EQ(first.body.toStdString(), busy.detail);
  EXPECT_TRUE(first.actions.isEmpty());
  EXPECT_EQ(first.hints.value("desktop-entry").toString().toStdString(), "omnira");
  EXPECT_STREQ(first.hints.value("urgency").metaType().name(), QMetaType::fromType<uchar>().name());
  EXPECT_EQ(first.hints.value("urgency").toInt(), 1);
  EXPECT_EQ(first.expireTimeout, -1);

  EXPECT_EQ(received[1].summary.toStdString(), pressure.title);
  EXPECT_EQ(received[1].hints.value("urgency").toInt(), 2);
}

TEST_F(InsightNotifierTest, WithoutServiceOrBusPostsNothing) {
  // A bus where nobody shows notifications: the call fails, quietly.
  PrivateBus bus;
  ASSERT_FALSE(bus.address().isEmpty()) << bus.failure();
  {
    InsightNotifier notifier(connect(bus.address(), "omnira-test-no-service"));
    EXPECT_TRUE(notifier.post("Disk burst", "12 GB written in 10 min."));
    const Outcome outcome = await(notifier, 1);
    EXPECT_TRUE(outcome.delivered.empty());
    ASSERT_EQ(outcome.failed.size(), 1u);
    EXPECT_FALSE(outcome.failed.front().isEmpty());
  }

  // No bus at all: nothing is sent, and the log says so once, not once per insight.
  auto previous = spdlog::default_logger();
  auto lines = std::make_shared<spdlog::sinks::ringbuffer_sink_mt>(16);
  auto logger = std::make_shared<spdlog::logger>("test", lines);
  logger->set_level(spdlog::level::debug);
  spdlog::set_default_logger(logger);
  {
    InsightNotifier notifier(connect("unix:path=/nonexistent/omnira-test-bus", "omnira-test-no-bus"));
    int replies = 0;
    QObject::connect(&notifier, &InsightNotifier::delivered, [&] { ++replies; });
    QObject::connect(&notifier, &InsightNotifier::failed, [&] { ++replies; });
    EXPECT_FALSE(notifier.post("Disk burst", "12 GB written in 10 min."));
    EXPECT_FALSE(notifier.post(makeInsight(Insight::Kind::runningHot, "Running hot", "95 °C for 3 min.")));
    QCoreApplication::processEvents();
    EXPECT_EQ(replies, 0);
  }
  spdlog::set_default_logger(previous);
  const std::vector<std::string> logged = lines->last_formatted();
  ASSERT_EQ(logged.size(), 1u);
  EXPECT_NE(logged.front().find("no session bus"), std::string::npos) << logged.front();
}

}  // namespace
}  // namespace omnira
