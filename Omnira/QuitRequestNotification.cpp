#include "Omnira/QuitRequestNotification.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QStringList>
#include <QVariantMap>

#include <spdlog/spdlog.h>

#include "Omnira/Notifications.h"
#include "OmniraCore/foundation/SafeText.h"

namespace omnira {

using notifications::interface;
using notifications::path;
using notifications::service;

QuitRequestNotification::QuitRequestNotification(QDBusConnection bus) : bus_(std::move(bus)) {
  bus_.connect(service, path, interface, "ActionInvoked", this, SLOT(actionInvoked(uint, QString)));
  bus_.connect(service, path, interface, "NotificationClosed", this, SLOT(notificationClosed(uint, uint)));
}

QuitRequestNotification::~QuitRequestNotification() { close(); }

bool QuitRequestNotification::available(const QDBusConnection& bus) {
  return bus.isConnected() && bus.interface() && bus.interface()->isServiceRegistered(service).value();
}

void QuitRequestNotification::ask(const QuitPlan& plan, std::function<void(QuitAnswer)> answered) {
  close();
  answered_ = std::move(answered);
  std::string body = verdictLine(plan);
  for (const auto& line : detailLines(plan)) body += "\n" + line;
  if (plan.force) body += std::string("\n") + kForceWarning;
  body += std::string("\n") + kMinuteLine;
  QDBusMessage call = QDBusMessage::createMethodCall(service, path, interface, "Notify");
  QVariantMap hints;
  hints.insert("desktop-entry", QString("omnira"));
  hints.insert("urgency", QVariant::fromValue(static_cast<uchar>(2)));  // stays until answered
  hints.insert("resident", true);
  const QStringList actions{"quit", plan.force ? "Force Quit" : "Quit", "keep", "Don't Quit"};
  call << QString("Omnira") << 0u << QString("omnira") << QString::fromStdString(headline(plan))
       << QString::fromStdString(markupText(body)) << actions << hints << 60'000;
  waitingForID_ = true;
  auto* watcher = new QDBusPendingCallWatcher(bus_.asyncCall(call), this);
  connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* finished) {
    finished->deleteLater();
    waitingForID_ = false;
    const QDBusPendingReply<uint> reply = *finished;
    if (reply.isError()) {
      spdlog::warn("The quit request could not be shown: {}", reply.error().message().toStdString());
      give(QuitAnswer::none);
      return;
    }
    id_ = reply.value();
  });
}

void QuitRequestNotification::actionInvoked(uint id, const QString& action) {
  if (id == 0 || id != id_) return;
  give(action == "quit" ? QuitAnswer::quit : QuitAnswer::no);
  close();
}

void QuitRequestNotification::notificationClosed(uint id, uint) {
  // Dismissed, expired or closed by the desktop: nobody said yes or no.
  if (id != 0 && id == id_) give(QuitAnswer::none);
}

void QuitRequestNotification::give(QuitAnswer answer) {
  if (!answered_) return;
  auto call = std::move(answered_);
  answered_ = nullptr;
  call(answer);
}

void QuitRequestNotification::close() {
  answered_ = nullptr;
  if (id_ != 0 && bus_.isConnected()) {
    auto call = QDBusMessage::createMethodCall(service, path, interface, "CloseNotification");
    call << id_;
    bus_.asyncCall(call);
  }
  id_ = 0;
}

}  // namespace omnira
