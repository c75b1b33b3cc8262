#pragma once
// The application type: makes the Qt application object (a QCoreApplication without a
// display, or when asked to run headless), hands start-up and shut-down to AppDelegate
// and runs the event loop on the main thread.

namespace omnira {

class OmniraApp {
 public:
  // Parses `argc`/`argv` ("--headless", "--watching", "--help"), runs until SIGINT or
  // SIGTERM and returns the process's exit code: 0 after a clean stop or when the running
  // Omnira was asked to show its window, 1 when Omnira could not start (another instance
  // runs and has no window to show, no home folder), 2 for a usage mistake.
  static int run(int argc, char** argv);
};

}  // namespace omnira
