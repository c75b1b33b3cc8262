// Asking the person through a notification, on a D-Bus of the test's own: the request with
// its two actions, the person's click on one, and a notification closed without one.

#include "Omnira/QuitRequestNotification.h"

#include <gtest/gtest.h>

#include "tests/Omnira/NotificationBus.h"
#include "tests/Omnira/QtTestApp.h"

namespace omnira {
namespace {

using testing::pumpUntil;

void emitSignal(QDBusConnection& bus, const char* name, const QList<QVariant>& arguments) {
  auto signal = QDBusMessage::createSignal("/org/freedesktop/Notifications", "org.freedesktop.Notifications", name);
  signal.setArguments(arguments);
  bus.send(signal);
}

TEST(QuitRequestNotification, AsksWithTwoActionsAndHearsTheClickOrNothing) {
  testing::qtTestApp();
  PrivateBus bus;
  ASSERT_TRUE(bus.failure().empty()) << bus.failure();
  auto serviceBus = QDBusConnection::connectToBus(bus.address(), "omnira-quit-service");
  auto askerBus = QDBusConnection::connectToBus(bus.address(), "omnira-quit-asker");
  EXPECT_FALSE(QuitRequestNotification::available(askerBus));
  NotificationService service;
  ASSERT_TRUE(serviceBus.registerVirtualObject("/org/freedesktop/Notifications", &service));
  ASSERT_TRUE(serviceBus.registerService("org.freedesktop.Notifications"));
  EXPECT_TRUE(QuitRequestNotification::available(askerBus));

  {
    QuitRequestNotification panel(askerBus);
    QuitPlan plan{"Claude Code", "node (4242)", true, "A tool of yours that nothing else uses.", {"esbuild (4243)"}, 120, 0,
                  std::nullopt, false};
    std::optional<QuitAnswer> answer;
    panel.ask(plan, [&](QuitAnswer a) { answer = a; });
    ASSERT_TRUE(pumpUntil([&] { return service.received().size() == 1; }));
    const auto sent = service.received()[0];
    EXPECT_EQ(sent.summary, "Claude Code asks to quit node (4242)");
    EXPECT_EQ(sent.actions, (QStringList{"quit", "Quit", "keep", "Don't Quit"}));
    EXPECT_TRUE(sent.body.contains("Also stops: esbuild (4243)."));
    // Someone else's notification is not ours to answer.
    emitSignal(serviceBus, "ActionInvoked", {7u, QString("quit")});
    emitSignal(serviceBus, "ActionInvoked", {1u, QString("quit")});
    ASSERT_TRUE(pumpUntil([&] { return answer.has_value(); }));
    EXPECT_EQ(*answer, QuitAnswer::quit);

    answer.reset();
    plan.force = true;
    panel.ask(plan, [&](QuitAnswer a) { answer = a; });
    ASSERT_TRUE(pumpUntil([&] { return service.received().size() == 2; }));
    EXPECT_EQ(service.received()[1].actions[1], "Force Quit");
    emitSignal(serviceBus, "NotificationClosed", {2u, 1u});  // it expired: nobody answered
    ASSERT_TRUE(pumpUntil([&] { return answer.has_value(); }));
    EXPECT_EQ(*answer, QuitAnswer::none);

    // Names are anyone's: markup in them reaches the body as text; the summary is plain text.
    QuitPlan odd{"Claude Code", "<i>node</i> (4250)", true, "A tool of yours that nothing else uses.",
                 {"a&b <a href=\"x\">y</a> (4251)"}, 120, 0, std::nullopt, false};
    panel.ask(odd, [](QuitAnswer) {});
    ASSERT_TRUE(pumpUntil([&] { return service.received().size() == 3; }));
    const auto marked = service.received()[2];
    EXPECT_EQ(marked.summary, "Claude Code asks to quit <i>node</i> (4250)");
    EXPECT_TRUE(marked.body.contains("Also stops: a&amp;b &lt;a href=\"x\"&gt;y&lt;/a&gt; (4251).")) << marked.body.toStdString();
  }
  QDBusConnection::disconnectFromBus("omnira-quit-service");
  QDBusConnection::disconnectFromBus("omnira-quit-asker");
}

}  // namespace
}  // namespace omnira
