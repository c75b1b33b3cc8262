#include "OmniraCore/history/HistoryDatabase.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <ctime>

#include "OmniraCore/foundation/Parse.h"

namespace omnira {

namespace {

constexpr const char* systemColumns =
    " (\n    start INTEGER PRIMARY KEY,\n    seconds REAL NOT NULL,\n    cpu_load_seconds REAL NOT NULL,\n"
    "    memory_byte_seconds REAL NOT NULL,\n    network_bytes_in INTEGER NOT NULL,\n"
    "    network_bytes_out INTEGER NOT NULL,\n    disk_bytes_read INTEGER NOT NULL,\n"
    "    disk_bytes_written INTEGER NOT NULL,\n    energy_joules REAL NOT NULL\n)";

constexpr const char* appColumns =
    " (\n    start INTEGER NOT NULL,\n    app_id TEXT NOT NULL,\n    name TEXT NOT NULL,\n    kind TEXT NOT NULL,\n"
    "    bundle_path TEXT,\n    seconds REAL NOT NULL,\n    cpu_seconds REAL NOT NULL,\n"
    "    energy_joules REAL NOT NULL,\n    memory_byte_seconds REAL NOT NULL,\n"
    "    peak_memory_bytes INTEGER NOT NULL,\n    network_bytes_in INTEGER NOT NULL,\n"
    "    network_bytes_out INTEGER NOT NULL,\n    disk_bytes_read INTEGER NOT NULL,\n"
    "    disk_bytes_written INTEGER NOT NULL,\n    PRIMARY KEY (start, app_id)\n) WITHOUT ROWID";

constexpr const char* readingsTable =
    "CREATE TABLE IF NOT EXISTS readings (\n    start INTEGER PRIMARY KEY,\n    seconds REAL NOT NULL,\n"
    "    cpu_percent_average REAL NOT NULL,\n    cpu_percent_peak REAL NOT NULL,\n"
    "    memory_used_bytes_average INTEGER NOT NULL,\n    memory_used_bytes_peak INTEGER NOT NULL,\n"
    "    memory_pressure_percent_average REAL,\n    memory_pressure_percent_peak REAL,\n"
    "    memory_pressure_level_peak TEXT NOT NULL,\n    swap_used_bytes_peak INTEGER NOT NULL,\n"
    "    gpu_percent_average REAL,\n    gpu_percent_peak REAL,\n    neural_engine_percent_average REAL,\n"
    "    neural_engine_percent_peak REAL,\n    cpu_celsius_average REAL,\n    cpu_celsius_peak REAL,\n"
    "    hottest_celsius_average REAL,\n    hottest_celsius_peak REAL,\n    fan_rpm_average REAL,\n"
    "    fan_rpm_peak REAL,\n    power_watts_average REAL,\n    power_watts_peak REAL,\n"
    "    thermal_state_peak TEXT NOT NULL,\n    battery_percent REAL,\n    plugged_in_seconds REAL NOT NULL\n)";

constexpr const char* metaTable =
    "CREATE TABLE IF NOT EXISTS meta (key TEXT PRIMARY KEY, value TEXT NOT NULL) WITHOUT ROWID";

constexpr const char* selectSystem =
    "SELECT start, seconds, cpu_load_seconds, memory_byte_seconds, network_bytes_in, network_bytes_out,\n"
    "       disk_bytes_read, disk_bytes_written, energy_joules FROM ";

constexpr const char* selectApps =
    "SELECT start, app_id, name, kind, bundle_path, seconds, cpu_seconds, energy_joules, memory_byte_seconds,\n"
    "       peak_memory_bytes, network_bytes_in, network_bytes_out, disk_bytes_read, disk_bytes_written\nFROM ";

constexpr const char* rangeCondition = " WHERE start >= ? AND start < ?";
constexpr const char* periodCondition = " WHERE start = ?";
constexpr const char* orderByStart = " ORDER BY start";

constexpr const char* recordingSinceKey = "recordingSince";

constexpr HistoryDatabase::SystemTable systemTables[] = {HistoryDatabase::SystemTable::minutes,
                                                         HistoryDatabase::SystemTable::fiveMinutes,
                                                         HistoryDatabase::SystemTable::hours};
constexpr HistoryDatabase::AppTable appTables[] = {HistoryDatabase::AppTable::hours,
                                                   HistoryDatabase::AppTable::days};

std::string systemUpsert(const char* table) {
  return fmt::format(
      "INSERT OR REPLACE INTO {} (start, seconds, cpu_load_seconds, memory_byte_seconds, network_bytes_in,\n"
      "    network_bytes_out, disk_bytes_read, disk_bytes_written, energy_joules) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)",
      table);
}

std::string appUpsert(const char* table) {
  return fmt::format(
      "INSERT OR REPLACE INTO {} (start, app_id, name, kind, bundle_path, seconds, cpu_seconds, energy_joules,\n"
      "    memory_byte_seconds, peak_memory_bytes, network_bytes_in, network_bytes_out, disk_bytes_read, "
      "disk_bytes_written)\nVALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
      table);
}

HistoryDatabase::SystemRow systemRow(const sqlite::Statement& s) {
  return {s.integer(0), s.real(1), s.real(2), s.real(3), s.integer(4),
          s.integer(5), s.integer(6), s.integer(7), s.real(8)};
}

HistoryDatabase::AppRow appRow(const sqlite::Statement& s) {
  return {s.integer(0),  s.text(1),    s.text(2),    s.text(3),    s.optionalText(4),
          s.real(5),     s.real(6),    s.real(7),    s.real(8),    s.integer(9),
          s.integer(10), s.integer(11), s.integer(12), s.integer(13)};
}

// Rows of one table with from <= start < to, through a statement that binds both bounds.
template <class ReadRow>
auto rowsInRange(sqlite::Statement& query, int64_t from, int64_t to, ReadRow readRow) {
  query.bindInt(1, from).bindInt(2, to);
  std::vector<decltype(readRow(query))> rows;
  while (query.step()) rows.push_back(readRow(query));
  query.reset();
  return rows;
}

// Byte counts come from per-second rates; a negative or absurd rate adds nothing.
int64_t bytesOver(double bytesPerSecond, double seconds) {
  const double bytes = bytesPerSecond * seconds;
  if (!(bytes > 0) || bytes > 9e18) return 0;
  return std::llround(bytes);
}

int64_t secondsOf(Date at) {
  return std::chrono::floor<std::chrono::seconds>(at.time_since_epoch()).count();
}

int64_t alignDown(int64_t seconds, int64_t period) {
  const int64_t remainder = ((seconds % period) + period) % period;
  return seconds - remainder;
}

// Where the zone is 30 or 45 minutes off UTC, the local hour does not start on a UTC one.
int64_t localHourStart(Date at) {
  const std::time_t seconds = secondsOf(at);
  std::tm local{};
  localtime_r(&seconds, &local);
  return static_cast<int64_t>(seconds) - (local.tm_min * 60 + local.tm_sec);
}

// Worst first is last: an unknown word ranks below all.
int rankOf(std::string_view level, std::initializer_list<std::string_view> order) {
  int rank = 0;
  for (auto word : order) {
    if (word == level) return rank;
    ++rank;
  }
  return -1;
}

// A period written by an earlier run (one that stopped inside it) and the rest of it from
// this run: seconds add up, averages are weighted by the seconds each part measured.
HistoryDatabase::ReadingRow mergedReading(const HistoryDatabase::ReadingRow& held,
                                          const HistoryDatabase::ReadingRow& added) {
  if (!(held.seconds > 0)) return added;
  if (!(added.seconds > 0)) return held;
  const double a = held.seconds, b = added.seconds;
  const auto mean = [&](double x, double y) { return (x * a + y * b) / (a + b); };
  const auto eitherMean = [&](std::optional<double> x, std::optional<double> y) {
    return x && y ? std::optional(mean(*x, *y)) : x ? x : y;
  };
  const auto eitherMax = [](std::optional<double> x, std::optional<double> y) {
    return x && y ? std::optional(std::max(*x, *y)) : x ? x : y;
  };
  const auto worse = [](const std::string& x, const std::string& y, std::initializer_list<std::string_view> order) {
    return rankOf(y, order) > rankOf(x, order) ? y : x;
  };
  HistoryDatabase::ReadingRow row;
  row.start = added.start;
  row.seconds = a + b;
  row.cpuPercentAverage = mean(held.cpuPercentAverage, added.cpuPercentAverage);
  row.cpuPercentPeak = std::max(held.cpuPercentPeak, added.cpuPercentPeak);
  row.memoryUsedBytesAverage = std::llround(
      mean(static_cast<double>(held.memoryUsedBytesAverage), static_cast<double>(added.memoryUsedBytesAverage)));
  row.memoryUsedBytesPeak = std::max(held.memoryUsedBytesPeak, added.memoryUsedBytesPeak);
  row.memoryPressureLevelPeak =
      worse(held.memoryPressureLevelPeak, added.memoryPressureLevelPeak, {"normal", "warning", "critical"});
  row.swapUsedBytesPeak = std::max(held.swapUsedBytesPeak, added.swapUsedBytesPeak);
  // Figures a machine may lack: an average weighted by the seconds, the higher peak.
  using Row = HistoryDatabase::ReadingRow;
  using Figure = std::optional<double> Row::*;
  const auto optionalPair = [&](Figure average, Figure peak) {
    row.*average = eitherMean(held.*average, added.*average);
    row.*peak = eitherMax(held.*peak, added.*peak);
  };
  optionalPair(&Row::memoryPressurePercentAverage, &Row::memoryPressurePercentPeak);
  optionalPair(&Row::gpuPercentAverage, &Row::gpuPercentPeak);
  optionalPair(&Row::neuralEnginePercentAverage, &Row::neuralEnginePercentPeak);
  optionalPair(&Row::cpuCelsiusAverage, &Row::cpuCelsiusPeak);
  optionalPair(&Row::hottestCelsiusAverage, &Row::hottestCelsiusPeak);
  optionalPair(&Row::fanRpmAverage, &Row::fanRpmPeak);
  optionalPair(&Row::powerWattsAverage, &Row::powerWattsPeak);
  row.thermalStatePeak = worse(held.thermalStatePeak, added.thermalStatePeak, {"nominal", "fair", "serious", "critical"});
  row.batteryPercent = added.batteryPercent ? added.batteryPercent : held.batteryPercent;
  row.pluggedInSeconds = held.pluggedInSeconds + added.pluggedInSeconds;
  return row;
}

HistoryDatabase::ReadingRow readingRow(const sqlite::Statement& q) {
  return {q.integer(0), q.real(1), q.real(2), q.real(3), q.integer(4), q.integer(5), q.optionalReal(6),
          q.optionalReal(7), q.text(8), q.integer(9), q.optionalReal(10), q.optionalReal(11),
          q.optionalReal(12), q.optionalReal(13), q.optionalReal(14), q.optionalReal(15),
          q.optionalReal(16), q.optionalReal(17), q.optionalReal(18), q.optionalReal(19),
          q.optionalReal(20), q.optionalReal(21), q.text(22), q.optionalReal(23), q.real(24)};
}

HistoryDatabase::Failure failure(const char* what, const std::filesystem::path& url, const sqlite::Error& error) {
  return {fmt::format("{} {}: {}", what, url.string(), error.what())};
}

// What PRAGMA quick_check found wrong with the file.
struct Damaged {
  std::string why;
};

// A file from a later version of the program: left alone.
struct NewerSchema {
  int64_t version;
};

bool meansDamage(int code) {
  const int primary = code & 0xff;
  return primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB;
}

// PRAGMA quick_check, stopped once `budget` has passed: the first fault it reports, or
// nothing when the file looks sound or was too large to check in time.
std::optional<std::string> quickCheck(sqlite::Connection& connection, std::chrono::milliseconds budget) {
  auto deadline = std::chrono::steady_clock::now() + budget;
  sqlite3_progress_handler(
      connection.handle(), 1000,
      [](void* until) { return std::chrono::steady_clock::now() > *static_cast<decltype(deadline)*>(until) ? 1 : 0; },
      &deadline);
  std::optional<std::string> fault;
  try {
    std::string verdict = connection.text("PRAGMA quick_check(1)");
    if (verdict != "ok") {
      // "*** in database main ***\nPage 23: …": one line, for one log sentence.
      constexpr std::string_view heading = "*** in database main ***";
      if (verdict.starts_with(heading)) verdict.erase(0, heading.size());
      std::replace(verdict.begin(), verdict.end(), '\n', ' ');
      fault = std::string(trim(verdict));
      if (fault->empty()) fault = "no verdict";
    }
  } catch (const sqlite::Error& error) {
    sqlite3_progress_handler(connection.handle(), 0, nullptr, nullptr);
    if ((error.code & 0xff) == SQLITE_INTERRUPT) return std::nullopt;
    throw;
  }
  sqlite3_progress_handler(connection.handle(), 0, nullptr, nullptr);
  return fault;
}

// "history.sqlite.bad-20261125-150512", or with "-2", "-3" … when that name is taken.
std::filesystem::path asideName(const std::filesystem::path& url) {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  char stamp[32];
  std::strftime(stamp, sizeof stamp, "%Y%m%d-%H%M%S", &local);
  const std::string base = fmt::format("{}.bad-{}", url.string(), stamp);
  std::filesystem::path name = base;
  std::error_code error;
  for (int n = 2; std::filesystem::exists(name, error) && n < 1000; ++n) name = fmt::format("{}-{}", base, n);
  return name;
}

// Moves the file and its -wal and -shm aside, so SQLite could still open the copy as it was.
Result<std::filesystem::path, std::string> setAside(const std::filesystem::path& url) {
  const auto aside = asideName(url);
  std::error_code error;
  std::filesystem::rename(url, aside, error);
  if (error) return fail(error.message());
  for (const char* suffix : {"-wal", "-shm"}) {
    const std::filesystem::path from = url.string() + suffix;
    std::error_code missing;
    if (!std::filesystem::exists(from, missing)) continue;
    // A log left behind would be replayed into the new file.
    std::filesystem::rename(from, aside.string() + suffix, error);
    if (error) std::filesystem::remove(from, error);
  }
  return aside;
}

}  // namespace

HistoryDatabase::HistoryDatabase(std::filesystem::path url, sqlite::Connection connection)
    : url_(std::move(url)), connection_(std::move(connection)) {}

HistoryDatabase::~HistoryDatabase() = default;

const char* HistoryDatabase::tableName(SystemTable table) {
  switch (table) {
    case SystemTable::minutes: return "system_minutes";
    case SystemTable::fiveMinutes: return "system_five_minutes";
    case SystemTable::hours: return "system_hours";
  }
  return "system_hours";
}

const char* HistoryDatabase::tableName(AppTable table) {
  switch (table) {
    case AppTable::hours: return "app_hours";
    case AppTable::days: return "app_days";
  }
  return "app_days";
}

int64_t HistoryDatabase::periodStart(SystemTable table, Date at) {
  switch (table) {
    case SystemTable::minutes: return alignDown(secondsOf(at), 60);
    case SystemTable::fiveMinutes: return alignDown(secondsOf(at), 300);
    case SystemTable::hours: return localHourStart(at);
  }
  return localHourStart(at);
}

int64_t HistoryDatabase::periodStart(AppTable table, Date at) {
  if (table == AppTable::hours) return localHourStart(at);
  const std::time_t seconds = secondsOf(at);
  std::tm local{};
  localtime_r(&seconds, &local);
  local.tm_hour = 0;
  local.tm_min = 0;
  local.tm_sec = 0;
  local.tm_isdst = -1;  // midnight may fall on the other side of a clock change
  return static_cast<int64_t>(std::mktime(&local));
}

Result<std::unique_ptr<HistoryDatabase>, HistoryDatabase::Failure> HistoryDatabase::open(
    const std::filesystem::path& url) {
  return open(url, Options{});
}

Result<std::unique_ptr<HistoryDatabase>, HistoryDatabase::Failure> HistoryDatabase::open(
    const std::filesystem::path& url, const Options& options) {
  // On the first run the data folder may not exist yet.
  std::error_code folderError;
  if (url.has_parent_path()) std::filesystem::create_directories(url.parent_path(), folderError);
  if (folderError) {
    return fail(Failure{fmt::format("cannot open {}: cannot create its folder: {}", url.string(), folderError.message())});
  }
  std::string damage;
  try {
    return openFile(url, options);
  } catch (const NewerSchema& newer) {
    return fail(Failure{fmt::format("cannot open {}: its schema {} is newer than this version's {}", url.string(),
                                    newer.version, schemaVersion)});
  } catch (const Damaged& damaged) {
    damage = damaged.why;
  } catch (const sqlite::Error& error) {
    if (!meansDamage(error.code)) return fail(failure("cannot open", url, error));
    damage = error.what();
  }
  // Everything of the damaged file is closed by now: keep it for whoever wants to look,
  // and record from here on into a new one.
  auto aside = setAside(url);
  if (!aside) {
    return fail(Failure{fmt::format("cannot open {}: it is damaged ({}) and cannot be moved aside: {}", url.string(),
                                    damage, aside.error())});
  }
  spdlog::warn("The history file {} was damaged ({}); it is kept as {} and a new history is started.", url.string(),
               damage, aside->string());
  try {
    return openFile(url, options);
  } catch (const NewerSchema&) {
    return fail(Failure{fmt::format("cannot open {}: a newer version made it meanwhile", url.string())});
  } catch (const Damaged& damaged) {
    return fail(Failure{fmt::format("cannot open {}: the new file is damaged too: {}", url.string(), damaged.why)});
  } catch (const sqlite::Error& error) {
    return fail(failure("cannot open", url, error));
  }
}

std::unique_ptr<HistoryDatabase> HistoryDatabase::openFile(const std::filesystem::path& url, const Options& options) {
  auto connection = sqlite::Connection::open(url);
  // A second process (the command line) may hold the write lock for a moment.
  sqlite3_busy_timeout(connection.handle(), 5000);
  // The first statement reads the header: a file that is not a database fails here.
  if (auto fault = quickCheck(connection, options.checkBudget)) throw Damaged{*fault};
  connection.execute("PRAGMA journal_mode = WAL");
  connection.execute("PRAGMA synchronous = NORMAL");
  if (options.maxPages) connection.integer(fmt::format("PRAGMA max_page_count = {}", *options.maxPages));
  std::unique_ptr<HistoryDatabase> database(new HistoryDatabase(url, std::move(connection)));
  const int64_t version = database->connection_.integer("PRAGMA user_version");
  if (version > schemaVersion) throw NewerSchema{version};
  database->migrate(version);
  database->dataVersion_ = database->connection_.integer("PRAGMA data_version");
  database->recordingSince_ = database->metaLocked(recordingSinceKey);
  struct stat opened {};
  if (::stat(url.c_str(), &opened) == 0) {
    database->device_ = opened.st_dev;
    database->inode_ = opened.st_ino;
  }
  return database;
}

bool HistoryDatabase::isDetached() const {
  if (inode_ == 0) return false;  // never told what it opened: cannot tell
  struct stat now {};
  if (::stat(url_.c_str(), &now) != 0) return errno == ENOENT || errno == ENOTDIR;
  return now.st_dev != device_ || now.st_ino != inode_;
}

HistoryDatabase::Failure HistoryDatabase::writeFailedLocked(const char* what, const sqlite::Error& error) {
  auto failed = failure(what, url_, error);
  if (!std::exchange(writesFail_, true))
    spdlog::warn("History cannot be written for now, so this stretch goes unrecorded: {}", failed.message);
  return failed;
}

void HistoryDatabase::writeWorkedLocked() {
  if (std::exchange(writesFail_, false)) spdlog::info("History is written to {} again.", url_.string());
}

void HistoryDatabase::migrate(int64_t fromVersion) {
  sqlite::Transaction transaction(connection_);
  // The create statements are harmless on an existing file, so they run every time;
  // steps for later schema numbers go below, each guarded by `fromVersion < n`.
  for (auto table : systemTables) connection_.execute(fmt::format("CREATE TABLE IF NOT EXISTS {}{}", tableName(table), systemColumns));
  for (auto table : appTables) connection_.execute(fmt::format("CREATE TABLE IF NOT EXISTS {}{}", tableName(table), appColumns));
  connection_.execute(readingsTable);
  connection_.execute(metaTable);
  if (fromVersion < 1) {
    auto& insert = statement("INSERT OR IGNORE INTO meta (key, value) VALUES (?, ?)");
    insert.bindText(1, recordingSinceKey).bindText(2, formatISO8601(std::chrono::system_clock::now()));
    insert.run();
  }
  connection_.execute(fmt::format("PRAGMA user_version = {}", schemaVersion));
  transaction.commit();
}

sqlite::Statement& HistoryDatabase::statement(const std::string& sql) {
  auto found = statements_.find(sql);
  if (found == statements_.end()) {
    found = statements_.emplace(sql, std::make_unique<sqlite::Statement>(connection_.prepare(sql))).first;
  } else {
    found->second->reset();
  }
  return *found->second;
}

Result<bool, HistoryDatabase::Failure> HistoryDatabase::isEmpty() {
  std::lock_guard guard(lock_);
  try {
    return connection_.integer("SELECT count(*) FROM system_hours") == 0 &&
           connection_.integer("SELECT count(*) FROM app_days") == 0;
  } catch (const sqlite::Error& error) {
    return fail(failure("cannot read", url_, error));
  }
}

Result<std::vector<HistoryDatabase::SystemRow>, HistoryDatabase::Failure> HistoryDatabase::system(SystemTable table,
                                                                                                  int64_t from,
                                                                                                  int64_t to) {
  std::lock_guard guard(lock_);
  try {
    auto& query = statement(fmt::format("{}{}{}{}", selectSystem, tableName(table), rangeCondition, orderByStart));
    return rowsInRange(query, from, to, systemRow);
  } catch (const sqlite::Error& error) {
    return fail(failure("cannot read", url_, error));
  }
}

Result<std::vector<HistoryDatabase::AppRow>, HistoryDatabase::Failure> HistoryDatabase::apps(AppTable table,
                                                                                             int64_t from, int64_t to) {
  std::lock_guard guard(lock_);
  try {
    auto& query = statement(fmt::format("{}{}{}{}", selectApps, tableName(table), rangeCondition, orderByStart));
    return rowsInRange(query, from, to, appRow);
  } catch (const sqlite::Error& error) {
    return fail(failure("cannot read", url_, error));
  }
}

std::optional<HistoryDatabase::SystemRow> HistoryDatabase::loadSystemLocked(SystemTable table, int64_t start) {
  auto& query = statement(fmt::format("{}{}{}", selectSystem, tableName(table), periodCondition));
  query.bindInt(1, start);
  std::optional<SystemRow> row;
  if (query.step()) row = systemRow(query);
  query.reset();
  return row;
}

std::vector<HistoryDatabase::AppRow> HistoryDatabase::loadAppsLocked(AppTable table, int64_t start) {
  auto& query = statement(fmt::format("{}{}{}{}", selectApps, tableName(table), periodCondition, orderByStart));
  query.bindInt(1, start);
  std::vector<AppRow> rows;
  while (query.step()) rows.push_back(appRow(query));
  query.reset();
  return rows;
}

Result<std::optional<HistoryDatabase::SystemRow>, HistoryDatabase::Failure> HistoryDatabase::loadSystem(
    SystemTable table, int64_t start) {
  std::lock_guard guard(lock_);
  try {
    return loadSystemLocked(table, start);
  } catch (const sqlite::Error& error) {
    return fail(failure("cannot read", url_, error));
  }
}

Result<std::vector<HistoryDatabase::AppRow>, HistoryDatabase::Failure> HistoryDatabase::loadApps(AppTable table,
                                                                                                 int64_t start) {
  std::lock_guard guard(lock_);
  try {
    return loadAppsLocked(table, start);
  } catch (const sqlite::Error& error) {
    return fail(failure("cannot read", url_, error));
  }
}

void HistoryDatabase::upsert(SystemTable table, const SystemRow& row) {
  auto& insert = statement(systemUpsert(tableName(table)));
  insert.bindInt(1, row.start)
      .bindReal(2, row.seconds)
      .bindReal(3, row.cpuLoadSeconds)
      .bindReal(4, row.memoryByteSeconds)
      .bindInt(5, row.networkBytesIn)
      .bindInt(6, row.networkBytesOut)
      .bindInt(7, row.diskBytesRead)
      .bindInt(8, row.diskBytesWritten)
      .bindReal(9, row.energyJoules);
  insert.run();
}

void HistoryDatabase::upsert(AppTable table, const AppRow& row) {
  auto& insert = statement(appUpsert(tableName(table)));
  bindApp(insert, row);
  insert.run();
}

void HistoryDatabase::bindApp(sqlite::Statement& insert, const AppRow& row) {
  insert.bindInt(1, row.start)
      .bindText(2, row.appId)
      .bindText(3, row.name)
      .bindText(4, row.kind)
      .bindOptionalText(5, row.bundlePath)
      .bindReal(6, row.seconds)
      .bindReal(7, row.cpuSeconds)
      .bindReal(8, row.energyJoules)
      .bindReal(9, row.memoryByteSeconds)
      .bindInt(10, row.peakMemoryBytes)
      .bindInt(11, row.networkBytesIn)
      .bindInt(12, row.networkBytesOut)
      .bindInt(13, row.diskBytesRead)
      .bindInt(14, row.diskBytesWritten);
}

Result<void, HistoryDatabase::Failure> HistoryDatabase::write(
    const std::vector<std::pair<SystemTable, SystemRow>>& systemRows,
    const std::vector<std::pair<AppTable, AppRow>>& appRows) {
  std::lock_guard guard(lock_);
  try {
    sqlite::Transaction transaction(connection_);
    for (const auto& [table, row] : systemRows) upsert(table, row);
    for (const auto& [table, row] : appRows) upsert(table, row);
    transaction.commit();
    writeWorkedLocked();
  } catch (const sqlite::Error& error) {
    return fail(writeFailedLocked("cannot write to", error));
  }
  // A row written from outside may replace an open one; read it afresh on the next tick.
  forgetOpenRows();
  return {};
}

Result<void, HistoryDatabase::Failure> HistoryDatabase::record(const SystemSample& sample,
                                                               const std::vector<AppGroup>& groups,
                                                               TickGroups freshness, Date at) {
  const double dt = sample.interval;
  if (!(dt > 0)) return {};
  std::lock_guard guard(lock_);
  try {
    // The write lock comes first, so no other program can change the open rows between
    // reading them and writing them back.
    sqlite::Transaction transaction(connection_);
    followOutsideChangesLocked();
    const double cores = static_cast<double>(std::max<size_t>(1, sample.cpuPerCore.size()));
    // Energy is an amount over the process sample's interval, not a rate: a repeated sample adds none.
    const bool countsEnergy = freshness == TickGroups::fresh;
    double appEnergy = 0;
    if (countsEnergy)
      for (const auto& group : groups) appEnergy += group.energyJoules();

    for (size_t i = 0; i < 3; ++i) {
      const auto table = systemTables[i];
      const int64_t start = periodStart(table, at);
      auto& row = openSystem_[i];
      if (!row || row->start != start) row = loadSystemLocked(table, start);
      if (!row) row = SystemRow{.start = start};
      row->seconds += dt;
      row->cpuLoadSeconds += sample.cpu() * cores * dt;
      row->memoryByteSeconds += static_cast<double>(sample.memoryUsed()) * dt;
      row->networkBytesIn += bytesOver(sample.networkInBytesPerSec, dt);
      row->networkBytesOut += bytesOver(sample.networkOutBytesPerSec, dt);
      row->diskBytesRead += bytesOver(sample.diskReadBytesPerSec, dt);
      row->diskBytesWritten += bytesOver(sample.diskWriteBytesPerSec, dt);
      row->energyJoules += appEnergy;
    }
    for (size_t i = 0; i < 2; ++i) {
      const int64_t start = periodStart(appTables[i], at);
      if (openApps_[i].start == start) continue;
      openApps_[i] = OpenApps{.start = start};
      for (auto& row : loadAppsLocked(appTables[i], start)) openApps_[i].rows.emplace(row.appId, std::move(row));
    }

    for (size_t i = 0; i < 3; ++i) upsert(systemTables[i], *openSystem_[i]);
    sqlite::Statement* inserts[2] = {&statement(appUpsert(tableName(appTables[0]))),
                                     &statement(appUpsert(tableName(appTables[1])))};
    for (const auto& group : groups) {
      const auto memory = static_cast<int64_t>(std::min<uint64_t>(group.memoryBytes(), INT64_MAX));
      const double cpuSeconds = group.cpuPercent() / 100.0 * dt;
      const double energy = countsEnergy ? group.energyJoules() : 0;
      // Network as measured, on the tick that measured it: carried rates would book a step's
      // bytes over the ticks after it and lose what falls after the app's last tick.
      const auto counted = [&](uint64_t measured) {
        return countsEnergy ? static_cast<int64_t>(std::min<uint64_t>(measured, INT64_MAX)) : int64_t{0};
      };
      const int64_t bytes[4] = {counted(group.networkBytesIn()), counted(group.networkBytesOut()),
                                bytesOver(group.diskReadBytesPerSec(), dt), bytesOver(group.diskWriteBytesPerSec(), dt)};
      for (size_t i = 0; i < 2; ++i) {
        auto [found, inserted] = openApps_[i].rows.try_emplace(group.id);
        AppRow& row = found->second;
        if (inserted) {
          row.start = openApps_[i].start;
          row.appId = group.id;
        }
        // The latest name wins: an update may rename an app.
        row.name = group.name;
        row.kind = std::string(rawValue(group.kind));
        row.bundlePath = group.bundlePath;
        row.seconds += dt;
        row.cpuSeconds += cpuSeconds;
        row.energyJoules += energy;
        row.memoryByteSeconds += static_cast<double>(memory) * dt;
        row.peakMemoryBytes = std::max(row.peakMemoryBytes, memory);
        row.networkBytesIn += bytes[0];
        row.networkBytesOut += bytes[1];
        row.diskBytesRead += bytes[2];
        row.diskBytesWritten += bytes[3];
        bindApp(*inserts[i], row);
        inserts[i]->run();
      }
    }
    transaction.commit();
    writeWorkedLocked();
    return {};
  } catch (const sqlite::Error& error) {
    // The open rows now hold totals the file does not have; read them back next time.
    forgetOpenRows();
    return fail(writeFailedLocked("cannot write to", error));
  }
}

void HistoryDatabase::forgetOpenRows() {
  for (auto& open : openSystem_) open.reset();
  for (auto& open : openApps_) open = OpenApps{};
}

void HistoryDatabase::followOutsideChangesLocked() {
  // Changes only when another connection committed; this one's own writes leave it alone.
  const int64_t version = connection_.integer("PRAGMA data_version");
  if (version == dataVersion_) return;
  dataVersion_ = version;
  // Another program wrote or deleted rows: what this one holds of the open periods may be
  // gone, so it reads them afresh rather than writing its old totals back.
  forgetOpenRows();
  auto since = metaLocked(recordingSinceKey);
  if (since != recordingSince_) {
    recordingSince_ = std::move(since);
    ++restarts_;
  }
}

Result<uint64_t, HistoryDatabase::Failure> HistoryDatabase::restarts() {
  std::lock_guard guard(lock_);
  try {
    followOutsideChangesLocked();
    return restarts_;
  } catch (const sqlite::Error& error) {
    return fail(failure("cannot read", url_, error));
  }
}

Result<void, HistoryDatabase::Failure> HistoryDatabase::writeReading(const ReadingRow& closed) {
  std::lock_guard guard(lock_);
  try {
    sqlite::Transaction transaction(connection_);
    followOutsideChangesLocked();
    auto& held = statement("SELECT * FROM readings WHERE start = ?");
    held.bindInt(1, closed.start);
    const ReadingRow row = held.step() ? mergedReading(readingRow(held), closed) : closed;
    held.reset();
    auto& insert = statement(
        "INSERT OR REPLACE INTO readings VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    insert.bindInt(1, row.start)
        .bindReal(2, row.seconds)
        .bindReal(3, row.cpuPercentAverage)
        .bindReal(4, row.cpuPercentPeak)
        .bindInt(5, row.memoryUsedBytesAverage)
        .bindInt(6, row.memoryUsedBytesPeak)
        .bindOptionalReal(7, row.memoryPressurePercentAverage)
        .bindOptionalReal(8, row.memoryPressurePercentPeak)
        .bindText(9, row.memoryPressureLevelPeak)
        .bindInt(10, row.swapUsedBytesPeak)
        .bindOptionalReal(11, row.gpuPercentAverage)
        .bindOptionalReal(12, row.gpuPercentPeak)
        .bindOptionalReal(13, row.neuralEnginePercentAverage)
        .bindOptionalReal(14, row.neuralEnginePercentPeak)
        .bindOptionalReal(15, row.cpuCelsiusAverage)
        .bindOptionalReal(16, row.cpuCelsiusPeak)
        .bindOptionalReal(17, row.hottestCelsiusAverage)
        .bindOptionalReal(18, row.hottestCelsiusPeak)
        .bindOptionalReal(19, row.fanRpmAverage)
        .bindOptionalReal(20, row.fanRpmPeak)
        .bindOptionalReal(21, row.powerWattsAverage)
        .bindOptionalReal(22, row.powerWattsPeak)
        .bindText(23, row.thermalStatePeak)
        .bindOptionalReal(24, row.batteryPercent)
        .bindReal(25, row.pluggedInSeconds);
    insert.run();
    transaction.commit();
    writeWorkedLocked();
    return {};
  } catch (const sqlite::Error& error) {
    return fail(writeFailedLocked("cannot write to", error));
  }
}

Result<std::vector<HistoryDatabase::ReadingRow>, HistoryDatabase::Failure> HistoryDatabase::readings(int64_t since) {
  std::lock_guard guard(lock_);
  try {
    auto query = connection_.prepare(fmt::format("SELECT * FROM readings WHERE start >= {}{}", since, orderByStart));
    std::vector<ReadingRow> rows;
    while (query.step()) rows.push_back(readingRow(query));
    return rows;
  } catch (const sqlite::Error& error) {
    return fail(failure("cannot read", url_, error));
  }
}

std::optional<std::string> HistoryDatabase::metaLocked(const std::string& key) {
  std::string quoted;
  for (char c : key) quoted += c == '\'' ? std::string("''") : std::string(1, c);
  auto& query = statement("SELECT value FROM meta WHERE key = '" + quoted + "'");
  std::optional<std::string> value;
  if (query.step()) value = query.text(0);
  query.reset();
  return value;
}

Result<std::optional<std::string>, HistoryDatabase::Failure> HistoryDatabase::meta(const std::string& key) {
  std::lock_guard guard(lock_);
  try {
    return metaLocked(key);
  } catch (const sqlite::Error& error) {
    return fail(failure("cannot read", url_, error));
  }
}

Result<void, HistoryDatabase::Failure> HistoryDatabase::setMeta(const std::string& key, const std::string& value) {
  std::lock_guard guard(lock_);
  try {
    sqlite::Transaction transaction(connection_);
    auto& insert = statement("INSERT OR REPLACE INTO meta (key, value) VALUES (?, ?)");
    insert.bindText(1, key).bindText(2, value);
    insert.run();
    transaction.commit();
    writeWorkedLocked();
    return {};
  } catch (const sqlite::Error& error) {
    return fail(writeFailedLocked("cannot write to", error));
  }
}

Result<std::optional<Date>, HistoryDatabase::Failure> HistoryDatabase::recordingSince() {
  auto value = meta(recordingSinceKey);
  if (!value) return fail(value.error());
  if (!*value) return std::optional<Date>();
  return parseISO8601(**value);
}

Result<void, HistoryDatabase::Failure> HistoryDatabase::prune(const Bounds& bounds) {
  std::lock_guard guard(lock_);
  try {
    sqlite::Transaction transaction(connection_);
    const std::pair<const char*, int64_t> tables[] = {
        {tableName(SystemTable::minutes), bounds.systemMinutes},
        {tableName(SystemTable::fiveMinutes), bounds.systemFiveMinutes},
        {tableName(SystemTable::hours), bounds.systemHours},
        {tableName(AppTable::hours), bounds.appHours},
        {tableName(AppTable::days), bounds.appDays},
        {"readings", bounds.readings}};
    for (const auto& [table, bound] : tables) {
      connection_.execute(fmt::format("DELETE FROM {} WHERE start < {}", table, bound));
    }
    transaction.commit();
    writeWorkedLocked();
  } catch (const sqlite::Error& error) {
    return fail(writeFailedLocked("cannot delete older history from", error));
  }
  // A bound past an open period deletes it too; start such rows afresh.
  forgetOpenRows();
  return {};
}

Result<void, HistoryDatabase::Failure> HistoryDatabase::deleteAll(Date now) {
  std::lock_guard guard(lock_);
  forgetOpenRows();
  try {
    {
      sqlite::Transaction transaction(connection_);
      followOutsideChangesLocked();
      for (auto table : systemTables) connection_.execute(fmt::format("DELETE FROM {}", tableName(table)));
      for (auto table : appTables) connection_.execute(fmt::format("DELETE FROM {}", tableName(table)));
      connection_.execute("DELETE FROM readings");
      auto& insert = statement("INSERT OR REPLACE INTO meta (key, value) VALUES (?, ?)");
      const std::string since = formatISO8601(now);
      insert.bindText(1, recordingSinceKey).bindText(2, since);
      insert.run();
      transaction.commit();
      recordingSince_ = since;
      ++restarts_;
    }
    // The person asked for the record to be gone: leave no deleted pages in the file or its log.
    connection_.execute("VACUUM");
    connection_.execute("PRAGMA wal_checkpoint(TRUNCATE)");
    return {};
  } catch (const sqlite::Error& error) {
    return fail(failure("cannot delete the history in", url_, error));
  }
}

Result<void, HistoryDatabase::Failure> HistoryDatabase::checkpoint() {
  std::lock_guard guard(lock_);
  try {
    connection_.execute("PRAGMA wal_checkpoint(TRUNCATE)");
    return {};
  } catch (const sqlite::Error& error) {
    return fail(failure("cannot checkpoint", url_, error));
  }
}

}  // namespace omnira
