#include "Omnira/presentation/HistoryModel.h"

#include <QMetaObject>
#include <QVariantMap>

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <map>
#include <optional>
#include <vector>

#include "Omnira/presentation/Figures.h"
#include "OmniraCore/history/HistoryDatabase.h"
#include "OmniraCore/history/HistoryExport.h"
#include "OmniraCore/history/HistoryRetention.h"

namespace omnira::presentation {

namespace {

using Table = HistoryDatabase::SystemTable;
using AppTable = HistoryDatabase::AppTable;

int64_t epochSeconds(Date date) {
  return std::chrono::duration_cast<std::chrono::seconds>(date.time_since_epoch()).count();
}

Date dateOf(int64_t seconds) { return Date(std::chrono::seconds(seconds)); }

// How many slots a span has: hours for a day, days for the rest.
int slotCount(const QString& span) {
  if (span == QLatin1String("week")) return 7;
  if (span == QLatin1String("month")) return 30;
  if (span == QLatin1String("year")) return 365;
  return 24;
}

QString durationText(double seconds) {
  if (!(seconds > 0)) return QStringLiteral("0s");
  const auto total = static_cast<int64_t>(seconds);
  const int64_t days = total / 86400, hours = total % 86400 / 3600, minutes = total % 3600 / 60;
  if (days > 0) return QStringLiteral("%1d %2h").arg(days).arg(hours);
  if (hours > 0) return QStringLiteral("%1h %2m").arg(hours).arg(minutes, 2, 10, QLatin1Char('0'));
  if (minutes > 0) return QStringLiteral("%1m").arg(minutes);
  return QStringLiteral("%1s").arg(total);
}

// The local hour (a day's span) or local day (longer spans) that holds `at`.
int64_t slotOf(const QString& span, int64_t at) {
  return span == QLatin1String("day") ? HistoryDatabase::periodStart(Table::hours, dateOf(at))
                                      : HistoryDatabase::periodStart(AppTable::days, dateOf(at));
}

// The span's slots, oldest first, walked back from now one local hour or day at a time, so
// a day of 23 or 25 hours is still one slot.
std::vector<int64_t> slotStarts(const QString& span, Date now) {
  std::vector<int64_t> keys(static_cast<size_t>(slotCount(span)));
  keys.back() = slotOf(span, epochSeconds(now));
  for (size_t i = keys.size() - 1; i > 0; --i) keys[i - 1] = slotOf(span, keys[i] - 1);
  return keys;
}

uint64_t unsignedBytes(int64_t count) { return count > 0 ? static_cast<uint64_t>(count) : 0; }

struct Slot {
  double seconds = 0, cpuLoadSeconds = 0, memoryByteSeconds = 0;
  int64_t networkIn = 0, networkOut = 0, diskRead = 0, diskWritten = 0;
  double pressureSeconds = 0, pressureWeighted = 0;  // percent × seconds, from the readings
};

struct AppTotal {
  std::string name;
  double seconds = 0, cpuSeconds = 0, memoryByteSeconds = 0;
  int64_t disk = 0, network = 0;
};

}  // namespace

struct HistoryModel::Reading {
  QString problem, emptyText, recordedText, resolution, cpuText, memoryText, pressureText, diskText, networkText,
      firstLabel, lastLabel;
  QList<qreal> cpu, memory, pressure, diskRead, diskWrite, networkIn, networkOut;
  QVariantList apps;
};

struct HistoryModel::Worker {
  std::filesystem::path file;
  std::unique_ptr<HistoryDatabase> database;

