#include "app/end_signals.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <utility>

namespace mvdirigo {
namespace {

sigset_t endSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&set, signal);
  return set;
}

int openSignalDescriptor() {
  const sigset_t set = endSignals();
  return signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
}

}  // namespace

void EndSignals::block() {
  const sigset_t set = endSignals();
  sigprocmask(SIG_BLOCK, &set, nullptr);
}

EndSignals::EndSignals(std::function<void()> on_signal)
    : descriptor_(openSignalDescriptor()), notifier_(descriptor_, QSocketNotifier::Read) {
  QObject::connect(&notifier_, &QSocketNotifier::activated,
                   [this, on_signal = std::move(on_signal)] {
                     signalfd_siginfo received;
                     if (read(descriptor_, &received, sizeof received) > 0) on_signal();
                   });
}

EndSignals::~EndSignals() { close(descriptor_); }

}  // namespace mvdirigo
