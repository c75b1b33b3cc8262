#pragma once
// Ending the person's own processes and asking their apps to quit, once the person said yes.
//
// Processes: SIGTERM (SIGKILL with force) to the process and to everything it started.
// Refused, with nothing sent, for pid 0 and 1, Omnira itself, a pid that is not there, and
// another user's process.
//
// Apps, so they can ask to save, in this order:
//   1. the app's own quit action on the session bus, where it exports one: GTK and GNOME
//      apps (org.freedesktop.Application "quit" under their app id: Text Editor, Files,
//      Calculator, ...), when the bus name belongs to the app's process;
//   2. its windows' close requests through the window manager (_NET_CLOSE_WINDOW to every
//      X11 window whose _NET_WM_PID is one of the app's processes): Firefox, Chromium,
//      Electron apps such as VS Code, Qt and GTK apps under X11 or XWayland, as if the
//      person clicked each window's close button;
//   3. SIGTERM to its main processes, for an app with neither (no window, or windows on a
//      Wayland desktop that X11 cannot see), which most toolkits take as a request to quit.
// With force an app's processes get SIGKILL at once.
//
// Main thread only (it uses the application's session bus connection). Virtual so that the
// quit requests' tests can stand in for it.

#include <QDBusConnection>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace omnira {

class ProcessActions {
 public:
  enum class Sent { sent, refused, failed };
  enum class AppQuit { quitAction, closedWindows, terminated, killed, refused, failed };

  explicit ProcessActions(QDBusConnection bus = QDBusConnection::sessionBus());
  virtual ~ProcessActions();

  // `alsoStops`: what the process started, which gets the same signal after it.
  virtual Sent signal(int32_t pid, const std::vector<int32_t>& alsoStops, bool force);
  // `mains`: the app's processes that nothing else in it started; `others`: the rest of it.
  // `appID`: its desktop entry's id ("org.gnome.TextEditor"), when it has one.
  virtual AppQuit quitApp(const std::vector<int32_t>& mains, const std::vector<int32_t>& others,
                          const std::optional<std::string>& appID, bool force);
  // Whether the process still runs (and is not a zombie waiting for its parent).
  virtual bool isRunning(int32_t pid) const;

  // Why a pid may not be signalled, as a phrase; nothing when it may.
  static std::optional<std::string> refusal(int32_t pid);

 private:
  bool quitAction(const std::vector<int32_t>& pids, const std::string& appID);
  bool closeWindows(const std::vector<int32_t>& pids);

  QDBusConnection bus_;
};

}  // namespace omnira
