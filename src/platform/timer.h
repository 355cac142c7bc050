#pragma once

namespace mvdirigo {

/// A periodic timer. The tick callback is given when the timer is made (`Platform::makeTimer`).
///
/// Ticks come only from the event loop: never inside a call of the timer, after it was disabled, or
/// after its destruction. Ticks that are late are not made up in a burst, and a period does not
/// drift by the lateness of the ticks before. A tick that falls due while the callback of the one
/// before still runs (because it waits) is left out.
class Timer {
 public:
  virtual ~Timer() = default;

  /// Milliseconds between ticks. With 0 or less the timer never ticks.
  [[nodiscard]] virtual int Interval() const = 0;
  /// A new interval starts the countdown afresh; setting the present one changes nothing.
  virtual void setInterval(int interval_ms) = 0;

  [[nodiscard]] virtual bool Enabled() const = 0;
  /// Enabling an enabled timer changes nothing: its countdown runs on.
  virtual void setEnabled(bool enabled) = 0;
};

}  // namespace mvdirigo
