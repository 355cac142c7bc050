#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "platform/timer.h"
#include "simulator/virtual/event_queue.h"

namespace mvdirigo {

/// A timer in virtual time. Its ticks stand on the grid that the start of the countdown laid; one
/// that falls due while the tick callback still runs (because it waits) is left out.
class VirtualTimer : public Timer {
 public:
  VirtualTimer(EventQueue& queue, std::function<void()> on_tick)
      : queue_(queue), on_tick_(std::move(on_tick)) {}
  ~VirtualTimer() override { stop(); }
  VirtualTimer(const VirtualTimer&) = delete;
  VirtualTimer& operator=(const VirtualTimer&) = delete;

  [[nodiscard]] int Interval() const override { return interval_ms_; }
  void setInterval(int interval_ms) override;
  [[nodiscard]] bool Enabled() const override { return enabled_; }
  void setEnabled(bool enabled) override;

 private:
  void start(SimTime from);
  void stop();
  void tick();

  EventQueue& queue_;
  std::function<void()> on_tick_;
  int interval_ms_ = 0;
  bool enabled_ = false;
  std::optional<EventQueue::Handle> next_tick_;
  /// Shared with a running tick, which may outlive the timer.
  std::shared_ptr<bool> ticking_ = std::make_shared<bool>(false);
};

}  // namespace mvdirigo
