#pragma once
// A D-Bus of the test's own and a notification server on it: a bus daemon with no service
// files, so an installed notification server is never activated on it, and a service that
// answers Notify as the desktop's does, keeping what it was sent.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>

#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

extern char** environ;

namespace omnira {

class PrivateBus {
 public:
  PrivateBus() {
    std::string pattern = (std::filesystem::temp_directory_path() / "omnira-bus-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) return;
    folder_ = pattern;
    const auto config = folder_ / "bus.conf";
    std::ofstream(config) << "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-BUS Bus Configuration 1.0//EN\"\n"
                             " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
                             "<busconfig><type>session</type>\n"
                             "<listen>unix:path="
                          << (folder_ / "bus").string()
                          << "</listen><auth>EXTERNAL</auth>\n"
                             "<policy context=\"default\"><allow send_destination=\"*\" eavesdrop=\"true\"/>"
                             "<allow eavesdrop=\"true\"/><allow own=\"*\"/></policy></busconfig>\n";

    int out[2];
    if (::pipe(out) != 0) return;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, out[0]);
    const std::string log = (folder_ / "daemon.log").string();
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const std::string configArgument = "--config-file=" + config.string();
    char* argv[] = {const_cast<char*>("dbus-daemon"), const_cast<char*>(configArgument.c_str()),
                    const_cast<char*>("--nofork"), const_cast<char*>("--print-address=1"), nullptr};
    const int spawned = ::posix_spawnp(&pid_, "dbus-daemon", &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    if (spawned != 0) pid_ = -1;

    // The daemon prints its address once it listens; 5 s is a guard against a hang only.
    pollfd readable{out[0], POLLIN, 0};
    char c;
    while (pid_ > 0 && ::poll(&readable, 1, 5000) == 1 && ::read(out[0], &c, 1) == 1 && c != '\n') address_ += c;
    ::close(out[0]);
    if (address_.empty()) {
      std::ostringstream text;
      text << std::ifstream(log).rdbuf();
      failure_ = "dbus-daemon did not start: " + text.str();
    }
  }

  ~PrivateBus() {
    if (pid_ > 0) {
      ::kill(pid_, SIGTERM);
      ::waitpid(pid_, nullptr, 0);
    }
    if (!folder_.empty()) std::filesystem::remove_all(folder_);
  }

  const QString address() const { return QString::fromStdString(address_); }
  const std::string& failure() const { return failure_; }

 private:
  std::filesystem::path folder_;
  pid_t pid_ = -1;
  std::string address_;
  std::string failure_;
};

struct Notification {
  QString signature;
  QString appName;
  uint replacesID = 0;
  QString icon;
  QString summary;
  QString body;
  QStringList actions;
  QVariantMap hints;
  int expireTimeout = 0;
};

// The desktop's side of Notify, answering with ids 1, 2, ... as a notification server does.
// Kept without moc: a virtual object sees the raw message, signature included.
class NotificationService : public QDBusVirtualObject {
 public:
  QString introspect(const QString&) const override { return {}; }

  bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
    if (message.interface() != "org.freedesktop.Notifications" || message.member() != "Notify") return false;
    const QList<QVariant> arguments = message.arguments();
    Notification received;
    received.signature = message.signature();
    if (arguments.size() == 8) {
      received.appName = arguments[0].toString();
      received.replacesID = arguments[1].toUInt();
      received.icon = arguments[2].toString();
      received.summary = arguments[3].toString();
      received.body = arguments[4].toString();
      received.actions = arguments[5].toStringList();
      received.hints = qdbus_cast<QVariantMap>(arguments[6].value<QDBusArgument>());
      received.expireTimeout = arguments[7].toInt();
    }
    uint id;
    {
      std::lock_guard lock(mutex_);
      received_.push_back(received);
      id = static_cast<uint>(received_.size());
    }
    connection.send(message.createReply(QVariant::fromValue(id)));
    return true;
  }

  std::vector<Notification> received() const {
    std::lock_guard lock(mutex_);
    return received_;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<Notification> received_;
};

}  // namespace omnira
