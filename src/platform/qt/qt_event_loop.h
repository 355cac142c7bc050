#pragma once

#include <vector>

#include <QObject>

#include "platform/event_loop.h"

namespace mvdirigo {

/// Qt's event loop. To be made after the application object.
class QtEventLoop : public EventLoop {
 public:
  /// Gets its turn whenever the loop has handled some events, before it sleeps, and again inside
  /// every wait: the place for what must not happen inside an event's own handler.
  class Listener {
   public:
    virtual ~Listener() = default;
    virtual void betweenTurns() = 0;
  };

  QtEventLoop();

  void add(Listener& listener) { listeners_.push_back(&listener); }
  void remove(Listener& listener);

  void runPending() override;
  /// Returns `kWindowGone` also when the application is told to exit meanwhile.
  [[nodiscard]] WaitResult waitUntil(const std::function<bool()>& done,
                                     const WindowLife& waiter) override;
  [[nodiscard]] std::int64_t nowMs() const override;

 private:
  /// One wait that is in progress; waits nest.
  struct Wait;

  void tellListeners();

  std::vector<Listener*> listeners_;
  Wait* innermost_ = nullptr;
  unsigned turns_ = 0;
  QObject context_;
};

}  // namespace mvdirigo
