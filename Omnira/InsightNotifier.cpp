#include "Omnira/InsightNotifier.h"

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

InsightNotifier::InsightNotifier(QDBusConnection bus, QObject* parent) : QObject(parent), bus_(std::move(bus)) {}

InsightNotifier::Urgency InsightNotifier::urgency(const Insight& insight) {
  switch (insight.kind) {
    case Insight::Kind::memoryPressure:
      return insight.appID == "critical" ? Urgency::critical : Urgency::normal;
    case Insight::Kind::runningHot:
      return Urgency::critical;
    case Insight::Kind::idleServers:
      return Urgency::low;
    default:
      return Urgency::normal;
  }
}

bool InsightNotifier::post(const Insight& insight) { return post(insight.title, insight.detail, urgency(insight)); }

bool InsightNotifier::post(const std::string& title, const std::string& detail, Urgency urgency) {
  if (!bus_.isConnected()) {
    // Once is enough: a headless session without a bus stays that way.
    if (!reportedNoBus_) {
      spdlog::debug("notifications: no session bus, insights are not posted ({})",
                    bus_.lastError().message().toStdString());
      reportedNoBus_ = true;
    }
    return false;
  }

  QDBusMessage call = QDBusMessage::createMethodCall(service, path, interface, "Notify");
  QVariantMap hints;
  hints.insert("desktop-entry", QString::fromLatin1(desktopEntry));
  hints.insert("urgency", QVariant::fromValue(static_cast<uchar>(urgency)));  // D-Bus wants a byte
  call << QString("Omnira") << 0u << QString("omnira") << QString::fromStdString(title)
       << QString::fromStdString(markupText(detail)) << QStringList() << hints << -1;

  auto* watcher = new QDBusPendingCallWatcher(bus_.asyncCall(call), this);
  connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, title](QDBusPendingCallWatcher* finished) {
    finished->deleteLater();
    const QDBusPendingReply<uint> reply = *finished;
    if (reply.isError()) {
      spdlog::debug("notifications: \"{}\" was not posted: {}", title, reply.error().message().toStdString());
      emit failed(reply.error().message());
      return;
    }
    emit delivered(reply.value());
  });
  return true;
}

}  // namespace omnira
