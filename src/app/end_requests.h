#pragma once

#include <functional>

#include <QObject>
#include <QSocketNotifier>

#include "platform/descriptor.h"

namespace mvdirigo {

/// Turns what asks a program to end into calls from the event loop, so that pressing Ctrl-C or
/// ending the session saves what closing the window saves: the signals SIGINT, SIGTERM and SIGHUP,
/// and the session's own request, which Qt would answer by leaving the event loop of the moment.
class EndRequests : public QObject {
 public:
  /// Keeps the signals from ending the program at once. To be called before there are other
  /// threads, which the toolkit starts for itself: a signal goes to any thread that does not block
  /// it.
  static void blockSignals();

  /// To be made after the application object.
  explicit EndRequests(std::function<void()> on_request);

  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  std::function<void()> on_request_;
  Descriptor descriptor_;
  QSocketNotifier notifier_;
};

}  // namespace mvdirigo
