#pragma once
// The application type: makes the Qt application object (a QCoreApplication without a
// display, or when asked to run headless), hands start-up and shut-down to AppDelegate
// and runs the event loop on the main thread.

namespace omnira {

class OmniraApp {
 public:
  // Parses `argc`/`argv` ("--headless", "--watching", "--help"), runs until SIGINT or
  // SIGTERM and returns the process's exit code: 0 after a clean stop, 1 when Omnira
  // could not start (another instance runs, no home folder), 2 for a usage mistake.
  static int run(int argc, char** argv);
};

}  // namespace omnira
