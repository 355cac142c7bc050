#include "simulator/program/serve.h"

#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <system_error>

#include "platform/descriptor.h"

extern char** environ;

namespace mvdirigo {
namespace {

constexpr int kNotStarted = 127;
constexpr int kEndedBySignal = 128;

sigset_t servedSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGCHLD}) sigaddset(&set, signal);
  return set;
}

/// The signals that end the program, and that of an ended command, as something to poll.
class Signals {
 public:
  Signals() {
    if (!descriptor_.isOpen()) {
      throw std::system_error(errno, std::generic_category(), "signalfd");
    }
    sigprocmask(SIG_BLOCK, &set_, &before_);
  }

  int fd() const { return descriptor_.number(); }
  /// What a command shall start with.
  const sigset_t& maskBefore() const { return before_; }

  /// The next signal that came; 0 when none did.
  int next() const {
    signalfd_siginfo info{};
    return read(fd(), &info, sizeof info) == sizeof info ? static_cast<int>(info.ssi_signo) : 0;
  }

 private:
  sigset_t set_ = servedSignals();
  sigset_t before_{};
  Descriptor descriptor_{signalfd(-1, &set_, SFD_CLOEXEC | SFD_NONBLOCK)};
};

/// Returns 0 when the command can't be started.
pid_t start(const std::vector<std::string>& command, const Signals& signals) {
  std::vector<char*> arguments;
  arguments.reserve(command.size() + 1);
  for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setsigmask(&attributes, &signals.maskBefore());
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
  pid_t child = 0;
  const int error =
      posix_spawnp(&child, arguments[0], nullptr, &attributes, arguments.data(), environ);
  posix_spawnattr_destroy(&attributes);
  if (error == 0) return child;
  std::fprintf(stderr, "movane-sim: can't start %s: %s\n", arguments[0], std::strerror(error));
  return 0;
}

std::optional<int> exitCode(pid_t child) {
  int status = 0;
  if (child == 0 || waitpid(child, &status, WNOHANG) != child) return std::nullopt;
  return WIFSIGNALED(status) ? kEndedBySignal + WTERMSIG(status) : WEXITSTATUS(status);
}

std::optional<SimTime> nextEvent(const std::list<PtyPort>& ports) {
  std::optional<SimTime> next;
  for (const PtyPort& port : ports) {
    const auto ports_next = port.nextEvent();
    if (ports_next && (!next || *ports_next < *next)) next = ports_next;
  }
  return next;
}

/// Sleeps until a port or a signal has something to say or the next event is due.
void sleep(std::list<PtyPort>& ports, const Signals& signals) {
  std::vector<pollfd> polled{{signals.fd(), POLLIN, 0}};
  for (const PtyPort& port : ports) {
    polled.push_back({port.pollFd(), POLLIN, 0});
    polled.push_back({port.closingsFd(), POLLIN, 0});
  }
  timespec wait{};
  const auto next = nextEvent(ports);
  if (next) {
    const SimTime left = std::max(*next - realTime(), SimTime(0));
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
    wait = {seconds.count(), (left - seconds).count()};
  }
  if (ppoll(polled.data(), polled.size(), next ? &wait : nullptr, nullptr) <= 0) return;
  // Behind the signals, each port has two entries.
  std::size_t input = 1;
  for (PtyPort& port : ports) {
    if (polled[input].revents != 0) port.readable(realTime());
    if (polled[input + 1].revents != 0) port.closed(realTime());
    input += 2;
  }
}

}  // namespace

SimTime realTime() {
  return std::chrono::duration_cast<SimTime>(std::chrono::steady_clock::now().time_since_epoch());
}

int serve(std::list<PtyPort>& ports, const std::vector<std::string>& command) {
  const Signals signals;
  const pid_t child = command.empty() ? 0 : start(command, signals);
  if (!command.empty() && child == 0) return kNotStarted;
  // A byte at 57600 baud takes 174 us; the usual slack of timers is 50.
  prctl(PR_SET_TIMERSLACK, 1);
  while (true) {
    for (PtyPort& port : ports) port.advance(realTime());
    sleep(ports, signals);
    while (const int signal = signals.next()) {
      if (signal == SIGCHLD) {
        if (const auto code = exitCode(child)) return *code;
      } else if (child != 0) {
        kill(child, signal);
      } else {
        return 0;
      }
    }
  }
}

}  // namespace mvdirigo
