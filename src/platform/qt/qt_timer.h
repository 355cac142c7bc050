#pragma once

#include <functional>

#include <QTimer>

#include "platform/timer.h"

namespace mvdirigo {

class QtTimer : public Timer {
 public:
  explicit QtTimer(std::function<void()> on_tick);

  [[nodiscard]] int Interval() const override { return interval_ms_; }
  void setInterval(int interval_ms) override;
  [[nodiscard]] bool Enabled() const override { return enabled_; }
  void setEnabled(bool enabled) override;

 private:
  void restart();

  int interval_ms_ = 0;
  bool enabled_ = false;
  QTimer timer_;
};

}  // namespace mvdirigo
