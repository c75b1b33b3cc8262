#pragma once
// A single-shot timer on the boot clock (CLOCK_BOOTTIME), which keeps counting while the
// computer is suspended: a sleep of five seconds that spans a suspend ends on waking, not
// five seconds after it. The deadline is moved onto a round boundary within the tolerance
// so that wake-ups fall together with other timers'.
//
// A QObject of the thread that creates it (the main thread); a failure to create the
// kernel timer is a sentence in failure() and start() then falls back to a coarse Qt timer.

#include <QObject>
#include <QSocketNotifier>
#include <QTimer>

#include <memory>
#include <string>

namespace omnira {

class BootClockTimer : public QObject {
  Q_OBJECT

 public:
  explicit BootClockTimer(QObject* parent = nullptr);
  ~BootClockTimer() override;

  // Seconds on the boot clock.
  static double now();

  // Fires timeout() once, `seconds` from now, give or take `tolerance`. Restarting replaces
  // the pending deadline.
  void start(double seconds, double tolerance);
  void stop();
  bool isActive() const { return active_; }
  // The boot-clock time the pending wake-up is set for.
  double deadline() const { return deadline_; }
  const std::string& failure() const { return failure_; }

 signals:
  void timeout();

 private:
  void expired();

  int fd_ = -1;
  std::unique_ptr<QSocketNotifier> notifier_;
  QTimer fallback_;
  bool active_ = false;
  double deadline_ = 0;
  std::string failure_;
};

}  // namespace omnira
