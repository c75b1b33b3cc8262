#include "OmniraCore/usage/CodexLocalLimits.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cmath>

#include "OmniraCore/usage/UsageLogin.h"
#include "OmniraCore/usage/UsageLogins.h"

namespace omnira {

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

constexpr size_t chunkBytes = 64 * 1024;
// Token-count lines are small; a longer line is a tool's output and is passed over unread.
constexpr size_t longestLineBytes = 1024 * 1024;
constexpr double lookBackSeconds = 8 * 24 * 3600.0;

struct LogFile {
  fs::path path;
  fs::path home;
  Date modified;
};

std::vector<LogFile> recentLogs(const std::vector<fs::path>& homes, Date now) {
  std::vector<LogFile> logs;
  const Date oldest = now - std::chrono::duration_cast<Date::duration>(std::chrono::duration<double>(lookBackSeconds));
  for (const auto& home : homes) {
    std::error_code error;
    fs::recursive_directory_iterator walk(home / "sessions", fs::directory_options::skip_permission_denied, error);
    for (const fs::recursive_directory_iterator end; !error && walk != end; walk.increment(error)) {
      const auto& path = walk->path();
      if (path.extension() != ".jsonl") continue;
      struct stat info{};
      if (::stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) continue;
      const Date modified = dateFromSecondsSinceEpoch(static_cast<double>(info.st_mtim.tv_sec) +
                                                      static_cast<double>(info.st_mtim.tv_nsec) * 1e-9);
      if (modified >= oldest) logs.push_back({path, home, modified});
    }
  }
  std::sort(logs.begin(), logs.end(), [](const LogFile& a, const LogFile& b) { return a.modified > b.modified; });
  return logs;
}

// Calls `take` with each complete line from the end of the file to its start, until it
// returns true. Lines longer than longestLineBytes are skipped.
template <class Take>
void forEachLineBackwards(const fs::path& path, Take&& take) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return;
  struct stat info{};
  if (::fstat(fd, &info) != 0) {
    ::close(fd);
    return;
  }
  off_t position = info.st_size;
  std::string carry;   // the end of a line whose start lies in an earlier chunk
  bool tooLong = false;
  std::string chunk;
  while (position > 0) {
    const size_t size = static_cast<size_t>(std::min<off_t>(position, chunkBytes));
    position -= static_cast<off_t>(size);
    chunk.resize(size);
    size_t got = 0;
    while (got < size) {
      const ssize_t n = ::pread(fd, chunk.data() + got, size - got, position + static_cast<off_t>(got));
      if (n <= 0) break;
      got += static_cast<size_t>(n);
    }
    if (got < size) break;
    size_t end = size;
    while (true) {
      const size_t newline = end == 0 ? std::string::npos : chunk.rfind('\n', end - 1);
      if (newline == std::string::npos) break;
      std::string_view piece(chunk.data() + newline + 1, end - newline - 1);
      if (!tooLong) {
        const bool done = carry.empty() ? take(piece) : take(std::string(piece) + carry);
        if (done) {
          ::close(fd);
          return;
        }
      }
      carry.clear();
      tooLong = false;
      end = newline;
    }
    if (!tooLong) {
      carry.insert(0, chunk.data(), end);
      if (carry.size() > longestLineBytes) {
        carry.clear();
        tooLong = true;
      }
    }
  }
  if (!tooLong && !carry.empty()) take(carry);
  ::close(fd);
}

std::optional<double> number(const Json& object, const char* key) {
  auto it = object.find(key);
  if (it == object.end() || !it->is_number()) return std::nullopt;
  const double value = it->get<double>();
  if (!std::isfinite(value)) return std::nullopt;
  return value;
}

UsageWindow::Kind kindForMinutes(double minutes) {
  struct Known {
    UsageWindow::Kind kind;
    double seconds;
  };
  static constexpr std::array<Known, 3> known = {{{UsageWindow::Kind::session, UsageWindow::sessionLength},
                                                  {UsageWindow::Kind::week, UsageWindow::weekLength},
                                                  {UsageWindow::Kind::month, UsageWindow::monthLength}}};
  const double seconds = std::max(minutes * 60, 1.0);
  const Known* nearest = &known[0];
  for (const auto& candidate : known) {
    if (std::abs(std::log(seconds / candidate.seconds)) < std::abs(std::log(seconds / nearest->seconds)))
      nearest = &candidate;
  }
  return nearest->kind;
}