  // The connection, opened on first use and again when the file was replaced; nothing
  // (with why) while there is no file: reading must not make one.
  HistoryDatabase* open(QString& why) {
    if (database && !database->isDetached()) return database.get();
    database.reset();
    std::error_code error;
    if (!std::filesystem::exists(file, error)) {
      why = QObject::tr("No history has been recorded yet.");
      return nullptr;
    }
    auto opened = HistoryDatabase::open(file);
    if (!opened) {
      why = QString::fromStdString(opened.error().message);
      return nullptr;
    }
    database = std::move(*opened);
    return database.get();
  }
};

namespace {

// The span's figures, by slot, as `omnira history show` adds them up.
std::shared_ptr<HistoryModel::Reading> readSpan(HistoryDatabase& db, const QString& span, Date now) {
  auto reading = std::make_shared<HistoryModel::Reading>();
  const bool byDay = span != QLatin1String("day");
  const auto keyOf = [&](int64_t start) { return slotOf(span, start); };
  const std::vector<int64_t> keys = slotStarts(span, now);
  const int64_t from = keys.front(), to = epochSeconds(now) + 1;

  auto rows = db.system(Table::hours, from, to);
  auto readings = db.readings(from);
  auto apps = byDay ? db.apps(AppTable::days, from, to) : db.apps(AppTable::hours, from, to);
  if (!rows || !readings || !apps) {
    reading->problem = QString::fromStdString(!rows ? rows.error().message
                                              : !readings ? readings.error().message
                                                          : apps.error().message);
    return reading;
  }

  std::map<int64_t, Slot> byKey;
  for (int64_t key : keys) byKey[key];
  Slot total;
  std::optional<double> cpuPeak;
  std::optional<int64_t> memoryPeak;
  const auto add = [](Slot& slot, const HistoryDatabase::SystemRow& row) {
    slot.seconds += row.seconds;
    slot.cpuLoadSeconds += row.cpuLoadSeconds;
    slot.memoryByteSeconds += row.memoryByteSeconds;
    slot.networkIn += row.networkBytesIn;
    slot.networkOut += row.networkBytesOut;
    slot.diskRead += row.diskBytesRead;
    slot.diskWritten += row.diskBytesWritten;
  };
  for (const auto& row : *rows) {
    const auto found = byKey.find(keyOf(row.start));
    if (found == byKey.end()) continue;
    add(found->second, row);
    add(total, row);
  }
  for (const auto& r : *readings) {
    if (r.start >= to) continue;
    cpuPeak = std::max(cpuPeak.value_or(0.0), r.cpuPercentPeak);
    memoryPeak = std::max(memoryPeak.value_or(0), r.memoryUsedBytesPeak);
    if (!r.memoryPressurePercentAverage) continue;
    for (Slot* slot : {&total, byKey.contains(keyOf(r.start)) ? &byKey[keyOf(r.start)] : nullptr}) {
      if (!slot) continue;
      slot->pressureSeconds += r.seconds;
      slot->pressureWeighted += *r.memoryPressurePercentAverage * r.seconds;
    }
  }
  if (!(total.seconds > 0)) {
    reading->emptyText = HistoryModel::tr("The history holds nothing for the last %1.").arg(span);
    return reading;
  }

  for (const auto& [key, slot] : byKey) {
    const double seen = slot.seconds;
    reading->cpu << (seen > 0 ? slot.cpuLoadSeconds / seen : 0);
    reading->memory << (seen > 0 ? slot.memoryByteSeconds / seen : 0);
    reading->pressure << (slot.pressureSeconds > 0 ? slot.pressureWeighted / slot.pressureSeconds / 100 : 0);
    reading->diskRead << static_cast<qreal>(unsignedBytes(slot.diskRead));
    reading->diskWrite << static_cast<qreal>(unsignedBytes(slot.diskWritten));
    reading->networkIn << static_cast<qreal>(unsignedBytes(slot.networkIn));
    reading->networkOut << static_cast<qreal>(unsignedBytes(slot.networkOut));
  }
  const char* labelFormat = byDay ? (span == QLatin1String("year") ? "%b %Y" : "%a %d %b") : "%H:00";
  reading->firstLabel = QString::fromStdString(formatLocal(dateOf(keys.front()), labelFormat));
  reading->lastLabel = byDay ? HistoryModel::tr("Today") : HistoryModel::tr("Now");
  reading->resolution = byDay ? HistoryModel::tr("by day") : HistoryModel::tr("by hour");
  reading->recordedText = HistoryModel::tr("%1 recorded").arg(durationText(total.seconds));
  reading->cpuText = HistoryModel::tr("%1 cores busy on average").arg(total.cpuLoadSeconds / total.seconds, 0, 'f', 2);
  if (cpuPeak) reading->cpuText += HistoryModel::tr(", peak %1 of the computer").arg(percentText(*cpuPeak / 100));
  reading->memoryText =
      HistoryModel::tr("%1 used on average").arg(bytesText(static_cast<uint64_t>(total.memoryByteSeconds / total.seconds)));
  if (memoryPeak) reading->memoryText += HistoryModel::tr(", peak %1").arg(bytesText(unsignedBytes(*memoryPeak)));
  reading->pressureText = total.pressureSeconds > 0
                              ? HistoryModel::tr("%1 on average").arg(percentText(total.pressureWeighted / total.pressureSeconds / 100))
                              : HistoryModel::tr("Not recorded in this span");
  reading->diskText = HistoryModel::tr("%1 read, %2 written")
                          .arg(bytesText(unsignedBytes(total.diskRead)), bytesText(unsignedBytes(total.diskWritten)));
  reading->networkText = HistoryModel::tr("%1 in, %2 out")
                             .arg(bytesText(unsignedBytes(total.networkIn)), bytesText(unsignedBytes(total.networkOut)));

  std::map<std::string, AppTotal> totals;
  for (const auto& row : *apps) {
    auto& t = totals[row.appId];
    t.name = row.name;
    t.seconds += row.seconds;
    t.cpuSeconds += row.cpuSeconds;
    t.memoryByteSeconds += row.memoryByteSeconds;
    t.disk += row.diskBytesRead + row.diskBytesWritten;
    t.network += row.networkBytesIn + row.networkBytesOut;
  }
  std::vector<AppTotal> ranked;
  for (auto& [id, t] : totals) ranked.push_back(std::move(t));
  std::stable_sort(ranked.begin(), ranked.end(), [](const AppTotal& a, const AppTotal& b) { return a.cpuSeconds > b.cpuSeconds; });
  if (ranked.size() > static_cast<size_t>(HistoryModel::topAppCount)) ranked.resize(HistoryModel::topAppCount);
  for (const auto& t : ranked) {
    QVariantMap app;
    app[QStringLiteral("name")] = nameText(t.name);
    app[QStringLiteral("cpu")] = durationText(t.cpuSeconds);
    app[QStringLiteral("cpuSeconds")] = t.cpuSeconds;
    app[QStringLiteral("memory")] = bytesText(t.seconds > 0 ? static_cast<uint64_t>(t.memoryByteSeconds / t.seconds) : 0);
    app[QStringLiteral("disk")] = bytesText(unsignedBytes(t.disk));
    app[QStringLiteral("network")] = bytesText(unsignedBytes(t.network));
    app[QStringLiteral("seen")] = durationText(t.seconds);
    app[QStringLiteral("share")] = ranked.front().cpuSeconds > 0 ? t.cpuSeconds / ranked.front().cpuSeconds : 0.0;
    reading->apps << app;
  }
  return reading;
}

}  // namespace

HistoryModel::HistoryModel(AppPaths paths, int64_t keptDays, std::function<Date()> clock, QObject* parent)
    : QObject(parent),
      paths_(std::move(paths)),
      keptDays_(keptDays),
      clock_(clock ? std::move(clock) : [] { return std::chrono::system_clock::now(); }),
      worker_(std::make_shared<Worker>()) {
  worker_->file = paths_.dataFile("history.sqlite");
  pool_.setMaxThreadCount(1);
  pool_.setObjectName(QStringLiteral("Omnira history reader"));
}

HistoryModel::~HistoryModel() { pool_.waitForDone(); }

void HistoryModel::setKeptDays(int64_t days) {
  if (days == keptDays_) return;
  keptDays_ = days;
  emit keptDaysChanged();
}

void HistoryModel::setSpan(const QString& span) {
  if (span == span_ || (span != QLatin1String("day") && slotCount(span) == 24)) return;
  span_ = span;
  emit spanChanged();
  reload();
}

void HistoryModel::reload() {
  const uint64_t generation = ++generation_;
  setLoading(true);
  pool_.start([this, worker = worker_, span = span_, now = clock_(), generation] {
    QString why;
    std::shared_ptr<Reading> reading;
    if (HistoryDatabase* db = worker->open(why)) {
      reading = readSpan(*db, span, now);
    } else {
      reading = std::make_shared<Reading>();
      reading->emptyText = why;
    }
    // Posted to this object: the destructor waits for this job, and a queued call to a
    // deleted object is dropped.
    QMetaObject::invokeMethod(this, [this, generation, reading] { apply(generation, reading); }, Qt::QueuedConnection);
  });
}

void HistoryModel::apply(uint64_t generation, const std::shared_ptr<Reading>& reading) {
  if (generation != generation_) return;  // a newer reading is on its way
  setLoading(false);
  if (!reading->problem.isEmpty()) {
    setProblem(reading->problem);
    emit loaded();
    return;
  }
  emptyText_ = reading->emptyText;
  recordedText_ = reading->recordedText;
  resolution_ = reading->resolution;
  cpuText_ = reading->cpuText;
  memoryText_ = reading->memoryText;
  pressureText_ = reading->pressureText;
  diskText_ = reading->diskText;
  networkText_ = reading->networkText;
  firstLabel_ = reading->firstLabel;
  lastLabel_ = reading->lastLabel;
  cpuSeries_ = reading->cpu;
  memorySeries_ = reading->memory;
  pressureSeries_ = reading->pressure;
  diskReadSeries_ = reading->diskRead;
  diskWriteSeries_ = reading->diskWrite;
  networkInSeries_ = reading->networkIn;
  networkOutSeries_ = reading->networkOut;
  topApps_ = reading->apps;
  emit changed();
  emit loaded();
}

void HistoryModel::exportCSV() {
  const QString span = span_;
  runAction(
      [this, span](Worker& worker, Date now) -> QString {
        QString why;
        HistoryDatabase* db = worker.open(why);
        if (!db) return why;
        const std::filesystem::path folder = paths_.downloadsFolder();
        std::error_code error;
        std::filesystem::create_directories(folder, error);
        if (error) return tr("Cannot make the folder %1: %2.").arg(nameText(folder.string()), QString::fromStdString(error.message()));
        // The span shown, from the start of its first slot.
        const int64_t since = slotStarts(span, now).front();
        auto files = HistoryExport::write(*db, folder, dateOf(since), now);
        if (!files) return QString::fromStdString(files.error().message);
        const QString written = nameText(files->machine.string()) + QLatin1Char('\n') + nameText(files->apps.string());
        QMetaObject::invokeMethod(this, [this, written] {
          exported_ = written;
          emit exportedChanged();
        }, Qt::QueuedConnection);
        return {};
      },
      &HistoryModel::exportFinished);
}

void HistoryModel::deleteOlder() {
  runAction(
      [days = keptDays_](Worker& worker, Date now) -> QString {
        QString why;
        HistoryDatabase* db = worker.open(why);
        if (!db) return why;
        auto done = HistoryRetention::deleteOlder(*db, days, now);
        return done ? QString() : QString::fromStdString(done.error().message);
      },
      &HistoryModel::deleteFinished);
}

void HistoryModel::deleteAll() {
  runAction(
      [this](Worker& worker, Date now) -> QString {
        QString why;
        HistoryDatabase* db = worker.open(why);
        if (!db) return why;
        if (auto done = db->deleteAll(now); !done) return QString::fromStdString(done.error().message);
        // After the history, as the command does: the running store, noticing the restart,
        // writes these afresh and cannot put the old ones back in between.
        for (const char* name : {"usage.json", "insights.json"}) {
          std::error_code error;
          std::filesystem::remove(paths_.dataFile(name), error);
          if (error)
            return tr("The history was deleted, but not %1: %2.")
                .arg(nameText(paths_.dataFile(name).string()), QString::fromStdString(error.message()));
        }
        return {};
      },
      &HistoryModel::deleteFinished);
}

void HistoryModel::runAction(std::function<QString(Worker&, Date)> job, void (HistoryModel::*finished)()) {
  setBusy(true);
  pool_.start([this, worker = worker_, job = std::move(job), now = clock_(), finished] {
    const QString why = job(*worker, now);
    if (!why.isEmpty()) spdlog::warn("History: {}", why.toStdString());
    QMetaObject::invokeMethod(this, [this, why, finished] {
      setBusy(false);
      setProblem(why);
      emit(this->*finished)();
      reload();
    }, Qt::QueuedConnection);
  });
}

void HistoryModel::setProblem(const QString& problem) {
  if (problem == problem_) return;
  problem_ = problem;
  emit problemChanged();
}

void HistoryModel::setLoading(bool loading) {
  if (loading == loading_) return;
  loading_ = loading;
  emit loadingChanged();
}

void HistoryModel::setBusy(bool busy) {
  if (busy == busy_) return;
  busy_ = busy;
  emit busyChanged();
}

}  // namespace omnira::presentation
