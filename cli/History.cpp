#include "cli/History.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <iostream>
#include <map>

#include "OmniraCore/foundation/JSONText.h"
#include "OmniraCore/foundation/Parse.h"
#include "OmniraCore/foundation/SafeText.h"
#include "OmniraCore/foundation/Settings.h"
#include "OmniraCore/history/HistoryDatabase.h"
#include "OmniraCore/history/HistoryExport.h"
#include "OmniraCore/history/HistoryRetention.h"
#include "cli/Format.h"

namespace omnira::cli {

namespace {

constexpr int kFailed = 1;
constexpr int kUsageError = 2;

int64_t periodSeconds(const std::string& period) {
  if (period == "week") return 7 * 86400;
  if (period == "month") return 30 * 86400;
  if (period == "year") return 365 * 86400;
  return 86400;
}

int64_t epochSeconds(Date date) {
  return std::chrono::duration_cast<std::chrono::seconds>(date.time_since_epoch()).count();
}

std::string localTime(int64_t seconds, const char* format) {
  return formatLocal(Date(std::chrono::seconds(seconds)), format);
}

int64_t localMidnight(int64_t seconds) {
  const std::time_t t = static_cast<std::time_t>(seconds);
  std::tm tm{};
  localtime_r(&t, &tm);
  tm.tm_hour = tm.tm_min = tm.tm_sec = 0;
  tm.tm_isdst = -1;
  return static_cast<int64_t>(std::mktime(&tm));
}

// One line of the machine's history: an hour, or a day built from its hours.
struct Bucket {
  int64_t start = 0;
  double seconds = 0;
  double cpuLoadSeconds = 0;
  double memoryByteSeconds = 0;
  int64_t networkIn = 0, networkOut = 0, diskRead = 0, diskWritten = 0;
  std::optional<double> cpuPeak;       // percent of the machine, from the readings
  std::optional<int64_t> memoryPeak;

