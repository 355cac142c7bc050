#pragma once

#include <QObject>

#include "platform/event_loop.h"

namespace mvdirigo {

/// Qt's event loop. To be made after the application object.
class QtEventLoop : public EventLoop {
 public:
  QtEventLoop();

  void runPending() override;
  /// Returns `kWindowGone` also when the application was told to exit.
  WaitResult waitUntil(const std::function<bool()>& done, const WindowLife& waiter) override;
  std::int64_t nowMs() const override;

 private:
  /// One wait that is in progress; waits nest.
  struct Wait;

  void look() const;

  const Wait* innermost_ = nullptr;
  QObject context_;
};

}  // namespace mvdirigo
