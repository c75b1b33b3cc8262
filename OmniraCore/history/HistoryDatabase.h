#pragma once
// The long-term record of the machine and of every app, in one SQLite file
// (AppPaths::dataFile("history.sqlite")): machine totals per minute, five minutes and
// hour, app totals per hour and day, the closed reading periods of the readings recorder,
// and a small key-value table.
//
// Ownership and threads: the monitor store opens one HistoryDatabase at start and owns it
// (it holds it optionally: when open() fails the program runs on without history). The
// store's main thread writes every tick; other threads (export, the command line, the
// bridge) may read or export through the same object. Every statement runs under `lock_`,
// a mutex owned by this object, so writes and reads never interleave on the connection.
//
// Failures: every call returns HistoryDatabase::Failure with a sentence that carries
// SQLite's message; a failed write leaves the file as it was before that write. Writes
// that keep failing (a full disk) are logged once when they start failing and once when
// they work again, not at every call. A damaged file found at open is moved aside, not
// deleted, and a new one started; the log says so.

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "OmniraCore/foundation/Date.h"
#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/history/Sqlite.h"
#include "OmniraCore/history/TickGroups.h"
#include "OmniraCore/sampling/AppGroup.h"
#include "OmniraCore/sampling/SystemSample.h"

namespace omnira {

class HistoryDatabase {
 public:
  struct Failure {
    std::string message;  // "cannot open …: <SQLite's message>", "cannot write …", …
  };

  // Written to "PRAGMA user_version". Raise it with a new step in migrate().
  static constexpr int64_t schemaVersion = 1;

  enum class SystemTable { minutes, fiveMinutes, hours };
  enum class AppTable { hours, days };

  // `start` is seconds since the epoch at the start of the row's period: a multiple of
  // 60 or 300, for hours the start of a local hour (not always a whole UTC hour: some zones
  // are 30 or 45 minutes off), for days local midnight. The "…Seconds" fields are
  // integrals over time; divide by `seconds` for averages.
  struct SystemRow {
    int64_t start = 0;
    double seconds = 0;
    double cpuLoadSeconds = 0;  // busy cores × seconds
    double memoryByteSeconds = 0;
    int64_t networkBytesIn = 0;
    int64_t networkBytesOut = 0;
    int64_t diskBytesRead = 0;
    int64_t diskBytesWritten = 0;
    double energyJoules = 0;  // energy of all apps
    friend bool operator==(const SystemRow&, const SystemRow&) = default;
  };

  struct AppRow {
    int64_t start = 0;
    std::string appId;
    std::string name;
    std::string kind;  // GroupKind raw value
    std::optional<std::string> bundlePath;
    double seconds = 0;
    double cpuSeconds = 0;  // core-seconds
    double energyJoules = 0;
    double memoryByteSeconds = 0;
    int64_t peakMemoryBytes = 0;
    int64_t networkBytesIn = 0;
    int64_t networkBytesOut = 0;
    int64_t diskBytesRead = 0;
    int64_t diskBytesWritten = 0;
    friend bool operator==(const AppRow&, const AppRow&) = default;
  };

  // One closed five-minute period of the readings recorder; figures the machine does not
  // have are empty and stored as NULL.
  struct ReadingRow {
    int64_t start = 0;
    double seconds = 0;
    double cpuPercentAverage = 0;
    double cpuPercentPeak = 0;
    int64_t memoryUsedBytesAverage = 0;
    int64_t memoryUsedBytesPeak = 0;
    std::optional<double> memoryPressurePercentAverage;
    std::optional<double> memoryPressurePercentPeak;
    std::string memoryPressureLevelPeak = "normal";
    int64_t swapUsedBytesPeak = 0;
    std::optional<double> gpuPercentAverage;
    std::optional<double> gpuPercentPeak;
    std::optional<double> neuralEnginePercentAverage;
    std::optional<double> neuralEnginePercentPeak;
    std::optional<double> cpuCelsiusAverage;
    std::optional<double> cpuCelsiusPeak;
    std::optional<double> hottestCelsiusAverage;
    std::optional<double> hottestCelsiusPeak;
    std::optional<double> fanRpmAverage;
    std::optional<double> fanRpmPeak;
    std::optional<double> powerWattsAverage;
    std::optional<double> powerWattsPeak;
    std::string thermalStatePeak = "nominal";
    std::optional<double> batteryPercent;
    double pluggedInSeconds = 0;
    friend bool operator==(const ReadingRow&, const ReadingRow&) = default;
  };

  // The earliest `start` each table keeps; rows before it are deleted.
  struct Bounds {
    int64_t systemMinutes = 0;
    int64_t systemFiveMinutes = 0;
    int64_t systemHours = 0;
    int64_t appHours = 0;
    int64_t appDays = 0;
    int64_t readings = 0;
  };

  struct Options {
    // How long the integrity check at open may run; a file too large to check in that time
    // opens without a verdict rather than holding up the start.
    std::chrono::milliseconds checkBudget{2000};
    // Pages the file may grow to (SQLite's max_page_count); past it writes fail as on a
    // full disk. No cap unless set.
    std::optional<int64_t> maxPages;
  };

  // Opens or creates the file (and its folder), checks it (PRAGMA quick_check, within
  // checkBudget), switches it to WAL with synchronous NORMAL and brings the schema up to
  // schemaVersion. A damaged file, or one that is not a database, is renamed to
  // "<name>.bad-<date>" with its -wal and -shm, and a new file takes its place. A file
  // that cannot be opened or comes from a newer schema fails with "cannot open".
  static Result<std::unique_ptr<HistoryDatabase>, Failure> open(const std::filesystem::path& url);
  static Result<std::unique_ptr<HistoryDatabase>, Failure> open(const std::filesystem::path& url,
                                                                const Options& options);