  void add(const HistoryDatabase::SystemRow& row) {
    seconds += row.seconds;
    cpuLoadSeconds += row.cpuLoadSeconds;
    memoryByteSeconds += row.memoryByteSeconds;
    networkIn += row.networkBytesIn;
    networkOut += row.networkBytesOut;
    diskRead += row.diskBytesRead;
    diskWritten += row.diskBytesWritten;
  }
  void add(const HistoryDatabase::ReadingRow& reading) {
    cpuPeak = std::max(cpuPeak.value_or(0.0), reading.cpuPercentPeak);
    memoryPeak = std::max(memoryPeak.value_or(0), reading.memoryUsedBytesPeak);
  }
  double cpuCores() const { return seconds > 0 ? cpuLoadSeconds / seconds : 0; }
  uint64_t memoryAverage() const {
    return seconds > 0 ? static_cast<uint64_t>(memoryByteSeconds / seconds) : 0;
  }
  nlohmann::ordered_json toJSON() const {
    nlohmann::ordered_json j;
    j["start"] = formatISO8601(Date(std::chrono::seconds(start)));
    j["seconds"] = seconds;
    j["cpuAverageCores"] = cpuCores();
    j["cpuPeakPercent"] = cpuPeak ? nlohmann::ordered_json(*cpuPeak) : nlohmann::ordered_json(nullptr);
    j["memoryAverageBytes"] = memoryAverage();
    j["memoryPeakBytes"] = memoryPeak ? nlohmann::ordered_json(*memoryPeak) : nlohmann::ordered_json(nullptr);
    j["networkBytesIn"] = networkIn;
    j["networkBytesOut"] = networkOut;
    j["diskBytesRead"] = diskRead;
    j["diskBytesWritten"] = diskWritten;
    return j;
  }
};

uint64_t unsignedBytes(int64_t count) { return count > 0 ? static_cast<uint64_t>(count) : 0; }

int showSystem(HistoryDatabase& db, const HistoryRequest& request, Date now, std::FILE* out, std::FILE* err) {
  const int64_t to = epochSeconds(now) + 1;
  const int64_t from = to - periodSeconds(request.period);
  auto rows = db.system(HistoryDatabase::SystemTable::hours, from, to);
  auto readings = db.readings(from);
  if (!rows || !readings) {
    fmt::print(err, "omnira: {}\n", !rows ? rows.error().message : readings.error().message);
    return kFailed;
  }
  const bool byDay = request.period != "day";
  // Local hours: rows from before hours followed the local clock still land in the hour they began in.
  auto keyOf = [&](int64_t start) {
    const Date at{std::chrono::seconds(start)};
    return byDay ? HistoryDatabase::periodStart(HistoryDatabase::AppTable::days, at)
                 : HistoryDatabase::periodStart(HistoryDatabase::SystemTable::hours, at);
  };
  std::map<int64_t, Bucket> buckets;
  Bucket total;
  for (const auto& row : *rows) {
    auto& bucket = buckets[keyOf(row.start)];
    bucket.start = keyOf(row.start);
    bucket.add(row);
    total.add(row);
  }
  for (const auto& reading : *readings) {
    if (auto it = buckets.find(keyOf(reading.start)); it != buckets.end()) it->second.add(reading);
    total.add(reading);
  }
  if (buckets.empty()) {
    fmt::print(out, "The history holds nothing for the last {}.\n", request.period);
    return 0;
  }
  total.start = buckets.begin()->first;

  if (request.json) {
    nlohmann::ordered_json j;
    j["period"] = request.period;
    j["resolution"] = byDay ? "day" : "hour";
    j["total"] = total.toJSON();
    auto list = nlohmann::ordered_json::array();
    for (const auto& [start, bucket] : buckets) list.push_back(bucket.toJSON());
    j["rows"] = std::move(list);
    fmt::print(out, "{}\n", jsonText(j, 2));
    return 0;
  }
  auto peak = [](const std::optional<double>& p) { return p ? fmt::format("{:.0f}%", *p) : std::string("-"); };
  auto memoryPeak = [](const std::optional<int64_t>& p) { return p ? bytes(unsignedBytes(*p)) : std::string("-"); };
  fmt::print(out, "The machine over the last {} ({} recorded)\n", request.period, duration(total.seconds));
  fmt::print(out, "CPU       {:.2f} cores busy on average, peak {} of the machine\n", total.cpuCores(),
             peak(total.cpuPeak));
  fmt::print(out, "Memory    {} used on average, peak {}\n", bytes(total.memoryAverage()), memoryPeak(total.memoryPeak));
  fmt::print(out, "Network   {} in, {} out\n", bytes(unsignedBytes(total.networkIn)),
             bytes(unsignedBytes(total.networkOut)));
  fmt::print(out, "Disk      {} read, {} written\n\n", bytes(unsignedBytes(total.diskRead)),
             bytes(unsignedBytes(total.diskWritten)));
  fmt::print(out, "  {:<16} {:>6} {:>6} {:>10} {:>10} {:>10} {:>10}\n", byDay ? "DAY" : "HOUR", "CPU", "PEAK",
             "MEMORY", "NET IN", "NET OUT", "DISK");
  for (const auto& [start, b] : buckets) {
    fmt::print(out, "  {:<16} {:>6.2f} {:>6} {:>10} {:>10} {:>10} {:>10}\n",
               localTime(start, byDay ? "%a %Y-%m-%d" : "%Y-%m-%d %H:00"), b.cpuCores(), peak(b.cpuPeak),
               bytes(b.memoryAverage()), bytes(unsignedBytes(b.networkIn)), bytes(unsignedBytes(b.networkOut)),
               bytes(unsignedBytes(b.diskRead + b.diskWritten)));
  }
  fmt::print(out, "\nCPU is in cores busy on average (1.00 = one core all the time).\n");
  return 0;
}

struct AppTotal {
  std::string id, name, kind;
  double seconds = 0, cpuSeconds = 0, energyJoules = 0, memoryByteSeconds = 0;
  int64_t peakMemory = 0, networkIn = 0, networkOut = 0, diskRead = 0, diskWritten = 0;

