#include "simulator/virtual/virtual_timer.h"

namespace mvdirigo {

void VirtualTimer::setInterval(int interval_ms) {
  if (interval_ms == interval_ms_) return;
  interval_ms_ = interval_ms;
  stop();
  if (enabled_) start(queue_.now());
}

void VirtualTimer::setEnabled(bool enabled) {
  if (enabled == enabled_) return;
  enabled_ = enabled;
  stop();
  if (enabled_) start(queue_.now());
}

void VirtualTimer::start(SimTime from) {
  if (interval_ms_ <= 0) return;
  next_tick_ = queue_.post(from + std::chrono::milliseconds(interval_ms_),
                           {"timer tick, ms: ", interval_ms_}, [this] { tick(); });
}

void VirtualTimer::stop() {
  if (next_tick_) queue_.cancel(*next_tick_);
  next_tick_.reset();
}

void VirtualTimer::tick() {
  start(next_tick_->first);
  if (*ticking_) return;
  struct Ticking {
    explicit Ticking(std::shared_ptr<bool> flag) : flag_(std::move(flag)) { *flag_ = true; }
    ~Ticking() { *flag_ = false; }
    std::shared_ptr<bool> flag_;
  } ticking(ticking_);
  const auto on_tick = on_tick_;
  on_tick();
}

}  // namespace mvdirigo