// One "primary" or "secondary" object; nothing when it is null, unreadable or no longer current.
std::optional<UsageWindow> windowFrom(const Json& limit, UsageWindow::Kind slotKind, Date written, Date now) {
  if (!limit.is_object()) return std::nullopt;
  const auto percent = number(limit, "used_percent");
  if (!percent) return std::nullopt;
  const auto minutes = number(limit, "window_minutes");
  std::optional<Date> resetsAt;
  if (const auto at = number(limit, "resets_at"); at && *at > 0) {
    resetsAt = dateFromSecondsSinceEpoch(*at);
  } else if (const auto in = number(limit, "resets_in_seconds"); in && *in >= 0) {
    resetsAt = written + std::chrono::duration_cast<Date::duration>(std::chrono::duration<double>(*in));
  }
  if (resetsAt && *resetsAt <= now) return std::nullopt;
  std::optional<double> length;
  UsageWindow::Kind kind = slotKind;
  if (minutes && *minutes > 0) {
    length = *minutes * 60;
    kind = kindForMinutes(*minutes);
  }
  return UsageWindow(kind, std::nullopt, *percent / 100.0, resetsAt, length);
}

using Reading = CodexLocalLimits::Reading;

// A line that holds a "rate_limits" object, read as JSON (there are few of them).
std::optional<Reading> readingFrom(std::string_view line, Date fileModified, Date now) {
  if (line.find("\"rate_limits\":{") == std::string_view::npos) return std::nullopt;
  const Json json = Json::parse(line, nullptr, false);
  if (json.is_discarded() || !json.is_object()) return std::nullopt;
  const Json* limits = nullptr;
  if (auto payload = json.find("payload"); payload != json.end() && payload->is_object()) {
    if (auto found = payload->find("rate_limits"); found != payload->end() && found->is_object()) limits = &*found;
  }
  if (limits == nullptr) return std::nullopt;
  Reading reading;
  reading.written = fileModified;
  if (auto stamp = json.find("timestamp"); stamp != json.end() && stamp->is_string()) {
    if (auto date = parseISO8601(stamp->get_ref<const std::string&>())) reading.written = *date;
  }
  for (const auto& [slot, kind] : {std::pair{"primary", UsageWindow::Kind::session},
                                   std::pair{"secondary", UsageWindow::Kind::week}}) {
    auto it = limits->find(slot);
    if (it == limits->end()) continue;
    if (auto window = windowFrom(*it, kind, reading.written, now)) reading.windows.push_back(*window);
  }
  if (auto plan = limits->find("plan_type"); plan != limits->end() && plan->is_string() &&
                                             !plan->get_ref<const std::string&>().empty()) {
    reading.plan = plan->get<std::string>();
  }
  return reading;
}

}  // namespace

std::optional<CodexLocalLimits::Reading> CodexLocalLimits::readLine(std::string_view line, Date fileModified, Date now) {
  return readingFrom(line, fileModified, now);
}

std::optional<UsageAccount> CodexLocalLimits::read(const AppPaths::Environment& environment, Date now) {
  return read(UsageLogins::codexHomes(environment), now);
}

std::optional<UsageAccount> CodexLocalLimits::read(const std::vector<fs::path>& codexHomes, Date now) {
  for (const auto& log : recentLogs(codexHomes, now)) {
    std::optional<Reading> reading;
    forEachLineBackwards(log.path, [&](std::string_view line) {
      reading = readingFrom(line, log.modified, now);
      return reading.has_value();
    });
    if (!reading) continue;
    // The newest reading stands even when all its windows have reset: an older one is older still.
    if (reading->windows.empty()) return std::nullopt;
    UsageAccount account;
    account.id = accountId;
    account.tool = UsageTool::codex;
    account.label = fallbackLabel;
    account.plan = reading->plan;
    if (auto login = UsageLogin::readCodex(log.home / "auth.json"); login && login->has_value()) {
      if ((*login)->email) account.label = *(*login)->email;
      if (!account.plan) account.plan = (*login)->plan;
    }
    account.windows = std::move(reading->windows);
    account.fetchedAt = reading->written;
    account.source = UsageAccount::Source::toolFiles;
    return account;
  }
  return std::nullopt;
}

}  // namespace omnira
