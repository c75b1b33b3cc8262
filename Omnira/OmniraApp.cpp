#include "Omnira/OmniraApp.h"

#include <unistd.h>

#include <QApplication>
#include <QCoreApplication>
#include <xcb/xcb.h>

#include <cstdlib>
#include <memory>
#include <string>

#include <cstdio>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "Omnira/AppDelegate.h"
#include "Omnira/presentation/Desktop.h"

namespace omnira {

namespace {

bool displayAnswers() {
  if (const char* wayland = std::getenv("WAYLAND_DISPLAY"); wayland && *wayland) {
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    const std::string socket = wayland[0] == '/' ? wayland : std::string(runtime ? runtime : "") + "/" + wayland;
    if (::access(socket.c_str(), F_OK) == 0) return true;
  }
  const char* x11 = std::getenv("DISPLAY");
  if (!x11 || !*x11) return false;
  xcb_connection_t* connection = xcb_connect(nullptr, nullptr);
  const bool answers = connection && !xcb_connection_has_error(connection);
  if (connection) xcb_disconnect(connection);
  return answers;
}

}  // namespace

int OmniraApp::run(int argc, char** argv) {
  CLI::App cli{"Runs Omnira: samples the computer, keeps its history and raises insights until stopped.",
               "omnira run"};
  bool headless = false;
  AppDelegate::Options options;
  cli.add_flag("--headless", headless,
               "Run without any window: quit requests are asked through notifications (the default without a display)");
  cli.add_flag("--watching", options.watching,
               "Sample as if a window showed live figures: every \"refreshSeconds\", processes every tick");
  bool trayOnly = false;
  cli.add_flag("--tray-only", trayOnly, "With a display, start with only the status icon, no window (for a start at login)");
  // For the screenshot script and for trying a page: opens "panel" or a page of the window at start.
  cli.add_option("--open", options.openOnStart)
      ->group("")
      ->check(CLI::Validator(
          [](const std::string& page) {
            const QString name = QString::fromStdString(page);
            return name == QLatin1String("panel") || presentation::Desktop::isPage(name.section(QLatin1Char('/'), 0, 0))
                       ? std::string()
                       : "no such page: " + page;
          },
          "PAGE"));
  cli.set_version_flag("--version", OMNIRA_VERSION);
  try {
    cli.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return cli.exit(error);
  }
  options.printTicks = ::isatty(STDOUT_FILENO) == 1;
  if (trayOnly && cli.count("--open") > 0) {
    std::fprintf(stderr, "--tray-only opens no window, so it cannot go with --open.\n");
    return 2;
  }
  if (trayOnly) options.openOnStart.clear();

  AppDelegate::blockStopSignals();
  int qtArgc = 1;
  char* qtArgv[] = {argv[0], nullptr};
  // Windows (the quit request's) need a display that answers; a dead DISPLAY must not end
  // the monitor, so without one it runs as a service does.
  std::unique_ptr<QCoreApplication> application;
  if (!headless && displayAnswers()) {
    auto* gui = new QApplication(qtArgc, qtArgv);
    gui->setQuitOnLastWindowClosed(false);  // a closed window is not the end of Omnira: it stays in the panel
    application.reset(gui);
    options.desktop = true;
  } else {
    application = std::make_unique<QCoreApplication>(qtArgc, qtArgv);
  }
  QCoreApplication& app = *application;
  QCoreApplication::setApplicationName("Omnira");
  QCoreApplication::setApplicationVersion(OMNIRA_VERSION);

  AppDelegate delegate(options);
  if (auto started = delegate.start(); !started) {
    // Exit status 0 is news (the running Omnira showed its window), not a complaint.
    std::fprintf(started.error().exitCode == 0 ? stdout : stderr, "%s\n", started.error().message.c_str());
    return started.error().exitCode;
  }
  QObject::connect(&delegate, &AppDelegate::stopRequested, &app, &QCoreApplication::quit);
  const int code = app.exec();
  delegate.stop();
  return code;
}

}  // namespace omnira
