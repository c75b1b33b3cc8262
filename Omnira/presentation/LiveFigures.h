#pragma once
// The machine's figures as the panel and the Overview page bind to them: the last sample as
// text and fractions, the live rings as chart series, the top apps and the strain. Built
// from the store after each tick, and only while `active` (a window shows them), so a
// closed window costs nothing here.
//
// Main thread only; reads the store, never samples. Nothing here fails: before the first
// sample every figure reads as empty.

#include <QList>
#include <QObject>
#include <QString>
#include <QVariantList>

namespace omnira {
class MonitorStore;
}

namespace omnira::presentation {

class LiveFigures : public QObject {
  Q_OBJECT
  Q_PROPERTY(bool hasSample READ hasSample NOTIFY changed)
  Q_PROPERTY(double cpu READ cpu NOTIFY changed)
  Q_PROPERTY(QString cpuText READ cpuText NOTIFY changed)
  Q_PROPERTY(QString loadText READ loadText NOTIFY changed)
  Q_PROPERTY(double memory READ memory NOTIFY changed)
  Q_PROPERTY(QString memoryText READ memoryText NOTIFY changed)
  Q_PROPERTY(double pressure READ pressure NOTIFY changed)
  Q_PROPERTY(int pressureLevel READ pressureLevel NOTIFY changed)
  Q_PROPERTY(QString pressureText READ pressureText NOTIFY changed)
  Q_PROPERTY(QString swapText READ swapText NOTIFY changed)
  Q_PROPERTY(QString diskReadText READ diskReadText NOTIFY changed)
  Q_PROPERTY(QString diskWriteText READ diskWriteText NOTIFY changed)
  Q_PROPERTY(QString networkInText READ networkInText NOTIFY changed)
  Q_PROPERTY(QString networkOutText READ networkOutText NOTIFY changed)
  Q_PROPERTY(bool strained READ strained NOTIFY changed)
  Q_PROPERTY(QString strainText READ strainText NOTIFY changed)
  Q_PROPERTY(QList<qreal> cpuHistory READ cpuHistory NOTIFY changed)
  Q_PROPERTY(QVariantList coreHistories READ coreHistories NOTIFY changed)
  Q_PROPERTY(QList<qreal> memoryHistory READ memoryHistory NOTIFY changed)
  Q_PROPERTY(QList<qreal> pressureHistory READ pressureHistory NOTIFY changed)
  Q_PROPERTY(QList<qreal> diskReadHistory READ diskReadHistory NOTIFY changed)
  Q_PROPERTY(QList<qreal> diskWriteHistory READ diskWriteHistory NOTIFY changed)
  Q_PROPERTY(QList<qreal> networkInHistory READ networkInHistory NOTIFY changed)
  Q_PROPERTY(QList<qreal> networkOutHistory READ networkOutHistory NOTIFY changed)
  Q_PROPERTY(QVariantList topApps READ topApps NOTIFY changed)
  // What the top apps are ranked by: "cpu" or "memory"; the panel's choice, for this run.
  Q_PROPERTY(QString topAppsBy READ topAppsBy WRITE setTopAppsBy NOTIFY changed)

 public:
  static constexpr int topAppCount = 5;

  explicit LiveFigures(MonitorStore* store, QObject* parent = nullptr);

  // Follows the store while active; reads it at once when turned on.
  void setActive(bool active);
  bool active() const { return active_; }

  bool hasSample() const { return hasSample_; }
  double cpu() const { return cpu_; }
  QString cpuText() const { return cpuText_; }
  QString loadText() const { return loadText_; }
  double memory() const { return memory_; }
  QString memoryText() const { return memoryText_; }
  double pressure() const { return pressure_; }
  int pressureLevel() const { return pressureLevel_; }
  QString pressureText() const { return pressureText_; }
  QString swapText() const { return swapText_; }
  QString diskReadText() const { return diskReadText_; }
  QString diskWriteText() const { return diskWriteText_; }
  QString networkInText() const { return networkInText_; }
  QString networkOutText() const { return networkOutText_; }
  bool strained() const { return !strainText_.isEmpty(); }
  QString strainText() const { return strainText_; }
  QList<qreal> cpuHistory() const { return cpuHistory_; }
  QVariantList coreHistories() const { return coreHistories_; }
  QList<qreal> memoryHistory() const { return memoryHistory_; }
  QList<qreal> pressureHistory() const { return pressureHistory_; }
  QList<qreal> diskReadHistory() const { return diskReadHistory_; }
  QList<qreal> diskWriteHistory() const { return diskWriteHistory_; }
  QList<qreal> networkInHistory() const { return networkInHistory_; }
  QList<qreal> networkOutHistory() const { return networkOutHistory_; }
  QVariantList topApps() const { return topApps_; }
  QString topAppsBy() const { return byMemory_ ? QStringLiteral("memory") : QStringLiteral("cpu"); }
  void setTopAppsBy(const QString& metric);

 signals:
  void changed();

 private:
  void refresh();

  MonitorStore* store_;
  bool active_ = false;
  QMetaObject::Connection ticked_;

  bool byMemory_ = false;
  bool hasSample_ = false;
  double cpu_ = 0, memory_ = 0, pressure_ = 0;
  int pressureLevel_ = 1;
  QString cpuText_, loadText_, memoryText_, pressureText_, swapText_, diskReadText_, diskWriteText_, networkInText_,
      networkOutText_, strainText_;
  QList<qreal> cpuHistory_, memoryHistory_, pressureHistory_, diskReadHistory_, diskWriteHistory_, networkInHistory_,
      networkOutHistory_;
  QVariantList coreHistories_, topApps_;
};

}  // namespace omnira::presentation
