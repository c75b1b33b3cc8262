#include "Omnira/QuitRequestPanel.h"

#include <QApplication>
#include <QDBusConnection>

#include <fmt/format.h>

#include "Omnira/QuitRequestNotification.h"
#include "Omnira/QuitRequestWindow.h"

namespace omnira {

std::string QuitRequestPanel::headline(const QuitPlan& plan) {
  return plan.force ? plan.asker + " wants to force quit " + plan.target : plan.asker + " asks to quit " + plan.target;
}

std::string QuitRequestPanel::verdictLine(const QuitPlan& plan) {
  const std::string verdict = plan.safe ? "Omnira thinks this is safe to quit." : "Omnira would check before quitting this.";
  return plan.reason.empty() ? verdict : verdict + " " + plan.reason;
}

std::vector<std::string> QuitRequestPanel::detailLines(const QuitPlan& plan) {
  std::vector<std::string> lines;
  if (!plan.alsoStops.empty()) {
    std::string list;
    for (size_t i = 0; i < plan.alsoStops.size() && i < 6; ++i) list += (i ? ", " : "") + plan.alsoStops[i];
    if (plan.alsoStops.size() > 6) list += fmt::format(" and {} more", plan.alsoStops.size() - 6);
    lines.push_back("Also stops: " + list + ".");
  }
  if (plan.freesMB >= 1) lines.push_back(fmt::format("Frees about {:.0f} MB of memory.", plan.freesMB));
  if (plan.leftRunning > 0)
    lines.push_back(fmt::format("{} more will be left running, because they are not safe to quit.", plan.leftRunning));
  return lines;
}

std::string QuitRequestPanel::allowFolderLine(const std::string& folder) {
  const auto slash = folder.find_last_of('/');
  return "Don’t ask again for safe requests in " + (slash == std::string::npos ? folder : folder.substr(slash + 1));
}

std::unique_ptr<QuitRequestPanel> QuitRequestPanel::forThisSession() {
  if (qobject_cast<QApplication*>(QCoreApplication::instance())) return std::make_unique<QuitRequestWindow>();
  if (QuitRequestNotification::available(QDBusConnection::sessionBus())) return std::make_unique<QuitRequestNotification>();
  return nullptr;
}

}  // namespace omnira
