#pragma once
// Tells the person about each new insight with a desktop notification, through the
// freedesktop notification service (org.freedesktop.Notifications) on the session bus.
//
// Main thread only: create, use and destroy it on the thread that runs the Qt event loop,
// where the replies arrive. Posting never blocks: the call is sent and its reply is read later
// by the event loop. Nothing here is fatal: without a connected bus the notifier writes one
// debug log line and posts nothing; a call the service refuses or never answers is a debug
// log line. The insight stays in "Worth a Look" either way.

#include <QDBusConnection>
#include <QObject>
#include <QString>

#include <string>

#include "OmniraCore/history/Insight.h"

namespace omnira {

class InsightNotifier : public QObject {
  Q_OBJECT

 public:
  // The freedesktop hint's values.
  enum class Urgency : unsigned char { low = 0, normal = 1, critical = 2 };

  // The desktop entry the notifications belong to (omnira.desktop), for the desktop's
  // per-app notification settings.
  static constexpr const char* desktopEntry = "omnira";

  explicit InsightNotifier(QDBusConnection bus = QDBusConnection::sessionBus(), QObject* parent = nullptr);

  // Returns whether a call was sent; false without a connected bus.
  bool post(const Insight& insight);
  bool post(const std::string& title, const std::string& detail, Urgency urgency = Urgency::normal);

  // Critical memory pressure and a hot machine stay on screen; idle servers can wait.
  static Urgency urgency(const Insight& insight);

 signals:
  // The service showed the notification under this id.
  void delivered(uint notificationID);
  // The service is absent, refused the call or did not answer; `reason` is D-Bus's sentence.
  void failed(const QString& reason);

 private:
  QDBusConnection bus_;
  bool reportedNoBus_ = false;
};

}  // namespace omnira
