#include "Omnira/ProcessActions.h"

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>
#include <xcb/xcb.h>

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusReply>
#include <QDBusVariant>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>

#include <spdlog/spdlog.h>

namespace omnira {

namespace {

std::string procPath(int32_t pid) { return "/proc/" + std::to_string(pid); }

// "S (sleeping)": the state letter of /proc/PID/stat, after the name in parentheses.
char stateOf(int32_t pid) {
  std::ifstream in(procPath(pid) + "/stat");
  std::string text;
  std::getline(in, text);
  const auto close = text.rfind(')');
  return close == std::string::npos || close + 2 >= text.size() ? '?' : text[close + 2];
}

xcb_atom_t atom(xcb_connection_t* connection, const char* name) {
  auto* reply = xcb_intern_atom_reply(connection, xcb_intern_atom(connection, 0, static_cast<uint16_t>(std::strlen(name)), name),
                                      nullptr);
  const xcb_atom_t value = reply ? reply->atom : XCB_ATOM_NONE;
  std::free(reply);
  return value;
}

}  // namespace

ProcessActions::ProcessActions(QDBusConnection bus) : bus_(std::move(bus)) {}
ProcessActions::~ProcessActions() = default;

std::optional<std::string> ProcessActions::refusal(int32_t pid) {
  if (pid < 2) return "it is part of the system";
  if (pid == ::getpid()) return "it is Omnira itself";
  struct stat info {};
  if (::stat(procPath(pid).c_str(), &info) != 0) return "it is no longer running";
  if (info.st_uid != ::getuid()) return "it belongs to another user";
  return std::nullopt;
}

bool ProcessActions::isRunning(int32_t pid) const {
  struct stat info {};
  if (::stat(procPath(pid).c_str(), &info) != 0) return false;
  return stateOf(pid) != 'Z';
}

ProcessActions::Sent ProcessActions::signal(int32_t pid, const std::vector<int32_t>& alsoStops, bool force) {
  if (auto why = refusal(pid)) {
    spdlog::info("Not signalling {}: {}", pid, *why);
    return Sent::refused;
  }
  const int number = force ? SIGKILL : SIGTERM;
  if (::kill(pid, number) != 0) {
    spdlog::warn("Could not signal {}: {}", pid, std::strerror(errno));
    return Sent::failed;
  }
  // What it started goes with it; one that already ended, or is not the person's, is passed over.
  for (const int32_t child : alsoStops)
    if (!refusal(child)) ::kill(child, number);
  return Sent::sent;
}

ProcessActions::AppQuit ProcessActions::quitApp(const std::vector<int32_t>& mains, const std::vector<int32_t>& others,
                                                const std::optional<std::string>& appID, bool force) {
  std::vector<int32_t> all = mains;
  all.insert(all.end(), others.begin(), others.end());
  if (mains.empty() || std::any_of(mains.begin(), mains.end(), [](int32_t pid) { return refusal(pid).has_value(); }))
    return AppQuit::refused;
  if (force) {
    for (const int32_t pid : mains) signal(pid, others, true);
    return AppQuit::killed;
  }
  if (appID && quitAction(all, *appID)) return AppQuit::quitAction;
  if (closeWindows(all)) return AppQuit::closedWindows;
  bool sent = false;
  for (const int32_t pid : mains) sent = signal(pid, {}, false) == Sent::sent || sent;
  return sent ? AppQuit::terminated : AppQuit::failed;
}

bool ProcessActions::quitAction(const std::vector<int32_t>& pids, const std::string& appID) {
  if (!bus_.isConnected() || !bus_.interface()) return false;
  const QString name = QString::fromStdString(appID);
  // The name must be the app's own: another program may hold a name it does not own.
  const QDBusReply<uint> owner = bus_.interface()->servicePid(name);
  if (!owner.isValid() || std::find(pids.begin(), pids.end(), static_cast<int32_t>(owner.value())) == pids.end())
    return false;
  QString path = "/" + name;
  path.replace('.', '/').replace('-', '_');
  auto list = QDBusMessage::createMethodCall(name, path, "org.gtk.Actions", "List");
  const QDBusReply<QStringList> actions = bus_.call(list, QDBus::Block, 1000);
  if (!actions.isValid() || !actions.value().contains("quit")) return false;
  auto call = QDBusMessage::createMethodCall(name, path, "org.freedesktop.Application", "ActivateAction");
  call << QString("quit") << QVariantList() << QVariantMap();
  const QDBusMessage reply = bus_.call(call, QDBus::Block, 2000);
  if (reply.type() == QDBusMessage::ErrorMessage) {
    spdlog::info("{} did not take its quit action: {}", appID, reply.errorMessage().toStdString());
    return false;
  }
  return true;
}

bool ProcessActions::closeWindows(const std::vector<int32_t>& pids) {
  int screenNumber = 0;
  std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> connection(xcb_connect(nullptr, &screenNumber),
                                                                          &xcb_disconnect);
  if (!connection || xcb_connection_has_error(connection.get())) return false;
  auto* c = connection.get();
  const xcb_setup_t* setup = xcb_get_setup(c);
  auto screens = xcb_setup_roots_iterator(setup);
  for (int i = 0; i < screenNumber && screens.rem; ++i) xcb_screen_next(&screens);
  if (!screens.rem) return false;
  const xcb_window_t root = screens.data->root;
  const xcb_atom_t clientList = atom(c, "_NET_CLIENT_LIST"), wmPID = atom(c, "_NET_WM_PID"),
                   closeWindow = atom(c, "_NET_CLOSE_WINDOW");
  if (clientList == XCB_ATOM_NONE || wmPID == XCB_ATOM_NONE || closeWindow == XCB_ATOM_NONE) return false;

  auto* list = xcb_get_property_reply(c, xcb_get_property(c, 0, root, clientList, XCB_ATOM_WINDOW, 0, 16384), nullptr);
  if (!list) return false;
  const auto* windows = static_cast<const xcb_window_t*>(xcb_get_property_value(list));
  const int count = xcb_get_property_value_length(list) / static_cast<int>(sizeof(xcb_window_t));
  int closed = 0;
  for (int i = 0; i < count; ++i) {
    auto* pid = xcb_get_property_reply(c, xcb_get_property(c, 0, windows[i], wmPID, XCB_ATOM_CARDINAL, 0, 1), nullptr);
    const bool ours = pid && xcb_get_property_value_length(pid) >= 4 &&
                      std::count(pids.begin(), pids.end(), static_cast<int32_t>(*static_cast<const uint32_t*>(xcb_get_property_value(pid)))) > 0;
    std::free(pid);
    if (!ours) continue;
    // As a pager asks: source 2 (a pager or taskbar), so the window manager does not second-guess it.
    xcb_client_message_event_t event{};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 32;
    event.window = windows[i];
    event.type = closeWindow;
    event.data.data32[0] = XCB_CURRENT_TIME;
    event.data.data32[1] = 2;
    xcb_send_event(c, 0, root, XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                   reinterpret_cast<const char*>(&event));
    ++closed;
  }
  std::free(list);
  xcb_flush(c);
  return closed > 0;
}

}  // namespace omnira