  uint64_t memoryAverage() const {
    return seconds > 0 ? static_cast<uint64_t>(memoryByteSeconds / seconds) : 0;
  }
  double measure(const std::string& by) const {
    if (by == "memory") return static_cast<double>(memoryAverage());
    if (by == "energy") return energyJoules;
    if (by == "disk") return static_cast<double>(diskRead + diskWritten);
    if (by == "network") return static_cast<double>(networkIn + networkOut);
    return cpuSeconds;
  }
};

int showApps(HistoryDatabase& db, const HistoryRequest& request, Date now, std::FILE* out, std::FILE* err) {
  const int64_t to = epochSeconds(now) + 1;
  const int64_t span = periodSeconds(request.period);
  // A day reads the hour rows; longer spans read the day rows, which reach further back.
  auto rows = request.period == "day" ? db.apps(HistoryDatabase::AppTable::hours, to - span, to)
                                      : db.apps(HistoryDatabase::AppTable::days, localMidnight(to - span), to);
  if (!rows) {
    fmt::print(err, "omnira: {}\n", rows.error().message);
    return kFailed;
  }
  std::map<std::string, AppTotal> totals;
  for (const auto& row : *rows) {
    auto& t = totals[row.appId];
    t.id = row.appId;
    t.name = row.name;
    t.kind = row.kind;
    t.seconds += row.seconds;
    t.cpuSeconds += row.cpuSeconds;
    t.energyJoules += row.energyJoules;
    t.memoryByteSeconds += row.memoryByteSeconds;
    t.peakMemory = std::max(t.peakMemory, row.peakMemoryBytes);
    t.networkIn += row.networkBytesIn;
    t.networkOut += row.networkBytesOut;
    t.diskRead += row.diskBytesRead;
    t.diskWritten += row.diskBytesWritten;
  }
  if (totals.empty()) {
    fmt::print(out, "The history holds no apps for the last {}.\n", request.period);
    return 0;
  }
  std::vector<AppTotal> ranked;
  for (auto& [id, t] : totals) ranked.push_back(std::move(t));
  std::stable_sort(ranked.begin(), ranked.end(), [&](const AppTotal& a, const AppTotal& b) {
    return a.measure(request.by) > b.measure(request.by);
  });
  if (ranked.size() > request.top) ranked.resize(request.top);

  if (request.json) {
    nlohmann::ordered_json j;
    j["period"] = request.period;
    j["by"] = request.by;
    auto list = nlohmann::ordered_json::array();
    for (const auto& t : ranked) {
      nlohmann::ordered_json a;
      a["id"] = t.id;
      a["name"] = t.name;
      a["kind"] = t.kind;
      a["secondsSeen"] = t.seconds;
      a["cpuSeconds"] = t.cpuSeconds;
      a["energyJoules"] = t.energyJoules;
      a["memoryAverageBytes"] = t.memoryAverage();
      a["memoryPeakBytes"] = t.peakMemory;
      a["networkBytesIn"] = t.networkIn;
      a["networkBytesOut"] = t.networkOut;
      a["diskBytesRead"] = t.diskRead;
      a["diskBytesWritten"] = t.diskWritten;
      list.push_back(std::move(a));
    }
    j["apps"] = std::move(list);
    fmt::print(out, "{}\n", jsonText(j, 2));
    return 0;
  }
  fmt::print(out, "Top apps over the last {}, by {}\n\n", request.period, request.by);
  fmt::print(out, "  {:<30} {:>9} {:>10} {:>10} {:>10} {:>10} {:>10}\n", "APP", "SEEN", "CPU TIME", "MEMORY",
             "PEAK", "DISK", "NETWORK");
  for (const auto& t : ranked) {
    fmt::print(out, "  {:<30} {:>9} {:>10} {:>10} {:>10} {:>10} {:>10}\n", fit(terminalText(t.name), 30), duration(t.seconds),
               duration(t.cpuSeconds), bytes(t.memoryAverage()), bytes(unsignedBytes(t.peakMemory)),
               bytes(unsignedBytes(t.diskRead + t.diskWritten)), bytes(unsignedBytes(t.networkIn + t.networkOut)));
  }
  return 0;
}

int exportFiles(HistoryDatabase& db, const HistoryRequest& request, const AppPaths& paths, Date now,
                std::FILE* out, std::FILE* err) {
  const Date since = request.since ? parseSinceDate(*request.since).value_or(Date{}) : Date{};
  std::error_code ec;
  std::filesystem::create_directories(paths.downloadsFolder(), ec);
  if (ec) {
    fmt::print(err, "omnira: cannot make the folder {}: {}\n", paths.downloadsFolder().string(), ec.message());
    return kFailed;
  }
  auto files = HistoryExport::write(db, paths.downloadsFolder(), since, now);
  if (!files) {
    fmt::print(err, "omnira: {}\n", files.error().message);
    return kFailed;
  }
  fmt::print(out, "{}\n{}\n", files->machine.string(), files->apps.string());
  return 0;
}

int remove(HistoryDatabase& db, const HistoryRequest& request, const AppPaths& paths, Date now, std::FILE* out,
           std::FILE* err) {
  const int64_t days = HistoryRetention::days(Settings::load(paths.settingsFile()));
  const std::string question =
      request.all ? "Delete all history?\nEverything Omnira has recorded about your computer and your apps will be "
                    "deleted: the history, each app’s daily usage and the insights under “Worth a Look”. Recording "
                    "starts again from now. You can’t undo this.\nDelete?"
                  : fmt::format("Delete the older history?\nHistory older than the time you chose ({} days) will be "
                                "deleted. You can’t undo this.\nDelete?",
                                days);
  if (!request.yes) {
    if (!::isatty(STDIN_FILENO)) {
      fmt::print(err, "omnira: not deleting without a terminal to confirm on; add --yes to delete anyway.\n");
      return kFailed;
    }
    if (!confirmed(question, out)) {
      fmt::print(out, "Nothing was deleted.\n");
      return 0;
    }
  }
  auto done = request.all ? db.deleteAll(now) : HistoryRetention::deleteOlder(db, days, now);
  if (!done) {
    fmt::print(err, "omnira: {}\n", done.error().message);
    return kFailed;
  }
  // After the history, so that a running Omnira, which notices the history's restart and
  // then writes its own ledger and insights afresh, cannot put the old ones back in between.
  if (request.all) {
    for (const char* name : {"usage.json", "insights.json"}) {
      std::error_code error;
      std::filesystem::remove(paths.dataFile(name), error);
      if (error) {
        fmt::print(err, "omnira: the history was deleted, but not {}: {}\n", paths.dataFile(name).string(),
                   error.message());
        return kFailed;
      }
    }
  }
  std::fputs(request.all ? "All history was deleted; recording starts again now.\n"
                         : "History older than the kept span was deleted.\n",
             out);
  return 0;
}

}  // namespace

std::optional<Date> parseSinceDate(const std::string& text) {
  if (auto full = parseISO8601(text)) return full;
  if (text.size() != 10 || text[4] != '-' || text[7] != '-') return std::nullopt;
  auto year = parseNumber<int>(std::string_view(text).substr(0, 4));
  auto month = parseNumber<int>(std::string_view(text).substr(5, 2));
  auto day = parseNumber<int>(std::string_view(text).substr(8, 2));
  if (!year || !month || !day || *month < 1 || *month > 12 || *day < 1 || *day > 31) return std::nullopt;
  std::tm tm{};
  tm.tm_year = *year - 1900;
  tm.tm_mon = *month - 1;
  tm.tm_mday = *day;
  tm.tm_isdst = -1;
  const std::time_t t = std::mktime(&tm);
  if (t == static_cast<std::time_t>(-1) || tm.tm_mday != *day) return std::nullopt;  // 2026-02-31 rolled over
  return Date(std::chrono::seconds(t));
}

std::optional<std::string> HistoryRequest::mistake() const {
  if (command == Command::exportFiles && since && !parseSinceDate(*since))
    return fmt::format("\"{}\" is not a date; use YYYY-MM-DD.", terminalText(*since));
  if (command == Command::remove && older == all) return "say which to delete: --older (past the kept span) or --all.";
  return std::nullopt;
}

int runHistory(const HistoryRequest& request, const AppPaths& paths, Date now, std::FILE* out, std::FILE* err) {
  // Before the file is looked for: a wrong argument is wrong whether or not a history exists.
  if (const auto mistake = request.mistake()) {
    fmt::print(err, "omnira: {}\n", *mistake);
    return kUsageError;
  }
  const auto file = paths.dataFile("history.sqlite");
  std::error_code ec;
  if (!std::filesystem::exists(file, ec)) {
    fmt::print(out, "No history has been recorded yet (no file at {}).\n", file.string());
    return 0;
  }
  auto db = HistoryDatabase::open(file);
  if (!db) {
    fmt::print(err, "omnira: {}\n", db.error().message);
    return kFailed;
  }
  switch (request.command) {
    case HistoryRequest::Command::system: return showSystem(**db, request, now, out, err);
    case HistoryRequest::Command::apps: return showApps(**db, request, now, out, err);
    case HistoryRequest::Command::exportFiles: return exportFiles(**db, request, paths, now, out, err);
    case HistoryRequest::Command::remove: return remove(**db, request, paths, now, out, err);
  }
  return kFailed;
}

}  // namespace omnira::cli
