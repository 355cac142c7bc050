#include "app/end_requests.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <utility>

#include <QCoreApplication>
#include <QEvent>

namespace mvdirigo {
namespace {

sigset_t endSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&set, signal);
  return set;
}

Descriptor openSignalDescriptor() {
  const sigset_t set = endSignals();
  return Descriptor(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
}

}  // namespace

void EndRequests::blockSignals() {
  const sigset_t set = endSignals();
  sigprocmask(SIG_BLOCK, &set, nullptr);
}

EndRequests::EndRequests(std::function<void()> on_request)
    : on_request_(std::move(on_request)),
      descriptor_(openSignalDescriptor()),
      notifier_(descriptor_.number(), QSocketNotifier::Read) {
  qApp->installEventFilter(this);
  connect(&notifier_, &QSocketNotifier::activated, this, [this] {
    signalfd_siginfo received;
    if (read(descriptor_.number(), &received, sizeof received) > 0) on_request_();
  });
}

bool EndRequests::eventFilter(QObject* watched, QEvent* event) {
  const bool quit = watched == qApp && event->type() == QEvent::Quit;
  if (quit) on_request_();
  return quit;
}

}  // namespace mvdirigo
