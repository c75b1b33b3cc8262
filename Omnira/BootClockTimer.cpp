#include "Omnira/BootClockTimer.h"

#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <ctime>

#include <fmt/format.h>

#include "Omnira/SamplingSchedule.h"

namespace omnira {

namespace {

timespec toTimespec(double seconds) {
  timespec value{};
  value.tv_sec = static_cast<time_t>(std::floor(seconds));
  value.tv_nsec = static_cast<long>((seconds - std::floor(seconds)) * 1e9);
  if (value.tv_nsec >= 1'000'000'000) {
    value.tv_sec += 1;
    value.tv_nsec -= 1'000'000'000;
  }
  return value;
}

}  // namespace

BootClockTimer::BootClockTimer(QObject* parent) : QObject(parent) {
  fallback_.setSingleShot(true);
  fallback_.setTimerType(Qt::CoarseTimer);
  connect(&fallback_, &QTimer::timeout, this, &BootClockTimer::expired);
  fd_ = ::timerfd_create(CLOCK_BOOTTIME, TFD_NONBLOCK | TFD_CLOEXEC);
  if (fd_ < 0) {
    failure_ = fmt::format("no boot-clock timer: {}", std::strerror(errno));
    return;
  }
  notifier_ = std::make_unique<QSocketNotifier>(fd_, QSocketNotifier::Read, this);
  connect(notifier_.get(), &QSocketNotifier::activated, this, [this] {
    uint64_t expirations = 0;
    // Reading clears the readiness; EAGAIN means a restart already disarmed it.
    if (::read(fd_, &expirations, sizeof expirations) == sizeof expirations) expired();
  });
}

BootClockTimer::~BootClockTimer() {
  notifier_.reset();
  if (fd_ >= 0) ::close(fd_);
}

double BootClockTimer::now() {
  timespec value{};
  ::clock_gettime(CLOCK_BOOTTIME, &value);
  return static_cast<double>(value.tv_sec) + static_cast<double>(value.tv_nsec) / 1e9;
}

void BootClockTimer::start(double seconds, double tolerance) {
  stop();
  deadline_ = SamplingSchedule::coalescedDeadline(now() + std::max(0.0, seconds), tolerance);
  active_ = true;
  if (fd_ >= 0) {
    itimerspec spec{};
    spec.it_value = toTimespec(deadline_);
    if (spec.it_value.tv_sec == 0 && spec.it_value.tv_nsec == 0) spec.it_value.tv_nsec = 1;  // 0 would disarm
    if (::timerfd_settime(fd_, TFD_TIMER_ABSTIME, &spec, nullptr) == 0) return;
    failure_ = fmt::format("cannot arm the boot-clock timer: {}", std::strerror(errno));
  }
  fallback_.start(static_cast<int>(std::max(0.0, deadline_ - now()) * 1000));
}

void BootClockTimer::stop() {
  active_ = false;
  fallback_.stop();
  if (fd_ >= 0) {
    itimerspec disarm{};
    ::timerfd_settime(fd_, 0, &disarm, nullptr);
    uint64_t expirations = 0;
    (void)::read(fd_, &expirations, sizeof expirations);  // drop an expiry not yet delivered
  }
}

void BootClockTimer::expired() {
  if (!active_) return;
  active_ = false;
  emit timeout();
}

}  // namespace omnira
