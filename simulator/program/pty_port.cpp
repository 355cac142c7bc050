#include "simulator/program/pty_port.h"

#include <algorithm>
#include <utility>

namespace mvdirigo {
namespace {

constexpr std::size_t kInputLimit = 64UL * 1024;

// What the system takes to wake this program and the host for a byte. It is no part of the line,
// so a byte from the host counts as sent so much earlier, but not before the byte it may answer.
constexpr SimTime kWakeUps = std::chrono::microseconds(200);

/// A handle that is reported closed keeps its lock for a moment more.
constexpr SimTime kLockOutlivesHandle = std::chrono::milliseconds(20);

}  // namespace

PtyPort::PtyPort(const Options& options)
    : options_(options),
      link_(options.link_folder / ("com" + std::to_string(options.number))),
      bus_(options.units, options.bus),
      log_("port " + std::to_string(options.number), options.verbose) {}

void PtyPort::plugIn() {
  pty_.emplace();
  link_.leadTo(pty_->path());
}

void PtyPort::unplug() {
  link_.leadNowhere();
  pty_.reset();
  looks_for_abandoned_use_at_.reset();
  from_host_.clear();
}

int PtyPort::pollFd() const { return pty_ && from_host_.size() < kInputLimit ? pty_->fd() : -1; }

void PtyPort::readable(SimTime now) {
  if (!pty_) return;
  const int baud = baudOfInput();
  const std::string bytes = pty_->read();
  log_.add(TrafficLog::Direction::kFromHost, bytes, now);
  SimTime due = std::max(now, line_time_);
  if (options_.bus.paced) due = std::max(line_time_, now - kWakeUps);
  if (!from_host_.empty()) due = std::max(due, from_host_.back().due);
  for (const char byte : bytes) {
    if (options_.bus.paced && baud > 0) due += byteTime(baud);
    from_host_.push_back({byte, baud, due});
  }
}

int PtyPort::closingsFd() const {
  return pty_ && !looks_for_abandoned_use_at_ ? pty_->closingsFd() : -1;
}

void PtyPort::closed(SimTime now) {
  if (!pty_) return;
  pty_->forgetClosings();
  looks_for_abandoned_use_at_ = now + kLockOutlivesHandle;
}

int PtyPort::baudOfInput() {
  const int now_set = pty_->hostBaud();
  const int before = std::exchange(last_baud_, now_set);
  // The first bytes after a change of rate may have been sent just before it: a pseudo-terminal
  // does not tell. They count as sent at the rate at which somebody hears them.
  const auto heard_at = [this](int baud) {
    for (std::size_t i = 0; i < bus_.unitCount(); ++i) {
      if (bus_.unit(i).baud() == baud) return true;
    }
    return false;
  };
  return !heard_at(now_set) && heard_at(before) ? before : now_set;
}

std::optional<SimTime> PtyPort::nextEvent() const {
  std::optional<SimTime> next;
  const auto consider = [&next](std::optional<SimTime> when) {
    if (when && (!next || *when < *next)) next = when;
  };
  consider(bus_.nextEvent());
  consider(returns_at_);
  consider(looks_for_abandoned_use_at_);
  consider(log_.nextEvent());
  if (!from_host_.empty()) consider(from_host_.front().due);
  return next;
}

void PtyPort::advance(SimTime now) {
  std::string heard;
  while (true) {
    auto due = bus_.nextEvent();
    const bool from_host = !from_host_.empty() && (!due || from_host_.front().due <= *due);
    if (from_host) due = from_host_.front().due;
    if (!due || *due > now) break;
    line_time_ = *due;
    if (from_host) {
      bus_.receive(from_host_.front().byte, from_host_.front().baud, *due);
      from_host_.pop_front();
    } else {
      heard += bus_.advance(*due, pty_ ? pty_->hostBaud() : 0);
    }
  }
  toHost(heard, now);
  log_.advance(now);
  if (bus_.vanished() && pty_) {
    unplug();
    if (options_.return_after) returns_at_ = now + *options_.return_after;
  }
  if (looks_for_abandoned_use_at_ && *looks_for_abandoned_use_at_ <= now) {
    looks_for_abandoned_use_at_.reset();
    pty_->endAbandonedUse();
  }
  if (returns_at_ && *returns_at_ <= now) {
    returns_at_.reset();
    bus_.restore();
    plugIn();
  }
}

void PtyPort::toHost(const std::string& bytes, SimTime now) {
  if (bytes.empty() || !pty_) return;
  const std::size_t written = pty_->write(bytes);
  log_.add(TrafficLog::Direction::kToHost, bytes.substr(0, written), now);
}

}  // namespace mvdirigo
