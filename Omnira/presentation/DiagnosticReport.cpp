#include "Omnira/presentation/DiagnosticReport.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <sstream>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "OmniraCore/foundation/JSONText.h"
#include "OmniraCore/foundation/Parse.h"
#include "OmniraCore/foundation/Settings.h"
#include "OmniraCore/foundation/SettingsKeys.h"

extern char** environ;

namespace omnira::presentation {

namespace {

constexpr std::string_view secretKey = "metricsToken";

const char* priorityName(int priority) {
  static constexpr std::array<const char*, 8> names{"emergency", "alert", "critical", "error",
                                                    "warning",   "notice", "info",   "debug"};
  return priority >= 0 && priority < 8 ? names[static_cast<size_t>(priority)] : "log";
}

// The journal gives a message that is not valid UTF-8 as an array of its bytes.
std::string messageOf(const nlohmann::json& message) {
  if (message.is_string()) return message.get<std::string>();
  std::string bytes;
  if (message.is_array())
    for (const auto& byte : message)
      if (byte.is_number_unsigned() && byte.get<unsigned>() < 256) bytes += static_cast<char>(byte.get<unsigned>());
  return bytes;
}

std::string fieldText(const nlohmann::json& entry, const char* field) {
  const auto found = entry.find(field);
  return found != entry.end() && found->is_string() ? found->get<std::string>() : std::string();
}

// As `omnira settings` shows a value: texts bare, the rest as JSON.
std::string shown(const nlohmann::json& value) { return value.is_string() ? value.get<std::string>() : jsonText(value); }

std::string settingLine(const SettingSpec& spec, const Settings& settings) {
  const nlohmann::json value = settings.value(spec.key);
  if (spec.key == secretKey)
    return fmt::format("  {} = {}\n", spec.key, value.is_string() && value.get<std::string>().empty() ? "(none)" : "(set)");
  const nlohmann::json* stored = settings.stored(spec.key);
  std::string line = fmt::format("  {} = {}", spec.key, shown(value));
  if (stored && *stored != value)
    line += fmt::format("  (the file holds {}, which it does not take)", jsonText(*stored));
  else if (!stored)
    line += "  (default)";
  return line + "\n";
}

}  // namespace

LogExcerpt journalWindow(std::istream& entries, Date since) {
  LogExcerpt excerpt;
  std::string line;
  while (std::getline(entries, line)) {
    const auto entry = nlohmann::json::parse(line, nullptr, /*allow_exceptions=*/false);
    if (!entry.is_object()) continue;
    const auto microseconds = parseNumber<int64_t>(fieldText(entry, "__REALTIME_TIMESTAMP"));
    if (!microseconds) continue;
    const Date when{std::chrono::duration_cast<Date::duration>(std::chrono::microseconds(*microseconds))};
    if (when < since) continue;
    const auto priority = parseNumber<int>(fieldText(entry, "PRIORITY"));
    std::string message = messageOf(entry.value("MESSAGE", nlohmann::json()));
    // A message of several lines stays one entry: its further lines are indented.
    for (size_t at = message.find('\n'); at != std::string::npos; at = message.find('\n', at + 2))
      message.insert(at + 1, "  ");
    excerpt.lines.push_back(
        fmt::format("{} {}: {}", formatLocal(when, "%Y-%m-%d %H:%M:%S"), priorityName(priority.value_or(-1)), message));
  }
  return excerpt;
}

LogExcerpt readJournal(const std::string& identifier, Date since) {
  // Where the log went (see setUpLogging): without a journal it was standard error only.
  if (::access("/run/systemd/journal/socket", W_OK) != 0)
    return {{}, "No journal runs here, so Omnira's log went to standard error and none was kept."};

  int out[2], err[2];
  if (::pipe2(out, O_CLOEXEC) != 0) return {{}, fmt::format("The log could not be read: {}.", std::strerror(errno))};
  if (::pipe2(err, O_CLOEXEC) != 0) {
    const int why = errno;
    ::close(out[0]);
    ::close(out[1]);
    return {{}, fmt::format("The log could not be read: {}.", std::strerror(why))};
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  // Only this user's entries: root may read every user's Omnira.
  const std::string seconds = fmt::format("@{}", static_cast<int64_t>(secondsSinceEpoch(since)));
  const std::string uid = fmt::format("_UID={}", ::getuid());
  std::vector<std::string> arguments{"journalctl", "--no-pager", "--quiet", "--output=json", "--identifier=" + identifier,
                                     "--since",    seconds,      uid};
  std::vector<char*> argv;
  for (auto& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  pid_t child = -1;
  const int spawned = ::posix_spawnp(&child, "journalctl", &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(out[1]);
  ::close(err[1]);
  if (spawned != 0) {
    ::close(out[0]);
    ::close(err[0]);
    return {{}, fmt::format("journalctl could not be run: {}.", std::strerror(spawned))};
  }

  std::string text, complaint;
  std::array<pollfd, 2> pipes{{{out[0], POLLIN, 0}, {err[0], POLLIN, 0}}};
  const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  bool late = false;
  while (pipes[0].fd >= 0 || pipes[1].fd >= 0) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      late = true;
      break;
    }
    const int ready = ::poll(pipes.data(), pipes.size(), static_cast<int>(left.count()));
    if (ready < 0 && errno == EINTR) continue;
    if (ready < 0) break;
    for (size_t i = 0; i < pipes.size(); ++i) {
      if (pipes[i].fd < 0 || pipes[i].revents == 0) continue;
      char buffer[16384];
      const ssize_t got = ::read(pipes[i].fd, buffer, sizeof buffer);
      if (got > 0) {
        (i == 0 ? text : complaint).append(buffer, static_cast<size_t>(got));
      } else if (got == 0 || errno != EINTR) {
        ::close(pipes[i].fd);
        pipes[i].fd = -1;
      }
    }
  }
  for (const auto& pipe : pipes)
    if (pipe.fd >= 0) ::close(pipe.fd);
  if (late) ::kill(child, SIGKILL);
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (late) return {{}, "journalctl did not finish within ten seconds, so no log is included."};
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    const std::string_view said = trim(std::string_view(complaint).substr(0, complaint.find('\n')));
    return {{}, said.empty() ? std::string("journalctl could not read the log.")
                             : fmt::format("journalctl could not read the log: {}", said)};
  }
  std::istringstream entries(text);
  return journalWindow(entries, since);
}

std::string diagnosticReport(const DiagnosticFacts& facts, const LogExcerpt& log) {
  std::string report = "Omnira diagnostic report\n";
  report += fmt::format("Made: {}\n", formatLocal(facts.now, "%Y-%m-%d %H:%M:%S %z"));
  report += fmt::format("Omnira: {}\n", facts.version);
  report += fmt::format("System: {}\n", facts.systemName);
  report += fmt::format("Data folder: {}\n", facts.paths.dataFolder().string());
  report += fmt::format("Config folder: {}\n", facts.paths.settingsFile().parent_path().string());

  const auto file = facts.paths.settingsFile();
  report += fmt::format("\nSettings ({}):\n", file.string());
  auto read = Settings::read(file);
  if (!read) report += fmt::format("  {} Omnira uses the defaults until it is mended.\n", read.error().message);
  const Settings settings = read ? std::move(read).value() : Settings();
  for (const auto& spec : SettingsKeys::all()) report += settingLine(spec, settings);

  report += fmt::format("\nLog of the last {} minutes:\n", diagnosticLogSpan.count());
  if (!log.unreadable.empty())
    report += "  " + log.unreadable + "\n";
  else if (log.lines.empty())
    report += "  (nothing logged)\n";
  for (const auto& line : log.lines) {
    std::string indented = "  " + line;
    for (size_t at = indented.find('\n'); at != std::string::npos; at = indented.find('\n', at + 1))
      indented.insert(at + 1, "  ");
    report += indented + "\n";
  }
  return report;
}

}  // namespace omnira::presentation
