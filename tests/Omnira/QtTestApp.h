#pragma once
// The one QCoreApplication that Qt tests in this binary share: the first caller creates it,
// and it lives until the process exits (deliberately never destroyed, so Qt's own globals
// are never torn down before it).

#include <QCoreApplication>

namespace omnira::testing {

inline QCoreApplication& qtTestApp() {
  if (QCoreApplication* existing = QCoreApplication::instance()) return *existing;
  static int argc = 1;
  static char name[] = "omnira_tests";
  static char* argv[] = {name, nullptr};
  static QCoreApplication* app = new QCoreApplication(argc, argv);
  return *app;
}

}  // namespace omnira::testing
