#pragma once

#include <cstdint>
#include <functional>

namespace mvdirigo {

/// Says whether a window is going away. A window owns one, and every wait of the window's handlers
/// watches it, so that a handler never goes on working for a window that was closed under it.
class WindowLife {
 public:
  WindowLife() = default;
  /// A copy would never learn that the window leaves.
  WindowLife(const WindowLife&) = delete;
  WindowLife& operator=(const WindowLife&) = delete;

  void leave() { leaving_ = true; }
  [[nodiscard]] bool leaving() const { return leaving_; }

 private:
  bool leaving_ = false;
};

enum class WaitResult { kDone, kWindowGone };

/// The one event loop of the program. Everything runs on its thread.
class EventLoop {
 public:
  virtual ~EventLoop() = default;

  /// Handles the events that are pending now, and returns.
  virtual void runPending() = 0;

  /// Handles events, sleeping while there are none, until `done()` holds or `waiter` is leaving.
  /// After `kWindowGone` the caller returns at once and touches nothing of its window.
  [[nodiscard]] virtual WaitResult waitUntil(const std::function<bool()>& done,
                                             const WindowLife& waiter) = 0;

  /// Monotonic time in milliseconds, of no particular origin.
  [[nodiscard]] virtual std::int64_t nowMs() const = 0;
};

}  // namespace mvdirigo
