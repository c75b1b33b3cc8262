#pragma once
// The one application object that Qt tests in this binary share: the first caller creates
// it, and it lives until the process exits (deliberately never destroyed, so Qt's own
// globals are never torn down before it). It is a QApplication on the offscreen platform,
// so windows can be opened and clicked without a display.

#include <QApplication>

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

}  // namespace omnira::testing
