#include "platform/qt/qt_timer.h"

#include <utility>

namespace mvdirigo {

QtTimer::QtTimer(std::function<void()> on_tick) {
  timer_.setTimerType(Qt::PreciseTimer);
  // The connection owns the callback, so a tick may destroy its own timer.
  QObject::connect(&timer_, &QTimer::timeout, [tick = std::move(on_tick)] { tick(); });
}

void QtTimer::setInterval(int interval_ms) {
  if (interval_ms == interval_ms_) return;
  interval_ms_ = interval_ms;
  restart();
}

void QtTimer::setEnabled(bool enabled) {
  if (enabled == enabled_) return;
  enabled_ = enabled;
  restart();
}

void QtTimer::restart() {
  timer_.stop();
  if (enabled_ && interval_ms_ > 0) timer_.start(interval_ms_);
}

}  // namespace mvdirigo
