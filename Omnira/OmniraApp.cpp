#include "Omnira/OmniraApp.h"

#include <unistd.h>

#include <QCoreApplication>

#include <cstdio>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "Omnira/AppDelegate.h"

namespace omnira {

int OmniraApp::run(int argc, char** argv) {
  CLI::App cli{"Runs Omnira: samples the computer, keeps its history and raises insights until stopped.",
               "omnira run"};
  bool headless = false;
  AppDelegate::Options options;
  cli.add_flag("--headless", headless, "Run without any window (the default when there is no display)");
  cli.add_flag("--watching", options.watching,
               "Sample as if a window showed live figures: every \"refreshSeconds\", processes every tick");
  cli.set_version_flag("--version", OMNIRA_VERSION);
  try {
    cli.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return cli.exit(error);
  }
  // There are no windows yet, so a display changes nothing: every run is headless.
  (void)headless;
  options.printTicks = ::isatty(STDOUT_FILENO) == 1;

  AppDelegate::blockStopSignals();
  int qtArgc = 1;
  char* qtArgv[] = {argv[0], nullptr};
  QCoreApplication app(qtArgc, qtArgv);
  QCoreApplication::setApplicationName("Omnira");
  QCoreApplication::setApplicationVersion(OMNIRA_VERSION);

  AppDelegate delegate(options);
  if (auto started = delegate.start(); !started) {
    std::fprintf(stderr, "%s\n", started.error().message.c_str());
    return started.error().exitCode;
  }
  QObject::connect(&delegate, &AppDelegate::stopRequested, &app, &QCoreApplication::quit);
  const int code = app.exec();
  delegate.stop();
  return code;
}

}  // namespace omnira
