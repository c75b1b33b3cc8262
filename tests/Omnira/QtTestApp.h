#pragma once
// The one application object that Qt tests in this binary share: the first caller creates
// it, and it lives until the process exits (deliberately never destroyed, so Qt's own
// globals are never torn down before it). It is a QApplication on the offscreen platform,
// so windows can be opened and clicked without a display.

#include <QApplication>
#include <QEventLoop>
#include <QTimer>

#include <cstdlib>

namespace omnira::testing {

inline QCoreApplication& qtTestApp() {
  if (QCoreApplication* existing = QCoreApplication::instance()) return *existing;
  ::setenv("QT_QPA_PLATFORM", "offscreen", 1);
  static int argc = 1;
  static char name[] = "omnira_tests";
  static char* argv[] = {name, nullptr};
  static QApplication* app = new QApplication(argc, argv);
  app->setQuitOnLastWindowClosed(false);
  return *app;
}

// Runs the event loop until `done` holds, looking every 20 ms. The guard only catches
// something that stopped altogether; it does not measure speed.
template <class Done>
bool pumpUntil(Done done, int guardMilliseconds = 60'000) {
  QEventLoop loop;
  QTimer poll;
  QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
    if (done()) loop.quit();
  });
  poll.start(20);
  QTimer::singleShot(guardMilliseconds, &loop, &QEventLoop::quit);
  if (!done()) loop.exec();
  return done();
}

}  // namespace omnira::testing
