#pragma once
// How a second start reaches the Omnira that runs: the running one, when it has a display,
// owns "org.omnira.Omnira" on the session bus with the object "/Omnira", whose Show method
// opens (or raises) its main window. A second start with a display calls Show and ends;
// without a display, or when nobody answers, it refuses as before (see AppDelegate).
//
// Main thread only. Not listening (no session bus, the name taken) is logged and costs only
// the raising: Omnira runs on. The Desktop outlives this object.

#include <QDBusConnection>
#include <QObject>

#include <string>

#include "OmniraCore/foundation/Result.h"

namespace omnira::presentation {

class Desktop;

class ShowService : public QObject {
  Q_OBJECT
  Q_CLASSINFO("D-Bus Interface", "org.omnira.Omnira")

 public:
  static constexpr const char* serviceName = "org.omnira.Omnira";
  static constexpr const char* objectPath = "/Omnira";
  static constexpr const char* interfaceName = "org.omnira.Omnira";

  struct Failure {
    std::string message;  // a sentence saying why
  };

  ShowService(Desktop* desktop, QDBusConnection bus = QDBusConnection::sessionBus(), QObject* parent = nullptr);
  ~ShowService() override;

  // Takes the name and puts the object on the bus.
  Result<void, Failure> listen();

  // From a second start: asks the running Omnira to show its window and waits for its answer.
  static Result<void, Failure> askToShow(QDBusConnection bus = QDBusConnection::sessionBus());

 public slots:
  Q_SCRIPTABLE void Show();

 private:
  Desktop* desktop_;
  QDBusConnection bus_;
  bool listening_ = false;
};

}  // namespace omnira::presentation
