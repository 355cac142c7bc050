#include "platform/qt/qt_event_loop.h"

#include <chrono>
#include <utility>

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QEventLoop>

namespace mvdirigo {

struct QtEventLoop::Wait {
  const std::function<bool()>& done;
  const WindowLife& waiter;
  QEventLoop loop{};
  bool told = false;

  bool over() const { return waiter.leaving() || done(); }
  /// Ends the turn in progress, and the loop if it runs, once the wait is over. Only once, because
  /// a box that is open inside the wait sleeps in turns of its own.
  void endIfOver() {
    if (told || !over()) return;
    told = true;
    loop.quit();
  }
};

// The dispatcher tells when it is about to sleep and when it woke up: between them these two come
// around every batch of events, so a wait looks after each, and never sleeps through its own end.
QtEventLoop::QtEventLoop() {
  const auto* dispatcher = QAbstractEventDispatcher::instance();
  QObject::connect(dispatcher, &QAbstractEventDispatcher::aboutToBlock, &context_, [this] {
    tellListeners();
    if (innermost_) innermost_->endIfOver();
  });
  QObject::connect(dispatcher, &QAbstractEventDispatcher::awake, &context_, [this] {
    tellListeners();
    if (innermost_ && innermost_->loop.isRunning()) innermost_->endIfOver();
  });
}

void QtEventLoop::remove(Listener& listener) { std::erase(listeners_, &listener); }

// A listener may remove any. Backwards, that makes none of the others miss its call.
void QtEventLoop::tellListeners() {
  const unsigned turn = ++turns_;
  for (std::size_t i = listeners_.size(); i-- > 0;) {
    if (i < listeners_.size()) listeners_[i]->betweenTurns();
  }
  // A listener that waited or yielded had turns of its own. They may have used up what was to keep
  // the turn in progress from sleeping.
  if (turns_ != turn) QAbstractEventDispatcher::instance()->wakeUp();
}

void QtEventLoop::runPending() {
  QCoreApplication::processEvents();
  tellListeners();
}

WaitResult QtEventLoop::waitUntil(const std::function<bool()>& done, const WindowLife& waiter) {
  Wait wait{done, waiter};
  struct Innermost {
    Innermost(Wait*& slot, Wait* inner) : slot_(slot), outer_(std::exchange(slot, inner)) {}
    ~Innermost() { slot_ = outer_; }
    Wait*& slot_;
    Wait* outer_;
  } innermost(innermost_, &wait);

  // Mostly the next event ends a wait, and a single turn costs less than a loop.
  if (!wait.over()) QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
  while (true) {
    if (waiter.leaving()) return WaitResult::kWindowGone;
    if (done()) return WaitResult::kDone;
    wait.told = false;
    // A loop ended by the application's exit doesn't start again.
    if (wait.loop.exec() == -1) return WaitResult::kWindowGone;
  }
}

std::int64_t QtEventLoop::nowMs() const {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

}  // namespace mvdirigo
