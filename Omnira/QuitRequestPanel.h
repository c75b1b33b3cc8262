#pragma once
// Where the person is asked about one quit request: a window of Omnira's own where there
// is a display, else a desktop notification with actions where there is a session bus.
// Each shows who asks, what would be quit, the verdict, what else stops and what it frees,
// and that no answer in a minute counts as no; the window also offers "Don't ask again for
// safe requests in <folder>" and, for force, the warning.
//
// Main thread only. ask() shows the request and calls `answered` once, later, on the main
// thread; close() takes an open request away without calling it.

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace omnira {

struct QuitPlan {
  std::string asker;   // "Claude Code"
  std::string target;  // "node (4242)", "Firefox", "3 processes in shop"
  bool safe = false;   // Omnira thinks it safe; else it would check first
  std::string reason;
  std::vector<std::string> alsoStops;
  double freesMB = 0;
  size_t leftRunning = 0;  // what of a project or a name is left, not being safe
  std::optional<std::string> folder;  // offered for "don't ask again" when safe
  bool force = false;
};

enum class QuitAnswer { quit, quitAndAllowFolder, no, none };

class QuitRequestPanel {
 public:
  virtual ~QuitRequestPanel() = default;
  virtual void ask(const QuitPlan& plan, std::function<void(QuitAnswer)> answered) = 0;
  virtual void close() = 0;

  // The lines a panel shows, in order, so that the window and the notification say the same.
  static std::string headline(const QuitPlan& plan);
  static std::string verdictLine(const QuitPlan& plan);
  static std::vector<std::string> detailLines(const QuitPlan& plan);
  static constexpr const char* kMinuteLine = "No answer in a minute counts as no.";
  static constexpr const char* kForceWarning = "Force quitting ends it at once. Anything it has not saved is lost.";
  static std::string allowFolderLine(const std::string& folder);

  // The window where there is a display (a QApplication), else a notification where the
  // session bus has a notification service, else nothing: nobody can be asked.
  static std::unique_ptr<QuitRequestPanel> forThisSession();
};

}  // namespace omnira
