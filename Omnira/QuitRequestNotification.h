#pragma once
// The person's panel where there is no display but a desktop notification service: a
// notification with the request and two actions, Quit and Don't quit. A notification closed
// without an action, or one the service refuses, is no answer. Main thread only.

#include <QDBusConnection>
#include <QObject>

#include "Omnira/QuitRequestPanel.h"

namespace omnira {

class QuitRequestNotification : public QObject, public QuitRequestPanel {
  Q_OBJECT

 public:
  explicit QuitRequestNotification(QDBusConnection bus = QDBusConnection::sessionBus());
  ~QuitRequestNotification() override;
  void ask(const QuitPlan& plan, std::function<void(QuitAnswer)> answered) override;
  void close() override;

  // Whether the bus has a notification service to ask through.
  static bool available(const QDBusConnection& bus);

 private slots:
  void actionInvoked(uint id, const QString& action);
  void notificationClosed(uint id, uint reason);

 private:
  void give(QuitAnswer answer);

  QDBusConnection bus_;
  uint id_ = 0;
  bool waitingForID_ = false;
  std::function<void(QuitAnswer)> answered_;
};

}  // namespace omnira
