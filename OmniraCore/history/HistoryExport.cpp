#include "OmniraCore/history/HistoryExport.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <map>

#include "OmniraCore/foundation/AtomicFile.h"
#include "OmniraCore/foundation/SafeText.h"

namespace omnira {

namespace {

constexpr double megabyte = 1e6;
constexpr double gigabyte = 1e9;

std::string average(double integral, double seconds, double scale, int decimals) {
  if (!(seconds > 0)) return {};
  return fmt::format("{:.{}f}", integral / seconds * scale, decimals);
}

std::string amount(double value, double unit, int decimals) { return fmt::format("{:.{}f}", value / unit, decimals); }

// A new file, never an existing one or a link planted in a shared folder: a name that is
// taken gets " (2)", " (3)" and so on, and `file` becomes the name written.
Result<void, HistoryExport::Failure> save(std::filesystem::path& file, const std::string& text) {
  const std::filesystem::path wanted = file;
  for (int copy = 2; copy <= 100; ++copy) {
    auto created = AtomicFile::create(file, text);
    if (created) return {};
    if (!created.error().exists) return fail(HistoryExport::Failure{created.error().message});
    file = wanted.parent_path() / fmt::format("{} ({}){}", wanted.stem().string(), copy, wanted.extension().string());
  }
  return fail(HistoryExport::Failure{fmt::format("cannot write {}: too many files of that name", wanted.string())});
}

}  // namespace

const std::vector<std::string>& HistoryExport::machineColumns() {
  static const std::vector<std::string> columns = {
      "Five minutes starting",    "Seconds measured",         "Average CPU (% of one core)",
      "Memory used average (GB)", "Memory used peak (GB)",    "Memory pressure average (%)",
      "Network in (MB)",          "Network out (MB)",         "Disk read (MB)",
      "Disk written (MB)",        "Energy used by apps (Wh)"};
  return columns;
}

const std::vector<std::string>& HistoryExport::appColumns() {
  static const std::vector<std::string> columns = {
      "Day starting",     "App",                  "Minutes measured", "Average CPU (% of one core)",
      "Average memory (MB)", "Peak memory (MB)", "Energy (Wh)",      "Network in (MB)",
      "Network out (MB)", "Disk read (MB)",       "Disk written (MB)"};
  return columns;
}

std::string HistoryExport::field(std::string_view text) {
  if (text.find_first_of(",\"\r\n") == std::string_view::npos) return std::string(text);
  std::string quoted = "\"";
  for (char c : text) {
    if (c == '"') quoted += '"';
    quoted += c;
  }
  quoted += '"';
  return quoted;
}

std::string HistoryExport::record(const std::vector<std::string>& fields) {
  std::string line;
  for (size_t i = 0; i < fields.size(); ++i) {
    if (i > 0) line += ',';
    line += field(fields[i]);
  }
  line += "\r\n";
  return line;
}

std::string HistoryExport::localMinute(int64_t secondsSinceEpoch) {
  const std::time_t seconds = secondsSinceEpoch;
  std::tm local{};
  localtime_r(&seconds, &local);
  return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                     local.tm_hour, local.tm_min);
}

Result<HistoryExport::Files, HistoryExport::Failure> HistoryExport::write(HistoryDatabase& database,
                                                                          const std::filesystem::path& folder,
                                                                          Date since, Date now) {
  const auto from = std::chrono::floor<std::chrono::seconds>(since.time_since_epoch()).count();
  const int64_t to = INT64_MAX;
  auto machine = database.system(HistoryDatabase::SystemTable::fiveMinutes, from, to);
  if (!machine) return fail(Failure{machine.error().message});
  auto readings = database.readings(from);
  if (!readings) return fail(Failure{readings.error().message});
  auto apps = database.apps(HistoryDatabase::AppTable::days, HistoryDatabase::periodStart(HistoryDatabase::AppTable::days, since), to);
  if (!apps) return fail(Failure{apps.error().message});

  // The readings of the same five minutes carry what the totals cannot: peaks and pressure.
  std::map<int64_t, const HistoryDatabase::ReadingRow*> readingAt;
  for (const auto& reading : *readings) readingAt[reading.start] = &reading;

  std::string machineText = record(machineColumns());
  for (const auto& row : *machine) {
    const auto found = readingAt.find(row.start);
    const HistoryDatabase::ReadingRow* reading = found == readingAt.end() ? nullptr : found->second;
    std::string pressure;
    if (reading && reading->memoryPressurePercentAverage) {
      pressure = fmt::format("{:.1f}", *reading->memoryPressurePercentAverage);
    }
    machineText += record({localMinute(row.start), fmt::format("{:.0f}", row.seconds),
                           average(row.cpuLoadSeconds, row.seconds, 100, 1),
                           average(row.memoryByteSeconds, row.seconds, 1 / gigabyte, 2),
                           reading ? amount(static_cast<double>(reading->memoryUsedBytesPeak), gigabyte, 2) : "",
                           pressure, amount(static_cast<double>(row.networkBytesIn), megabyte, 1),
                           amount(static_cast<double>(row.networkBytesOut), megabyte, 1),
                           amount(static_cast<double>(row.diskBytesRead), megabyte, 1),
                           amount(static_cast<double>(row.diskBytesWritten), megabyte, 1),
                           amount(row.energyJoules, 3600, 3)});
  }

  std::string appText = record(appColumns());
  for (const auto& row : *apps) {
    // Names are anyone's: a process named "=HYPERLINK(...)" is text, not a formula.
    appText += record({localMinute(row.start), spreadsheetText(row.name), fmt::format("{:.1f}", row.seconds / 60),
                       average(row.cpuSeconds, row.seconds, 100, 1),
                       average(row.memoryByteSeconds, row.seconds, 1 / megabyte, 1),
                       amount(static_cast<double>(row.peakMemoryBytes), megabyte, 1), amount(row.energyJoules, 3600, 3),
                       amount(static_cast<double>(row.networkBytesIn), megabyte, 1),
                       amount(static_cast<double>(row.networkBytesOut), megabyte, 1),
                       amount(static_cast<double>(row.diskBytesRead), megabyte, 1),
                       amount(static_cast<double>(row.diskBytesWritten), megabyte, 1)});
  }

  const std::time_t stamp = std::chrono::system_clock::to_time_t(now);
  std::tm local{};
  localtime_r(&stamp, &local);
  const std::string suffix = fmt::format("{:04}-{:02}-{:02} {:02}{:02}", local.tm_year + 1900, local.tm_mon + 1,
                                         local.tm_mday, local.tm_hour, local.tm_min);
  Files files{folder / fmt::format("Omnira machine history {}.csv", suffix),
              folder / fmt::format("Omnira app history {}.csv", suffix)};
  if (auto saved = save(files.machine, machineText); !saved) return fail(saved.error());
  if (auto saved = save(files.apps, appText); !saved) return fail(saved.error());
  return files;
}

}  // namespace omnira
