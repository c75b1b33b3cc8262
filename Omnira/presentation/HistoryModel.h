#pragma once
// The History page: the machine and the top apps over the last day, week, month or year,
// read from the history file, and the page's export and delete, which do what
// `omnira history export` and `omnira history delete` do.
//
// The file is read through a connection of this model's own, on a worker thread of its own
// (a year is thousands of rows; opening also checks the file): the window never waits for
// SQLite. The store's connection stays its writer's; like the command's, this one's
// deletes are noticed by the store at its next tick (HistoryDatabase::restarts), which
// then clears its ledger and insights. One job runs at a time, in the order asked; a
// reading that a newer one overtook is dropped. The destructor waits for a running job.
//
// Main thread only, but for the jobs, which touch only the worker's connection. A failure
// (no file yet, a file that cannot be opened, a full Downloads disk) becomes `problem`, one
// sentence; the figures shown before stay.

#include <QList>
#include <QObject>
#include <QString>
#include <QThreadPool>
#include <QVariantList>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>

#include "OmniraCore/foundation/AppPaths.h"
#include "OmniraCore/foundation/Date.h"

namespace omnira::presentation {

class HistoryModel : public QObject {
  Q_OBJECT
  // "day", "week", "month" or "year".
  Q_PROPERTY(QString span READ span WRITE setSpan NOTIFY spanChanged)
  Q_PROPERTY(bool loading READ loading NOTIFY loadingChanged)
  Q_PROPERTY(bool busy READ busy NOTIFY busyChanged)
  Q_PROPERTY(bool hasRows READ hasRows NOTIFY changed)
  Q_PROPERTY(QString emptyText READ emptyText NOTIFY changed)
  Q_PROPERTY(QString recordedText READ recordedText NOTIFY changed)
  Q_PROPERTY(QString resolution READ resolution NOTIFY changed)
  Q_PROPERTY(QString cpuText READ cpuText NOTIFY changed)
  Q_PROPERTY(QString memoryText READ memoryText NOTIFY changed)
  Q_PROPERTY(QString pressureText READ pressureText NOTIFY changed)
  Q_PROPERTY(QString diskText READ diskText NOTIFY changed)
  Q_PROPERTY(QString networkText READ networkText NOTIFY changed)
  Q_PROPERTY(QString firstLabel READ firstLabel NOTIFY changed)
  Q_PROPERTY(QString lastLabel READ lastLabel NOTIFY changed)
  // One value per hour (a day) or per day (longer spans), oldest first.
  Q_PROPERTY(QList<qreal> cpuSeries READ cpuSeries NOTIFY changed)        // cores busy
  Q_PROPERTY(QList<qreal> memorySeries READ memorySeries NOTIFY changed)  // bytes
  Q_PROPERTY(QList<qreal> pressureSeries READ pressureSeries NOTIFY changed)  // 0...1
  Q_PROPERTY(QList<qreal> diskReadSeries READ diskReadSeries NOTIFY changed)  // bytes
  Q_PROPERTY(QList<qreal> diskWriteSeries READ diskWriteSeries NOTIFY changed)
  Q_PROPERTY(QList<qreal> networkInSeries READ networkInSeries NOTIFY changed)
  Q_PROPERTY(QList<qreal> networkOutSeries READ networkOutSeries NOTIFY changed)
  // The busiest apps by CPU time: name, cpu, memory, disk, network, seen, share (of the first).
  Q_PROPERTY(QVariantList topApps READ topApps NOTIFY changed)
  Q_PROPERTY(QString problem READ problem NOTIFY problemChanged)
  // What the last export wrote, the two file paths on their own lines.
  Q_PROPERTY(QString exported READ exported NOTIFY exportedChanged)
  // The kept span ("historyDays") that "delete older" deletes past.
  Q_PROPERTY(int keptDays READ keptDays NOTIFY keptDaysChanged)

 public:
  static constexpr int topAppCount = 8;

  // `keptDays` is the "historyDays" setting as HistoryRetention reads it; `clock` the
  // system clock when empty.
  HistoryModel(AppPaths paths, int64_t keptDays, std::function<Date()> clock = {}, QObject* parent = nullptr);
  ~HistoryModel() override;

  QString span() const { return span_; }
  void setSpan(const QString& span);
  bool loading() const { return loading_; }
  bool busy() const { return busy_; }
  bool hasRows() const { return !cpuSeries_.isEmpty(); }
  QString emptyText() const { return emptyText_; }
  QString recordedText() const { return recordedText_; }
  QString resolution() const { return resolution_; }
  QString cpuText() const { return cpuText_; }
  QString memoryText() const { return memoryText_; }
  QString pressureText() const { return pressureText_; }
  QString diskText() const { return diskText_; }
  QString networkText() const { return networkText_; }
  QString firstLabel() const { return firstLabel_; }
  QString lastLabel() const { return lastLabel_; }
  QList<qreal> cpuSeries() const { return cpuSeries_; }
  QList<qreal> memorySeries() const { return memorySeries_; }
  QList<qreal> pressureSeries() const { return pressureSeries_; }
  QList<qreal> diskReadSeries() const { return diskReadSeries_; }
  QList<qreal> diskWriteSeries() const { return diskWriteSeries_; }
  QList<qreal> networkInSeries() const { return networkInSeries_; }
  QList<qreal> networkOutSeries() const { return networkOutSeries_; }
  QVariantList topApps() const { return topApps_; }
  QString problem() const { return problem_; }
  QString exported() const { return exported_; }
  int keptDays() const { return static_cast<int>(keptDays_); }
  void setKeptDays(int64_t days);

  // Reads the span again (the page was shown, or the person asked).
  Q_INVOKABLE void reload();
  // The shown span as two CSV files in the Downloads folder (HistoryExport).
  Q_INVOKABLE void exportCSV();
  // Rows past the kept span (HistoryRetention::deleteOlder), or every row (deleteAll, then
  // the ledger and insights files, as the command does). Ask the person first.
  Q_INVOKABLE void deleteOlder();
  Q_INVOKABLE void deleteAll();

  struct Reading;  // a span's figures, made on the worker
  struct Worker;   // the worker's connection

 signals:
  void spanChanged();
  void loadingChanged();
  void busyChanged();
  void changed();
  void problemChanged();
  void exportedChanged();
  void keptDaysChanged();
  // A reading was applied (or failed); an export or delete finished.
  void loaded();
  void exportFinished();
  void deleteFinished();

 private:
  void apply(uint64_t generation, const std::shared_ptr<Reading>& reading);
  void setProblem(const QString& problem);
  void setLoading(bool loading);
  void setBusy(bool busy);
  // An export or delete: runs `job` on the worker; its sentence (empty when it worked)
  // comes back as the problem, then the span is read again.
  void runAction(std::function<QString(Worker&, Date)> job, void (HistoryModel::*finished)());

  AppPaths paths_;
  int64_t keptDays_;
  std::function<Date()> clock_;
  QString span_ = QStringLiteral("day");
  bool loading_ = false, busy_ = false;
  uint64_t generation_ = 0;
  QString emptyText_, recordedText_, resolution_, cpuText_, memoryText_, pressureText_, diskText_, networkText_,
      firstLabel_, lastLabel_, problem_, exported_;
  QList<qreal> cpuSeries_, memorySeries_, pressureSeries_, diskReadSeries_, diskWriteSeries_, networkInSeries_,
      networkOutSeries_;
  QVariantList topApps_;

  std::shared_ptr<Worker> worker_;  // touched by the jobs only
  QThreadPool pool_;                // one thread; declared last so it is waited for first
};

}  // namespace omnira::presentation
