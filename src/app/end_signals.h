#pragma once

#include <functional>

#include <QSocketNotifier>

namespace mvdirigo {

/// Turns the signals that ask a program to end (SIGINT, SIGTERM, SIGHUP) into calls from the event
/// loop, so that ending the session or pressing Ctrl-C saves what closing the window saves.
class EndSignals {
 public:
  /// Keeps the signals from ending the program at once. To be called before there are other
  /// threads, which the toolkit starts for itself: a signal goes to any thread that does not block
  /// it.
  static void block();

  explicit EndSignals(std::function<void()> on_signal);
  ~EndSignals();

 private:
  int descriptor_;
  QSocketNotifier notifier_;
};

}  // namespace mvdirigo
