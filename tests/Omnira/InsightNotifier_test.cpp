// Notifications go over a real D-Bus: the test starts its own bus daemon, and a small
// notification service on a second connection plays the desktop's notification server.

#include "Omnira/InsightNotifier.h"

#include <gtest/gtest.h>
#include <spdlog/sinks/ringbuffer_sink.h>
#include <spdlog/spdlog.h>

#include "tests/Omnira/NotificationBus.h"
#include "tests/Omnira/QtTestApp.h"

namespace omnira {
namespace {

struct Outcome {
  std::vector<uint> delivered;
  std::vector<QString> failed;
};

// Runs the event loop until `expected` replies came back; the 5 s guard only stops a hang.
Outcome await(InsightNotifier& notifier, size_t expected) {
  Outcome outcome;
  QObject context;  // takes the connections away on return
  QObject::connect(&notifier, &InsightNotifier::delivered, &context, [&](uint id) { outcome.delivered.push_back(id); });
  QObject::connect(&notifier, &InsightNotifier::failed, &context, [&](const QString& why) { outcome.failed.push_back(why); });
  testing::pumpUntil([&] { return outcome.delivered.size() + outcome.failed.size() >= expected; }, 5000);
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

TEST(InsightNotifier, PostsEachInsightToTheServiceAndFailsQuietlyWithoutOne) {
  testing::qtTestApp();
  PrivateBus bus;
  ASSERT_FALSE(bus.address().isEmpty()) << bus.failure();
  QDBusConnection serviceBus = QDBusConnection::connectToBus(bus.address(), "omnira-test-notification-service");
  ASSERT_TRUE(serviceBus.isConnected()) << serviceBus.lastError().message().toStdString();
  InsightNotifier notifier(QDBusConnection::connectToBus(bus.address(), "omnira-test-notifier"));

  // A bus where nobody shows notifications yet: the call fails, quietly.
  EXPECT_TRUE(notifier.post("Disk burst", "12 GB written in 10 min."));
  Outcome outcome = await(notifier, 1);
  ASSERT_EQ(outcome.failed.size(), 1u);

  NotificationService service;
  ASSERT_TRUE(serviceBus.registerVirtualObject("/org/freedesktop/Notifications", &service));
  ASSERT_TRUE(serviceBus.registerService("org.freedesktop.Notifications"));
  const Insight busy = makeInsight(Insight::Kind::sustainedCPU, "Firefox keeps the CPU busy",
                                   "85 % of a core for 10 min, in the background — “Tabs” included.");
  Insight pressure = makeInsight(Insight::Kind::memoryPressure, "Memory pressure is critical",
                                 "The computer is short of memory.");
  pressure.appID = "critical";
  ASSERT_TRUE(notifier.post(busy));
  ASSERT_TRUE(notifier.post(pressure));
  outcome = await(notifier, 2);
  EXPECT_TRUE(outcome.failed.empty()) << outcome.failed.front().toStdString();
  EXPECT_EQ(outcome.delivered, (std::vector<uint>{1, 2}));

  const std::vector<Notification> received = service.received();
  ASSERT_EQ(received.size(), 2u);
  const Notification& first = received[0];
  EXPECT_EQ(first.signature.toStdString(), "susssasa{sv}i");  // what a real server takes, and nothing else
  EXPECT_STREQ(first.hints.value("urgency").metaType().name(), QMetaType::fromType<uchar>().name());
  EXPECT_EQ(first.summary.toStdString(), busy.title);
  EXPECT_EQ(first.body.toStdString(), busy.detail);
  EXPECT_EQ(first.hints.value("urgency").toInt(), 1);
  EXPECT_EQ(received[1].hints.value("urgency").toInt(), 2);

  // A name with markup in it: text in the body, where servers read markup; the summary is plain.
  ASSERT_TRUE(notifier.post("<b>Tom & Jerry</b> keeps the CPU busy", "<img src=\"x\"/> & <b>Tom</b> at 85 %"));
  EXPECT_EQ(await(notifier, 1).delivered.size(), 1u);
  ASSERT_EQ(service.received().size(), 3u);
  EXPECT_EQ(service.received()[2].body.toStdString(), "&lt;img src=\"x\"/&gt; &amp; &lt;b&gt;Tom&lt;/b&gt; at 85 %");

  // No bus at all: nothing is sent, and the log says so once, not once per insight.
  auto previous = spdlog::default_logger();
  auto lines = std::make_shared<spdlog::sinks::ringbuffer_sink_mt>(16);
  auto logger = std::make_shared<spdlog::logger>("test", lines);
  logger->set_level(spdlog::level::debug);
  spdlog::set_default_logger(logger);
  {
    InsightNotifier lost(QDBusConnection::connectToBus("unix:path=/nonexistent/omnira-test-bus", "omnira-test-no-bus"));
    int replies = 0;
    QObject::connect(&lost, &InsightNotifier::delivered, [&] { ++replies; });
    QObject::connect(&lost, &InsightNotifier::failed, [&] { ++replies; });
    EXPECT_FALSE(lost.post("Disk burst", "12 GB written in 10 min."));
    EXPECT_FALSE(lost.post(makeInsight(Insight::Kind::runningHot, "Running hot", "95 °C for 3 min.")));
    QCoreApplication::processEvents();
    EXPECT_EQ(replies, 0);
  }
  spdlog::set_default_logger(previous);
  const std::vector<std::string> logged = lines->last_formatted();
  ASSERT_EQ(logged.size(), 1u);
  EXPECT_NE(logged.front().find("no session bus"), std::string::npos) << logged.front();
  for (const char* name : {"omnira-test-notification-service", "omnira-test-notifier", "omnira-test-no-bus"})
    QDBusConnection::disconnectFromBus(name);
}

}  // namespace
}  // namespace omnira