  const std::filesystem::path& url() const { return url_; }

  // True when the file this object writes is no longer at url(): deleted (with its folder
  // or alone) or replaced. The writes then go to a file nobody will read. One stat(2).
  bool isDetached() const;

  // True until both an hour row of the machine and a day row of an app exist.
  Result<bool, Failure> isEmpty();

  // Rows with from <= start < to, oldest first.
  Result<std::vector<SystemRow>, Failure> system(SystemTable table, int64_t from, int64_t to);
  Result<std::vector<AppRow>, Failure> apps(AppTable table, int64_t from, int64_t to);
  // The rows of one period.
  Result<std::optional<SystemRow>, Failure> loadSystem(SystemTable table, int64_t start);
  Result<std::vector<AppRow>, Failure> loadApps(AppTable table, int64_t start);

  // Upserts in one transaction; a row with the same start (and app id) is replaced.
  Result<void, Failure> write(const std::vector<std::pair<SystemTable, SystemRow>>& systemRows,
                              const std::vector<std::pair<AppTable, AppRow>>& appRows);

  // Folds one tick into the open minute, five-minute and hour rows of the machine and the
  // open hour and day rows of each app, weighted by the sample's interval, and rewrites
  // those rows with their grown totals in one transaction. The tick belongs to the periods
  // that contain `at`. A tick without an interval (the first sample) adds nothing. Open
  // rows already in the file (after a restart) are continued, not restarted. The groups'
  // energy counts only when they are fresh (see TickGroups).
  Result<void, Failure> record(const SystemSample& sample, const std::vector<AppGroup>& groups, TickGroups freshness,
                               Date at);

  // A closed period of the readings recorder. When the file already holds that period (an
  // earlier run stopped inside it), the two parts are merged: seconds add up, averages are
  // weighted by each part's seconds, peaks and levels take the worse, the battery the later.
  Result<void, Failure> writeReading(const ReadingRow& row);
  // Rows with start >= since, oldest first.
  Result<std::vector<ReadingRow>, Failure> readings(int64_t since);

  Result<std::optional<std::string>, Failure> meta(const std::string& key);
  Result<void, Failure> setMeta(const std::string& key, const std::string& value);
  // When the record began: set when the file is created and again by deleteAll().
  Result<std::optional<Date>, Failure> recordingSince();

  // How often the record was started again since this object opened the file: by its own
  // deleteAll() or by another program's (`omnira history delete --all` while the
  // application runs). Whoever keeps figures of their own from before (the readings
  // recorder's open period, the usage ledger) drops them when this moves.
  //
  // Every write, and this call, first looks whether another connection changed the file
  // (SQLite's data_version, a cheap read); if so the open rows held here are read afresh
  // from the file, so rows another program deleted are not written back.
  Result<uint64_t, Failure> restarts();

  // Deletes every row older than its table's bound, in one transaction.
  Result<void, Failure> prune(const Bounds& bounds);
  // Deletes every recorded row, so recording starts again from `now`, which the meta table
  // remembers as "recordingSince"; the freed space is returned to the file system.
  Result<void, Failure> deleteAll(Date now);

  // Folds the write-ahead log ("-wal" beside the file) back into the file.
  Result<void, Failure> checkpoint();

  static const char* tableName(SystemTable table);
  static const char* tableName(AppTable table);

  // Period starts, in seconds since the epoch; hours and days on the local clock.
  static int64_t periodStart(SystemTable table, Date at);
  static int64_t periodStart(AppTable table, Date at);  // days: local midnight

  ~HistoryDatabase();

 private:
  HistoryDatabase(std::filesystem::path url, sqlite::Connection connection);

  // Opens and sets up the file once; throws sqlite::Error, Damaged when the check finds
  // faults, NewerSchema for a file of a later version (both private to the .cpp).
  static std::unique_ptr<HistoryDatabase> openFile(const std::filesystem::path& url, const Options& options);
  // A write that failed or worked; logs only the change from one to the other. Lock held.
  Failure writeFailedLocked(const char* what, const sqlite::Error& error);
  void writeWorkedLocked();

  void migrate(int64_t fromVersion);
  sqlite::Statement& statement(const std::string& sql);
  void upsert(SystemTable table, const SystemRow& row);
  void upsert(AppTable table, const AppRow& row);
  static void bindApp(sqlite::Statement& insert, const AppRow& row);
  std::optional<SystemRow> loadSystemLocked(SystemTable table, int64_t start);
  std::vector<AppRow> loadAppsLocked(AppTable table, int64_t start);
  std::optional<std::string> metaLocked(const std::string& key);
  void forgetOpenRows();
  // Throws sqlite::Error; called with the lock held, inside a write transaction when one follows.
  void followOutsideChangesLocked();

  // The rows of the periods still open, as last written, so a tick adds to them without
  // reading the file; filled from the file when a period is first touched.
  struct OpenApps {
    int64_t start = -1;
    std::unordered_map<std::string, AppRow> rows;
  };

  std::filesystem::path url_;
  // Guards the connection, the cached statements and the open rows below.
  // Owner: this object. Held by every public call for its whole duration.
  std::mutex lock_;
  sqlite::Connection connection_;
  std::unordered_map<std::string, std::unique_ptr<sqlite::Statement>> statements_;
  std::optional<SystemRow> openSystem_[3];
  OpenApps openApps_[2];
  // What the file said when this object last looked, to tell another program's changes.
  int64_t dataVersion_ = 0;
  std::optional<std::string> recordingSince_;
  uint64_t restarts_ = 0;
  // The file as opened, to tell when the path no longer leads to it.
  dev_t device_ = 0;
  ino_t inode_ = 0;
  bool writesFail_ = false;
};

}  // namespace omnira
