#include "platform/qt/qt_event_loop.h"

#include <chrono>
#include <utility>

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QEventLoop>

namespace mvdirigo {

struct QtEventLoop::Wait {
  QEventLoop& loop;
  const std::function<bool()>& done;
  const WindowLife& waiter;

  bool over() const { return waiter.leaving() || done(); }
};

// The dispatcher tells when it is about to sleep and when it woke up: between them these two come
// around every batch of events, so a wait looks after each, and never sleeps through its own end.
QtEventLoop::QtEventLoop() {
  const auto* dispatcher = QAbstractEventDispatcher::instance();
  QObject::connect(dispatcher, &QAbstractEventDispatcher::aboutToBlock, &context_,
                   [this] { look(); });
  QObject::connect(dispatcher, &QAbstractEventDispatcher::awake, &context_, [this] { look(); });
}

void QtEventLoop::look() const {
  if (innermost_ && innermost_->loop.isRunning() && innermost_->over()) innermost_->loop.quit();
}

void QtEventLoop::runPending() {
  QCoreApplication::processEvents();
  // What the events above queued is pending too: a received character is handed on that way.
  QCoreApplication::sendPostedEvents();
}

WaitResult QtEventLoop::waitUntil(const std::function<bool()>& done, const WindowLife& waiter) {
  QEventLoop loop;
  const Wait wait{loop, done, waiter};
  struct Innermost {
    Innermost(const Wait*& slot, const Wait* wait)
        : slot_(slot), outer_(std::exchange(slot, wait)) {}
    ~Innermost() { slot_ = outer_; }
    const Wait*& slot_;
    const Wait* outer_;
  } innermost(innermost_, &wait);

  while (true) {
    if (waiter.leaving()) return WaitResult::kWindowGone;
    if (done()) return WaitResult::kDone;
    // A loop ended by the application's exit doesn't start again.
    if (loop.exec() == -1) return WaitResult::kWindowGone;
  }
}

std::int64_t QtEventLoop::nowMs() const {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

}  // namespace mvdirigo
